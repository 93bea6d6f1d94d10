#include "peripherals/hub_toml.h"

#include <utility>

#include "peripherals/hub.h"

namespace sim
{
namespace
{

// The devices a scenario can hang behind the hub, by the name of their port's table.
constexpr std::pair<std::string_view, uint16_t> kDevicePorts[] = {
    {"gps", kHubPortGps},
    {"rfid", kHubPortRfid},
    {"zigbee", kHubPortZigbee},
};

constexpr std::pair<std::string_view, HubFault> kFaults[] = {
    {"bad_head", HubFault::BadHead},       {"bad_kind", HubFault::BadKind},
    {"wrong_port", HubFault::WrongPort},   {"bad_checksum", HubFault::BadChecksum},
    {"long_length", HubFault::LongLength}, {"truncate", HubFault::Truncate},
};

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
    port.only({"peer", "absent", "open_errno", "silent", "ack", "ack_delay_ms", "ack_payload",
               "ack_payload_text", "ack_port", "box_temperature", "max_payload", "gps", "rfid", "zigbee",
               "fault", "frame"});
    const bool silent = port.boolean("silent").value_or(false);
    const bool ack = port.boolean("ack").value_or(false);
    const Nanos ack_delay = port.milliseconds("ack_delay_ms").value_or(0);
    const std::vector<uint8_t> ack_payload =
        port.bytes_or_text("ack_payload").value_or(std::vector<uint8_t>{});
    std::optional<uint16_t> ack_port;
    if (auto value = port.integer_in("ack_port", 0, 0xFFFF))
        ack_port = static_cast<uint16_t>(*value);
    std::optional<uint8_t> box_temperature;
    if (auto value = port.integer_in("box_temperature", 0, 255))
        box_temperature = static_cast<uint8_t>(*value);
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
    for (const Section &fault : port.tables("fault")) {
        fault.only({"frame", "fault", "value"});
        const auto number = fault.integer("frame");
        if (!number || *number < 1)
            fault.fail("frame", "expected the number of the hub's frame to spoil, from 1");
        const auto name = fault.string("fault");
        std::optional<HubFault> which;
        for (const auto &[known, value] : kFaults)
            if (name && *name == known)
                which = value;
        if (!which)
            fault.fail("fault",
                       "expected bad_head, bad_kind, wrong_port, bad_checksum, long_length or truncate");
        faults.emplace_back(static_cast<size_t>(*number), *which, fault.integer("value"));
    }

    std::vector<std::pair<Nanos, HubFrame>> frames;
    for (const Section &frame : port.tables("frame"))
        frames.emplace_back(frame.milliseconds("at_ms").value_or(0), read_frame(frame));

    return [=]() -> std::unique_ptr<Peer> {
        auto hub = std::make_unique<HubPeer>();
        hub->set_silent(silent);
        if (ack)
            hub->acknowledge(ack_delay, ack_payload, ack_port);
        if (box_temperature)
            hub->set_box_temperature(*box_temperature);
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
