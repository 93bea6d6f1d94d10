// The serial light sensor on the camera's console UART "/dev/ttyAMBA1" (configured as
// `peer = "light_sensor"`). It hears seven-byte frames (lamp_wire.h) and answers each light query
// to its address (command 2 0x59) with a reply from that address: FF, address, 20, 5B, 00, the
// light level L (0..255, more light on the sensor's own cell gives a lower L at the camera's
// voltage), check byte. Numbered replies can be wrong on purpose: they carry 0x5A, the answer to
// another query, in place of 0x5B. It keeps every frame it heard with its time, and frames with a
// wrong check byte, for another address or with another command go unanswered.
//
// Its messages are its replies: `bad_checksum` puts their check byte off by one (which the camera
// does not look at); they have no length field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "peripherals/lamp_wire.h"
#include "peripherals/message_peer.h"

namespace sim
{

struct LightSensorSetup {
    uint8_t address = 0x01;
    uint8_t level = 128;               // L in every reply
    Nanos answer_delay = 0;            // between a query heard and its reply starting
    std::vector<size_t> wrong_replies; // replies (numbered from 1) that answer 0x5A
};

class LightSensorPeer : public MessagePeer
{
  public:
    static const Framing kFraming;

    // The reply command of a sensor that answers another query than the one asked.
    static constexpr uint8_t kWrongReplyCommand = 0x5A;

    explicit LightSensorPeer(LightSensorSetup setup);

    // Every frame it heard, answered or not.
    const std::vector<HeardLampFrame> &heard() const { return heard_; }
    // Light queries it answered (the replies the layer dropped or spoiled included).
    size_t replies() const { return replies_; }

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;

  private:
    bool is_query(const HeardLampFrame &frame) const;

    LightSensorSetup setup_;
    LampFrameReader reader_;
    std::vector<HeardLampFrame> heard_;
    size_t replies_ = 0;
};

} // namespace sim
