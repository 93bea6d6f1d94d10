// The RFID reader on the camera's peripheral link: straight on /dev/ttyC0 (configured as
// `[ports."/dev/ttyC0"]`) or behind the hub's port 0x005C (`[ports."/dev/ttyC0".rfid]`).
//
// Its frames, either way (multi-byte fields high byte first):
//   FF, a type byte (0C: from the reader, 0A: to the reader), the total length (2 bytes, counted
//   from the FF), the body, and a CRC-16 of everything before it (polynomial 0x1021, start 0, no
//   reflection), 2 bytes.
//   A tag report: FF 0C 00 0C F1 <antenna> <ID, 4 bytes> <CRC>: twelve bytes.
//   Start of inventory, from the camera: FF 0A 00 07 10 B9 A2 (command 0x10, no body).
//   Its acknowledgement: FF 0C 00 08 10 00 <CRC>: the command answered, status 0.
//
// While its inventory runs it reports the tags it was given, each at its own times: first `at`
// after the inventory started, then every `every`, `repeat` times (0: as long as the inventory
// runs). Straight on a line a reader is set up to start its inventory on its own when the line is
// opened; behind the hub it waits for the start-of-inventory command. Either way the inventory
// ends when the product closes the line or the channel, and starts afresh next time. Besides its
// reports it can acknowledge the command and send other frames exactly as given, at times counted
// from the start of the inventory.
//
// Its messages for the misbehaviour layer are its frames; a bad check puts the CRC off by one, an
// oversize length claims 1025 bytes (more than the camera's 1024-byte buffer) with the CRC kept
// right. It sends one frame after the other at its line's speed.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "peripherals/message_peer.h"

namespace sim
{

// One tag in the reader's field.
struct RfidTag {
    std::array<uint8_t, 4> id{};
    Nanos at = 0;                     // first report, after the inventory started
    size_t repeat = 1;                // reports of it; 0: for as long as the inventory runs
    Nanos every = 100 * kMillisecond; // between two of its reports
};

// A frame sent exactly as given, at `at` after the inventory started.
struct RfidFrameAt {
    Nanos at = 0;
    std::vector<uint8_t> bytes;
};

// When the inventory starts.
enum class RfidInventory {
    Auto,      // on opening when straight on a serial line, on the command behind the hub
    OnOpen,    // as soon as the product opens the line (or the hub the channel)
    OnCommand, // when the start-of-inventory command arrives
};

struct RfidSetup {
    std::vector<RfidTag> tags;
    std::vector<RfidFrameAt> frames;
    RfidInventory inventory = RfidInventory::Auto;
    uint8_t antenna = 0x01;   // byte 5 of its reports
    bool acknowledge = false; // answer the start-of-inventory command
};

// A command the reader heard.
struct RfidCommand {
    Nanos time = 0;
    std::vector<uint8_t> bytes; // the whole frame as heard
    bool crc_ok = false;
};

class RfidPeer : public MessagePeer
{
  public:
    static const Framing kFraming;

    explicit RfidPeer(RfidSetup setup);

    // The reader's frames, for tests and scenarios.
    static uint16_t crc16(const uint8_t *data, size_t size);
    static std::vector<uint8_t> tag_report(const std::array<uint8_t, 4> &id, uint8_t antenna = 0x01);
    static std::vector<uint8_t> acknowledgement(uint8_t command, uint8_t status = 0x00);

    bool inventory_running() const { return started_.has_value(); }
    const std::vector<RfidCommand> &heard() const { return heard_; }
    // Reports handed to the layer so far (the dropped ones included).
    size_t reports() const { return reports_; }

    void product_opened(Nanos now) override;
    void product_closed(Nanos now) override;

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_action() override;
    void act(Nanos now) override;
    // Behind the hub the channel's rate, once the camera told it; until then the reader's own.
    unsigned uart_baud() const override;

  private:
    // What is due next, per tag and per scripted frame.
    struct TagDue {
        Nanos next;
        size_t left; // reports still to send; 0 with repeat 0: for ever
    };

    void start_inventory(Nanos now);
    void send_frame(Nanos when, std::vector<uint8_t> frame);
    bool on_a_serial_line() const;

    RfidSetup setup_;
    std::optional<Nanos> started_;
    std::vector<TagDue> tags_due_;
    size_t next_frame_ = 0; // in setup_.frames, sorted by time
    std::vector<uint8_t> pending_;
    std::vector<RfidCommand> heard_;
    size_t reports_ = 0;
    Nanos line_free_ = 0;
};

// The CRC of an RFID frame off by one; a piece too short to carry one is left as it is.
void spoil_rfid_crc(std::vector<uint8_t> &frame);
// The length field claims 1025 bytes, the CRC recomputed so that only the length is wrong.
void claim_rfid_oversize(std::vector<uint8_t> &frame);

} // namespace sim
