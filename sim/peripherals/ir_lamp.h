// The external IR lamp unit on the camera's console UART "/dev/ttyAMBA1" (configured as
// `peer = "ir_lamp"`). It drives the IR lamps of two ports and obeys seven-byte frames
// (lamp_wire.h) to its address with command 2 0x2D:
//   data 0x13E8: the lamps of port 0 on;  data 0x43E8: the lamps of port 1 on;
//   data 0x5000: every lamp off.
// It checks each frame it hears (sync, check byte, address, command) and keeps every one with its
// time and what it made of it; a frame with a wrong check byte, for another address, with another
// command or with data it does not know changes nothing. It answers nothing, so of the
// misbehaviour every peer has only the noise and the hang-up show on the line: noise the camera
// flushes before it writes, a hang-up makes its writes fail.
#pragma once

#include <cstdint>
#include <vector>

#include "peripherals/lamp_wire.h"
#include "peripherals/message_peer.h"

namespace sim
{

// What the lamp unit made of one frame.
enum class LampVerdict {
    Obeyed,        // a switch request it carried out
    BadCheck,      // the check byte was wrong
    OtherAddress,  // a frame for another unit
    OtherCommand,  // not a lamp request (a light query, say)
    UnknownSwitch, // a lamp request with data it does not know
};

struct LampRequest {
    HeardLampFrame frame;
    LampVerdict verdict = LampVerdict::Obeyed;
};

class IrLampPeer : public MessagePeer
{
  public:
    // It sends nothing: no check or length field to spoil.
    static const Framing kFraming;
    static constexpr unsigned kPorts = 2;

    explicit IrLampPeer(uint8_t address);

    const std::vector<LampRequest> &requests() const { return requests_; }
    bool lamps_on(unsigned port) const { return port < kPorts && on_[port]; }

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;

  private:
    LampVerdict obey(const HeardLampFrame &frame);

    uint8_t address_;
    LampFrameReader reader_;
    std::vector<LampRequest> requests_;
    bool on_[kPorts] = {false, false};
};

} // namespace sim
