// The peripheral box: a heater and a temperature sensor, the hub's own function behind its port
// 0x0005 (configured as `[ports."/dev/ttyC0".box]`, beside the devices of the other ports).
//
// It speaks hub frames (hub_frame.h) from and to port 0x0005 whose command byte is the box's:
//   0xE1 with one byte 0x00: sent first when the camera switches the heater on;
//   0x06 with one byte: 0x01 switches the heater on, 0x00 off (other bytes change nothing);
//   0x07 with no payload: the temperature request, answered with a frame of command 0x07 from
//        port 0x0005 whose payload is the temperature, one byte 0..255.
// The camera's channel commands for the port (0x04 open, 0x06 with a 4-byte rate, 0x05 close)
// reach it too and are recorded like any other. It keeps the heater's state and every command it
// heard, with its time; frames it cannot trust (kind, checksum) or for another port it ignores.
//
// On purpose it can answer 0x07 with a longer payload than one byte, refuse a command (record it,
// not carry it out, and answer with another frame or not at all), and it has the misbehaviour
// every peer has: its messages are its answer frames, so a bad checksum or an oversize length
// spoils the n-th answer with the hub's own hooks.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "peripherals/hub_frame.h"
#include "peripherals/message_peer.h"

namespace sim
{

// The box's commands, in the command byte of a hub frame for port 0x0005.
constexpr uint8_t kBoxPrepareHeater = 0xE1;  // one byte 0x00, before the heater goes on
constexpr uint8_t kBoxSwitchHeater = 0x06;   // one byte: kBoxHeaterOn or kBoxHeaterOff
constexpr uint8_t kBoxAskTemperature = 0x07; // no payload; answered with the temperature
constexpr uint8_t kBoxHeaterOn = 0x01;
constexpr uint8_t kBoxHeaterOff = 0x00;

// One command the box heard.
struct BoxCommand {
    Nanos time = 0;
    uint8_t command = 0;
    std::vector<uint8_t> payload{};
    bool refused = false; // heard, not carried out
};

// A command the box refuses: it is recorded and not carried out (the heater keeps its state, the
// temperature is not sent); `reply`, when given, is sent instead.
struct BoxRefusal {
    uint8_t command = 0;
    std::optional<HubFrame> reply{};
};

struct BoxSetup {
    std::optional<uint8_t> temperature{}; // its answer to 0x07; none: 0x07 goes unanswered
    std::vector<uint8_t> extra_bytes{};   // sent after the temperature: a longer answer than asked for
    Nanos answer_delay = 0;               // between a command and its answer
    std::vector<BoxRefusal> refusals{};
};

class BoxPeer : public MessagePeer
{
  public:
    // Its messages are hub frames: the hub's checksum and length hooks.
    static const Framing kFraming;

    explicit BoxPeer(BoxSetup setup);

    bool heater_on() const { return heater_on_; }
    const std::vector<BoxCommand> &commands() const { return commands_; }

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;

  private:
    void obey(const HeardFrame &frame, Nanos now);
    void answer(Nanos now, const HubFrame &frame);

    BoxSetup setup_;
    HubFrameReader reader_;
    std::vector<BoxCommand> commands_;
    bool heater_on_ = false;
};

} // namespace sim
