// The ZigBee coordinator on the camera's peripheral link (hub port 0x005D behind the hub, or
// /dev/ttyC0 itself when wired straight to the line), with the battery sensor that joins its
// network.
//
// It reads the byte-stuffed frames the camera sends (0x01, the inside with every byte below 0x10
// sent as 0x02 and the byte XOR 0x10, 0x03), unstuffs each with the library's own protocol file
// (src/zigbee_frame.h), checks it (message type, length field against the payload, XOR checksum,
// the payload's size for the type) and keeps it with its time. It carries out what it
// understands:
//   0x0020 extended PAN ID (8 bytes), 0x0021 channel mask (4 bytes), 0x0022 key state and link
//   key (1 + 16 bytes), 0x0024 start the network (none), 0x0049 permit joining (target address,
//   duration, trust-centre significance: 4 bytes), 0x0012 erase everything (none).
// Frames with a wrong checksum or length, or a payload of the wrong size, are kept and ignored.
//
// The sensor joins when joining is opened (0x0049 with a duration other than 0) on a network the
// coordinator has started, on a channel of its mask (all sixteen until told) and with the
// sensor's own link key preconfigured (key state 1 or 3). From that moment its reports follow at
// the times the setup gives, each a stuffed frame of type 0x8002 whose payload is six bytes of the
// coordinator's (status 0, the sensor's short address, endpoint 1, two bytes 0) and the sensor's
// frame: FE, 16-bit length (data type to end of data), data type 3, the sensor's address, the
// command and its data. Opening joining again lets it join again, its reports starting afresh;
// erasing forgets the network and drops what was still to come.
//
// On purpose it can refuse a command (keep it, not carry it out, and answer with a status frame
// 0x8000 carrying a status, or not at all), answer every command it carries out with status 0,
// and send reports that are wrong in any field or raw bytes exactly as given. Its messages for the
// misbehaviour layer are the frames it sends: a bad checksum is the XOR off by one, an oversize
// length makes the length fields claim 0xFFFF (the coordinator's and, in a report, the
// sensor's), every such frame stuffed right again.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "peripherals/message_peer.h"

namespace sim
{

// Message types of the coordinator's serial protocol.
constexpr uint16_t kZbSetExtendedPanId = 0x0020;
constexpr uint16_t kZbSetChannelMask = 0x0021;
constexpr uint16_t kZbSetSecurity = 0x0022;
constexpr uint16_t kZbStartNetwork = 0x0024;
constexpr uint16_t kZbPermitJoining = 0x0049;
constexpr uint16_t kZbErasePersistent = 0x0012;
constexpr uint16_t kZbStatus = 0x8000;         // status, sequence number, type answered (2 bytes)
constexpr uint16_t kZbDataIndication = 0x8002; // a sensor's frame, relayed

// The channels a coordinator may use until told otherwise: 11 to 26.
constexpr uint32_t kZbAllChannels = 0x07FFF800;

// What a sensor's report carries; anything left unset is built right.
struct ZigbeeReport {
    Nanos at = 0; // after the sensor joined
    uint8_t command = 0x15;
    std::vector<uint8_t> data{};                // the command's data
    std::optional<uint8_t> head{};              // default 0xFE
    std::optional<uint8_t> data_type{};         // default 3
    std::optional<uint16_t> sensor_length{};    // default data + 4
    bool closed = true;                         // false: the frame's end byte is not sent
    std::optional<std::vector<uint8_t>> wire{}; // sent exactly as given instead of a frame

    static ZigbeeReport climate(Nanos at, uint16_t temperature, uint16_t humidity);
    static ZigbeeReport particulate(Nanos at, uint32_t value);
    static ZigbeeReport version(Nanos at, const std::string &text);
};

// A command the coordinator refuses: kept, not carried out; answered with a status frame when
// `status` is given.
struct ZigbeeRefusal {
    uint16_t type = 0;
    std::optional<uint8_t> status{};
};

struct ZigbeeSetup {
    std::vector<ZigbeeReport> reports{};
    std::vector<ZigbeeRefusal> refusals{};
    bool status_replies = false; // answer every command it carries out with status 0
    std::array<uint8_t, 16> sensor_key{'Z', 'i', 'g', 'B', 'e', 'e', 'A', 'l',
                                       'l', 'i', 'a', 'n', 'c', 'e', '0', '9'}; // the HA default
    unsigned sensor_channel = 11;
    uint16_t sensor_address = 0x1234;
};

// One frame the coordinator heard, unstuffed.
struct ZigbeeHeard {
    Nanos time = 0;
    std::vector<uint8_t> wire; // as it came, from 0x01 to 0x03
    bool unstuffed_ok = false; // every escape gave a byte below 0x10, and nothing below 0x10 came bare
    uint16_t type = 0;
    uint16_t length = 0;  // the length field
    uint8_t checksum = 0; // the checksum field
    std::vector<uint8_t> payload;
    bool length_ok = false;   // the length field is the payload's size
    bool checksum_ok = false; // the checksum is the XOR of type, length and payload
    bool payload_ok = false;  // a type it knows, with the payload size that type takes
    bool refused = false;
    bool carried_out = false;
};

class ZigbeePeer : public MessagePeer
{
  public:
    static const Framing kFraming;

    explicit ZigbeePeer(ZigbeeSetup setup);

    const ZigbeeSetup &setup() const { return setup_; }
    const std::vector<ZigbeeHeard> &heard() const { return heard_; }
    // Bytes that were not part of any frame.
    size_t skipped() const { return skipped_; }

    // What it was told and did.
    std::optional<uint64_t> extended_pan_id() const { return pan_id_; }
    uint32_t channel_mask() const { return channel_mask_; }
    std::optional<uint8_t> key_state() const { return key_state_; }
    std::optional<std::array<uint8_t, 16>> link_key() const { return link_key_; }
    bool network_started() const { return started_; }
    bool joining_open() const { return joining_; }
    size_t joins() const { return joins_.size(); }
    const std::vector<Nanos> &join_times() const { return joins_; }
    size_t erasures() const { return erasures_; }

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_action() override;
    void act(Nanos now) override;

  private:
    void take_frame(std::vector<uint8_t> wire, Nanos now);
    void obey(ZigbeeHeard &frame, Nanos now);
    void answer(Nanos now, uint16_t type, uint8_t status);
    void try_join(Nanos now);
    std::vector<uint8_t> report_frame(const ZigbeeReport &report) const;
    void send_frame(Nanos when, std::vector<uint8_t> wire);

    ZigbeeSetup setup_;
    std::vector<uint8_t> partial_; // from a start byte on, until its end byte
    bool in_frame_ = false;
    size_t skipped_ = 0;
    std::vector<ZigbeeHeard> heard_;
    uint8_t sequence_ = 0;
    Nanos line_free_ = 0; // its UART sends one frame after the other

    std::optional<uint64_t> pan_id_;
    uint32_t channel_mask_ = kZbAllChannels;
    std::optional<uint8_t> key_state_;
    std::optional<std::array<uint8_t, 16>> link_key_;
    bool started_ = false;
    bool joining_ = false;
    std::vector<Nanos> joins_;
    size_t erasures_ = 0;
    std::multimap<Nanos, const ZigbeeReport *> due_; // reports still to come, by time
};

// The hooks: on a whole stuffed frame, its checksum off by one, or its length fields at 0xFFFF;
// stuffed right again. Anything that does not unstuff as one frame is left as it is.
void spoil_zigbee_checksum(std::vector<uint8_t> &wire);
void claim_zigbee_oversize(std::vector<uint8_t> &wire);

} // namespace sim
