#include "peripherals/zigbee_toml.h"

#include <algorithm>

#include "peripherals/misbehaviour_toml.h"
#include "peripherals/zigbee.h"

namespace sim
{
namespace
{

// The highest radio channel of the 2.4 GHz band a sensor can be on; channels start at 11.
constexpr int64_t kLowestChannel = 11;
constexpr int64_t kHighestChannel = 26;

ZigbeeReport read_report(const Section &report)
{
    report.only({"at_ms", "temperature", "humidity", "pm", "version", "command", "data", "data_text", "head",
                 "data_type", "sensor_length", "closed", "wire", "wire_text"});
    const auto at = report.milliseconds("at_ms");
    if (!at)
        report.fail("at_ms", "a report needs the time it comes, after the sensor joined");

    // What it is: exactly one of a climate reading, a particulate reading, a version, a command
    // with its data, or raw bytes.
    const bool climate = report.raw().contains("temperature") || report.raw().contains("humidity");
    const bool pm = report.raw().contains("pm");
    const bool version = report.raw().contains("version");
    const bool command = report.raw().contains("command");
    const bool wire = report.raw().contains("wire") || report.raw().contains("wire_text");
    if (climate + pm + version + command + wire != 1)
        report.fail("at_ms", "a report is one of temperature and humidity, pm, version, command (with "
                             "data) or wire");
    if ((report.raw().contains("data") || report.raw().contains("data_text")) && !command)
        report.fail("data", "data goes with a command");

    ZigbeeReport result;
    if (climate) {
        const auto temperature = report.integer_in("temperature", 0, 0xFFFF);
        const auto humidity = report.integer_in("humidity", 0, 0xFFFF);
        if (!temperature || !humidity)
            report.fail(temperature ? "humidity" : "temperature",
                        "a climate report carries both temperature and humidity, in hundredths");
        result =
            ZigbeeReport::climate(*at, static_cast<uint16_t>(*temperature), static_cast<uint16_t>(*humidity));
    } else if (pm) {
        result =
            ZigbeeReport::particulate(*at, static_cast<uint32_t>(*report.integer_in("pm", 0, 0xFFFFFFFF)));
    } else if (version) {
        result = ZigbeeReport::version(*at, *report.string("version"));
    } else if (command) {
        result.at = *at;
        result.command = static_cast<uint8_t>(*report.integer_in("command", 0, 255));
        result.data = report.bytes_or_text("data").value_or(std::vector<uint8_t>{});
    } else {
        result.at = *at;
        result.wire = report.bytes_or_text("wire");
        if (result.wire->empty())
            report.fail("wire", "raw bytes to send, at least one");
    }
    for (std::string_view spoiler : {"head", "data_type", "sensor_length", "closed"})
        if (wire && report.raw().contains(spoiler))
            report.fail(spoiler, "raw bytes go out as they are; write the field wrong in them");
    if (auto head = report.integer_in("head", 0, 255))
        result.head = static_cast<uint8_t>(*head);
    if (auto type = report.integer_in("data_type", 0, 255))
        result.data_type = static_cast<uint8_t>(*type);
    if (auto length = report.integer_in("sensor_length", 0, 0xFFFF))
        result.sensor_length = static_cast<uint16_t>(*length);
    result.closed = report.boolean("closed").value_or(true);
    return result;
}

ZigbeeRefusal read_refusal(const Section &refuse)
{
    refuse.only({"type", "status"});
    const auto type = refuse.integer_in("type", 0, 0xFFFF);
    if (!type)
        refuse.fail("type", "a refusal needs the message type it refuses");
    ZigbeeRefusal refusal{static_cast<uint16_t>(*type), std::nullopt};
    if (auto status = refuse.integer_in("status", 0, 255))
        refusal.status = static_cast<uint8_t>(*status);
    return refusal;
}

} // namespace

MakePeer load_zigbee_peer(const Section &port)
{
    const Misbehaviour how = read_misbehaviour(port, ZigbeePeer::kFraming,
                                               {"status_replies", "sensor_key", "sensor_key_text",
                                                "sensor_channel", "sensor_address", "report", "refuse"});
    ZigbeeSetup setup;
    setup.status_replies = port.boolean("status_replies").value_or(false);
    if (auto key = port.bytes_or_text("sensor_key")) {
        if (key->size() != setup.sensor_key.size())
            port.fail(port.raw().contains("sensor_key") ? "sensor_key" : "sensor_key_text",
                      "a link key is 16 bytes");
        std::copy(key->begin(), key->end(), setup.sensor_key.begin());
    }
    if (auto channel = port.integer_in("sensor_channel", kLowestChannel, kHighestChannel))
        setup.sensor_channel = static_cast<unsigned>(*channel);
    if (auto address = port.integer_in("sensor_address", 0, 0xFFFF))
        setup.sensor_address = static_cast<uint16_t>(*address);
    for (const Section &report : port.tables("report"))
        setup.reports.push_back(read_report(report));
    for (const Section &refuse : port.tables("refuse")) {
        const ZigbeeRefusal refusal = read_refusal(refuse);
        for (const ZigbeeRefusal &earlier : setup.refusals)
            if (earlier.type == refusal.type)
                refuse.fail("type", "the coordinator refuses this type already");
        setup.refusals.push_back(refusal);
    }
    return [setup, how]() -> std::unique_ptr<Peer> {
        auto peer = std::make_unique<ZigbeePeer>(setup);
        peer->misbehave(how);
        return peer;
    };
}

} // namespace sim
