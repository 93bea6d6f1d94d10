#include "peripherals/hub_toml.h"

#include <tuple>
#include <utility>

#include "peripherals/hub.h"
#include "peripherals/misbehaviour_toml.h"

namespace sim
{
namespace
{

// The devices a scenario can hang behind the hub, by the name of their port's table.
constexpr std::pair<std::string_view, uint16_t> kDevicePorts[] = {
    {"gps", kHubPortGps},
    {"rfid", kHubPortRfid},
    {"zigbee", kHubPortZigbee},
    {"box", kHubPortBox},
};

struct FaultName {
    std::string_view name;
    HubFault fault;
    int64_t highest; // the largest `value` it takes
};

constexpr FaultName kFaults[] = {
    {"bad_head", HubFault::BadHead, 0xFF},
    {"bad_kind", HubFault::BadKind, 0xFF},
    {"wrong_port", HubFault::WrongPort, 0xFFFF},
    {"truncate", HubFault::Truncate, 0xFFFF + kHubFrameOverhead},
};

// Faults every peer has under a shared key: a fault list naming them is pointed to the key.
constexpr std::pair<std::string_view, std::string_view> kSharedFaults[] = {
    {"bad_checksum", "bad_checksum"},
    {"long_length", "oversize"},
};

std::tuple<size_t, HubFault, std::optional<int64_t>> read_fault(const Section &fault)
{
    fault.only({"frame", "fault", "value"});
    const auto number = fault.integer("frame");
    if (!number || *number < 1)
        fault.fail("frame", "expected the number of the hub's message to spoil, from 1");
    const std::string name = fault.string("fault").value_or("");
    for (const auto &[old_name, key] : kSharedFaults)
        if (name == old_name)
            fault.fail("fault", "every peer can do this: write " + std::string(key) + " = " +
                                    std::to_string(*number) + " in the hub's table");
    for (const FaultName &known : kFaults)
        if (name == known.name)
            return {static_cast<size_t>(*number), known.fault, fault.integer_in("value", 0, known.highest)};
    fault.fail("fault", "expected bad_head, bad_kind, wrong_port or truncate");
}

HubFrame read_frame(const Section &frame)
{
    frame.only({"at_ms", "head", "length", "kind", "port", "command", "payload", "payload_text", "checksum",
                "truncate"});
    HubFrame result;
    result.head = static_cast<uint8_t>(frame.integer_in("head", 0, 255).value_or(0xFE));
    if (auto length = frame.integer_in("length", 0, 0xFFFF))
        result.length = static_cast<uint16_t>(*length);
    result.kind = static_cast<uint8_t>(frame.integer_in("kind", 0, 255).value_or(0x01));
    const auto port = frame.integer_in("port", 0, 0xFFFF);
    if (!port)
        frame.fail("port", "a frame needs the port it comes from");
    result.port = static_cast<uint16_t>(*port);
    result.command = static_cast<uint8_t>(frame.integer_in("command", 0, 255).value_or(kHubPass));
    result.payload = frame.bytes_or_text("payload").value_or(std::vector<uint8_t>{});
    if (auto checksum = frame.integer_in("checksum", 0, 0xFFFF))
        result.checksum = static_cast<uint16_t>(*checksum);
    if (auto truncate = frame.integer_in("truncate", 0, 0xFFFF + 9))
        result.truncate = static_cast<size_t>(*truncate);
    return result;
}

} // namespace

MakePeer load_hub_peer(const Section &port)
{
    const Misbehaviour how =
        read_misbehaviour(port, HubPeer::kFraming,
                          {"ack", "ack_delay_ms", "ack_payload", "ack_payload_text", "ack_port",
                           "max_payload", "gps", "rfid", "zigbee", "box", "fault", "frame"});
    const bool ack = port.boolean("ack").value_or(false);
    const Nanos ack_delay = port.milliseconds("ack_delay_ms").value_or(0);
    const std::vector<uint8_t> ack_payload =
        port.bytes_or_text("ack_payload").value_or(std::vector<uint8_t>{});
    std::optional<uint16_t> ack_port;
    if (auto value = port.integer_in("ack_port", 0, 0xFFFF))
        ack_port = static_cast<uint16_t>(*value);
    const size_t max_payload = static_cast<size_t>(port.integer_in("max_payload", 1, 0xFFFF).value_or(1015));

    std::vector<std::pair<uint16_t, MakePeer>> devices;
    for (const auto &[name, number] : kDevicePorts) {
        const auto device = port.table(name);
        if (!device)
            continue;
        for (std::string_view line_key : {"absent", "open_errno"})
            if (device->raw().contains(line_key))
                device->fail(line_key, "a device behind the hub has no line of its own");
        const auto kind = device->string("peer");
        if (!kind)
            device->fail("peer", "a device behind the hub needs its peer (e.g. \"script\")");
        if (*kind == "hub")
            device->fail("peer", "a hub cannot sit behind a hub");
        PeerLoader loader = find_peer_loader(*kind);
        if (loader == nullptr)
            device->fail("peer", "no peripheral called \"" + *kind + "\"");
        devices.emplace_back(number, loader(*device));
    }

    std::vector<std::tuple<size_t, HubFault, std::optional<int64_t>>> faults;
    for (const Section &fault : port.tables("fault"))
        faults.push_back(read_fault(fault));

    std::vector<std::pair<Nanos, HubFrame>> frames;
    for (const Section &frame : port.tables("frame"))
        frames.emplace_back(frame.milliseconds("at_ms").value_or(0), read_frame(frame));

    return [=]() -> std::unique_ptr<Peer> {
        auto hub = std::make_unique<HubPeer>();
        hub->misbehave(how);
        if (ack)
            hub->acknowledge(ack_delay, ack_payload, ack_port);
        hub->set_max_payload(max_payload);
        for (const auto &[number, make] : devices)
            hub->add_device(number, make());
        for (const auto &[number, fault, value] : faults)
            hub->add_fault(number, fault, value);
        for (const auto &[when, frame] : frames)
            hub->send_frame(when, frame);
        return hub;
    };
}

} // namespace sim
