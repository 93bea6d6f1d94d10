#include "reports.h"

#include "number.h"

#include <cstdio>
#include <ctime>

namespace shell
{
namespace
{

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Length of the valid UTF-8 sequence at the start of `text`, or 0 when it is not one (overlong
// forms, surrogates and code points above U+10FFFF included).
size_t sequence_length(std::string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;
    size_t length = 0;
    uint32_t code = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        code = lead & 0x07;
    } else {
        return 0;
    }
    if (text.size() < length)
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (byte(i) & 0x3F);
    }
    static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return 0;
    return length;
}

std::string xml_escape(std::string_view raw, bool attribute)
{
    const std::string text = valid_utf8(raw);
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += attribute ? "&quot;" : "\"";
            break;
        case '\r':
            result += "&#13;"; // kept: the camera's lines end in \r\n
            break;
        case '\n':
            result += attribute ? "&#10;" : "\n";
            break;
        case '\t':
            result += attribute ? "&#9;" : "\t";
            break;
        default:
            if (c < 0x20) // not a character XML 1.0 can carry, even as a reference
                result += kReplacement;
            else if (c == 0xEF && text.compare(i, 3, "\xEF\xBF\xBE") == 0) // U+FFFE, U+FFFF
                result += kReplacement, i += 2;
            else if (c == 0xEF && text.compare(i, 3, "\xEF\xBF\xBF") == 0)
                result += kReplacement, i += 2;
            else
                result += static_cast<char>(c);
        }
    }
    return result;
}

std::string json_string(std::string_view raw)
{
    // Control characters as \u00XX; everything else, UTF-8 included, as it stands.
    return quote_with_escapes(
        valid_utf8(raw), [](unsigned char byte) { return byte < 0x20; }, "\\u%04x");
}

std::string seconds(int64_t nanoseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.6f", static_cast<double>(nanoseconds) / 1e9);
    return text;
}

std::string suite_name(const std::string &source)
{
    std::string name = source.substr(source.find_last_of('/') + 1);
    if (name.size() > 4 && name.ends_with(".cli"))
        name.resize(name.size() - 4);
    return name;
}

std::string step_name(const LineOutcome &outcome)
{
    return "line " + std::to_string(outcome.line->number) + ": " + outcome.line->command.display();
}

// "2026-11-20T08:00:00": the time stamp JUnit viewers read (UTC, no zone).
std::string iso_time(int64_t millis)
{
    const time_t seconds = static_cast<time_t>(millis / 1000);
    struct tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return text;
}

std::string json_or_null(const std::optional<int64_t> &value)
{
    return value ? std::to_string(*value) : "null";
}

std::string json_text_or_null(const std::string &text)
{
    return text.empty() ? "null" : json_string(text);
}

// The limit results of a step that concern `name`.
std::vector<const LimitResult *> limits_on(const LineOutcome &outcome, const std::string &name)
{
    std::vector<const LimitResult *> found;
    for (const LimitResult &checked : outcome.verdict.limits)
        if (checked.limit->name == name)
            found.push_back(&checked);
    return found;
}

const char *measurement_outcome(const LineOutcome &outcome, const Measurement &measurement)
{
    for (const LimitResult *checked : limits_on(outcome, measurement.quantity.name))
        if (!checked->passed)
            return "FAIL";
    return measurement.present ? "PASS" : "UNSET";
}

std::string json_value(const Measurement &measurement)
{
    if (!measurement.present)
        return "null";
    if (measurement.quantity.list) {
        std::string items;
        for (const std::string &item : measurement.items)
            items += (items.empty() ? "" : ", ") + json_string(item);
        return "[" + items + "]";
    }
    if (measurement.quantity.kind == Kind::Integer && measurement.integer)
        return std::to_string(*measurement.integer);
    if (measurement.quantity.kind == Kind::Real && measurement.number) {
        char text[64];
        snprintf(text, sizeof text, "%.17g", *measurement.number);
        return text;
    }
    return json_string(measurement.text);
}

// Each measurement of a step in one line, for the JUnit report's system-out.
std::string measurement_lines(const LineOutcome &outcome)
{
    std::string text;
    for (const Measurement &measurement : outcome.result.measurements) {
        text += "measurement " + measurement.quantity.name + " = " + show(measurement);
        for (const LimitResult *checked : limits_on(outcome, measurement.quantity.name))
            text += ", limit " + checked->limit->written + (checked->passed ? ": pass" : ": FAIL");
        text += "\n";
    }
    return text;
}

} // namespace

std::string valid_utf8(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const size_t length = sequence_length(text);
        if (length == 0) {
            result += kReplacement;
            text.remove_prefix(1);
        } else {
            result.append(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
    return result;
}

std::string junit_xml(const ScriptRun &run, const RunInfo &info)
{
    const std::string suite = xml_escape(suite_name(run.source), true);
    const std::string counts = " tests=\"" + std::to_string(run.lines.size()) + "\" failures=\"" +
                               std::to_string(run.failed) + "\" errors=\"" + std::to_string(run.errors) +
                               "\" skipped=\"" + std::to_string(run.skipped) + "\"";
    const std::string time = " time=\"" + seconds(run.wall_ns) + "\"";
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    xml += "<testsuites name=\"clidriver\"" + counts + time + ">\n";
    xml += "  <testsuite name=\"" + suite + "\"" + counts + time + " timestamp=\"" + iso_time(run.start_ms) +
           "\" hostname=\"" + xml_escape(info.hostname.empty() ? "localhost" : info.hostname, true) + "\">\n";
    xml += "    <properties>\n";
    const auto property = [&](const char *name, const std::string &value) {
        if (!value.empty())
            xml += "      <property name=\"" + std::string(name) + "\" value=\"" + xml_escape(value, true) +
                   "\"/>\n";
    };
    property("dut_id", info.dut);
    property("station_id", info.station);
    property("operator", info.operator_name);
    property("outcome", outcome_name(run.outcome));
    property("script", run.source);
    property("scenario", info.scenario);
    property("camera", info.camera);
    property("product_type", info.product_type ? std::to_string(*info.product_type) : "");
    property("software_version", info.software_version);
    property("shell_version", info.shell_version);
    property("library_version", info.library_version);
    property("start_time", iso_time(run.start_ms) + "Z");
    property("end_time", iso_time(run.end_ms) + "Z");
    if (run.simulated_ns)
        property("simulated_seconds", seconds(*run.simulated_ns));
    xml += "    </properties>\n";
    for (const LineOutcome &outcome : run.lines) {
        const std::string name = step_name(outcome);
        xml += "    <testcase classname=\"" + suite + "\" name=\"" + xml_escape(name, true) + "\" time=\"" +
               seconds(outcome.result.wall_ns) + "\">\n";
        const std::string reason =
            outcome.run ? outcome.verdict.reason : "not run: the run ended before this step";
        const std::string message = xml_escape(reason, true);
        if (!outcome.run || outcome.verdict.outcome == Outcome::Skip)
            xml += "      <skipped message=\"" + message + "\"/>\n";
        else if (outcome.verdict.outcome == Outcome::Fail)
            xml += "      <failure type=\"" +
                   std::string(outcome.result.status.value_or(0) != outcome.line->expected ? "status"
                                                                                           : "limit") +
                   "\" message=\"" + message + "\">" + xml_escape(name + ": " + reason, false) +
                   "</failure>\n";
        else if (outcome.verdict.outcome == Outcome::Error)
            xml += "      <error type=\"error\" message=\"" + message + "\">" +
                   xml_escape(name + ": " + reason, false) + "</error>\n";
        if (outcome.run) {
            xml += "      <system-out>" + xml_escape(measurement_lines(outcome) + outcome.result.out, false) +
                   "</system-out>\n";
            if (run.captured)
                xml += "      <system-err>" + xml_escape(outcome.result.err, false) + "</system-err>\n";
        }
        xml += "    </testcase>\n";
    }
    xml += "  </testsuite>\n</testsuites>\n";
    return xml;
}

std::string json_report(const ScriptRun &run, const RunInfo &info)
{
    std::string json = "{\n";
    json += "  \"format\": \"clidriver-station-record/1\",\n";
    json += "  \"dut_id\": " + json_string(info.dut) + ",\n";
    json += "  \"station_id\": " + json_string(info.station) + ",\n";
    json += "  \"operator\": " + json_string(info.operator_name) + ",\n";
    json += "  \"start_time_millis\": " + std::to_string(run.start_ms) + ",\n";
    json += "  \"end_time_millis\": " + std::to_string(run.end_ms) + ",\n";
    json += "  \"outcome\": \"" + std::string(outcome_name(run.outcome)) + "\",\n";
    json += "  \"metadata\": {";
    json += "\"script\": " + json_string(run.source);
    json += ", \"scenario\": " + json_text_or_null(info.scenario);
    json += ", \"camera\": " + json_text_or_null(info.camera);
    json += ", \"product_type\": " +
            (info.product_type ? std::to_string(*info.product_type) : std::string("null"));
    json += ", \"software_version\": " + json_text_or_null(info.software_version);
    json += ", \"shell_version\": " + json_string(info.shell_version);
    json += ", \"library_version\": " + json_text_or_null(info.library_version);
    json += ", \"hostname\": " + json_string(info.hostname);
    json += ", \"simulated\": " + std::string(run.simulated_ns ? "true" : "false") + "},\n";
    json += "  \"counts\": {\"steps\": " + std::to_string(run.lines.size()) +
            ", \"passed\": " + std::to_string(run.passed) + ", \"failed\": " + std::to_string(run.failed) +
            ", \"errors\": " + std::to_string(run.errors) + ", \"skipped\": " + std::to_string(run.skipped) +
            "},\n";
    json += "  \"wall_ns\": " + std::to_string(run.wall_ns) + ",\n";
    json += "  \"simulated_ns\": " + json_or_null(run.simulated_ns) + ",\n";
    json += "  \"simulated_start_ns\": " + json_or_null(run.simulated_start_ns) + ",\n";
    json += "  \"simulated_end_ns\": " + json_or_null(run.simulated_end_ns) + ",\n";
    json += "  \"phases\": [";
    for (size_t i = 0; i < run.lines.size(); ++i) {
        const LineOutcome &outcome = run.lines[i];
        const CallResult &result = outcome.result;
        const ScriptLine &line = *outcome.line;
        json += i == 0 ? "\n" : ",\n";
        json += "    {\"name\": " + json_string(step_name(outcome));
        json += ", \"line\": " + std::to_string(line.number);
        json += ", \"command\": " + json_string(line.command.name);
        json += ", \"arguments\": [";
        for (size_t a = 0; a < line.command.words.size(); ++a)
            json += (a == 0 ? "" : ", ") + json_string(line.command.words[a]);
        json += "], \"expected_status\": " + std::to_string(line.expected);
        json += ", \"status\": " + (outcome.run && result.called ? json_or_null(result.status) : "null");
        json += ", \"run\": " + std::string(outcome.run ? "true" : "false");
        json += ", \"outcome\": \"" +
                std::string(outcome.run ? outcome_name(outcome.verdict.outcome) : "SKIP") + "\"";
        json += ", \"outcome_details\": " +
                json_string(outcome.run ? outcome.verdict.reason : "not run: the run ended before this step");
        json += ", \"attempts\": " + std::to_string(outcome.attempts);
        json += ", \"retries\": " + std::to_string(line.options.retries);
        if (line.options.timeout_s) {
            char limit[32];
            snprintf(limit, sizeof limit, "%.17g", *line.options.timeout_s);
            json += ", \"time_limit_s\": " + std::string(limit);
        } else {
            json += ", \"time_limit_s\": null";
        }
        json += ", \"start_time_millis\": " + (outcome.run ? std::to_string(outcome.start_ms) : "null");
        json += ", \"end_time_millis\": " + (outcome.run ? std::to_string(outcome.end_ms) : "null");
        json += ", \"wall_ns\": " + std::to_string(result.wall_ns);
        json += ", \"simulated_start_ns\": " + json_or_null(outcome.simulated_start_ns);
        json += ", \"simulated_end_ns\": " + json_or_null(outcome.simulated_end_ns);
        json += ", \"measurements\": {";
        // A measurement a limit names but the run never reached is listed too, unset.
        std::vector<Measurement> measurements = result.measurements;
        if (!outcome.run)
            for (const Quantity &quantity : line.measures)
                measurements.push_back(Measurement{quantity});
        for (size_t m = 0; m < measurements.size(); ++m) {
            const Measurement &measurement = measurements[m];
            json += (m == 0 ? "" : ", ") + json_string(measurement.quantity.name) + ": {";
            json += "\"name\": " + json_string(measurement.quantity.name);
            json += ", \"kind\": \"" + std::string(kind_name(measurement.quantity.kind)) + "\"";
            json += ", \"units\": " + json_string(measurement.quantity.unit);
            json += ", \"measured_value\": " + json_value(measurement);
            json += ", \"outcome\": \"" + std::string(measurement_outcome(outcome, measurement)) + "\"";
            json += ", \"validators\": [";
            const auto limits = limits_on(outcome, measurement.quantity.name);
            std::vector<std::string> written;
            for (const Limit &limit : line.options.limits)
                if (limit.name == measurement.quantity.name)
                    written.push_back(limit.name + " " + limit.written);
            for (size_t v = 0; v < written.size(); ++v)
                json += (v == 0 ? "" : ", ") + json_string(written[v]);
            json += "]}";
        }
        json += "}";
        if (run.captured && outcome.run) {
            json += ", \"stdout\": " + json_string(result.out);
            json += ", \"stderr\": " + json_string(result.err);
        }
        json += "}";
    }
    json += run.lines.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return json;
}

} // namespace shell
