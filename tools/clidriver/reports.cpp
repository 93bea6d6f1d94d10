#include "reports.h"

#include "number.h"

#include <cstdio>

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

std::string failure_message(const LineOutcome &outcome)
{
    const CallResult &result = outcome.result;
    return "expected status " + std::to_string(outcome.line->expected) + ", got " +
           (!result.called  ? std::string("no call")
            : result.status ? std::to_string(*result.status)
                            : "no status");
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

std::string junit_xml(const ScriptRun &run)
{
    const std::string suite = xml_escape(suite_name(run.source), true);
    const std::string counts = " tests=\"" + std::to_string(run.lines.size()) + "\" failures=\"" +
                               std::to_string(run.failed) + "\" errors=\"0\"";
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    xml += "<testsuites name=\"clidriver\"" + counts + " time=\"" + seconds(run.wall_ns) + "\">\n";
    xml += "  <testsuite name=\"" + suite + "\"" + counts + " skipped=\"0\" time=\"" + seconds(run.wall_ns) +
           "\">\n";
    xml += "    <properties>\n";
    xml += "      <property name=\"script\" value=\"" + xml_escape(run.source, true) + "\"/>\n";
    if (run.simulated_ns)
        xml += "      <property name=\"simulated_seconds\" value=\"" + seconds(*run.simulated_ns) + "\"/>\n";
    xml += "    </properties>\n";
    for (const LineOutcome &outcome : run.lines) {
        const std::string name =
            "line " + std::to_string(outcome.line->number) + ": " + outcome.line->command.display();
        xml += "    <testcase classname=\"" + suite + "\" name=\"" + xml_escape(name, true) + "\" time=\"" +
               seconds(outcome.result.wall_ns) + "\">\n";
        if (!outcome.passed) {
            const std::string message = xml_escape(failure_message(outcome), true);
            xml += "      <failure type=\"status\" message=\"" + message + "\">" + xml_escape(name, false) +
                   ": " + xml_escape(failure_message(outcome), false) + "</failure>\n";
        }
        if (run.captured) {
            xml += "      <system-out>" + xml_escape(outcome.result.out, false) + "</system-out>\n";
            xml += "      <system-err>" + xml_escape(outcome.result.err, false) + "</system-err>\n";
        }
        xml += "    </testcase>\n";
    }
    xml += "  </testsuite>\n</testsuites>\n";
    return xml;
}

std::string json_report(const ScriptRun &run)
{
    std::string json = "{\n";
    json += "  \"script\": " + json_string(run.source) + ",\n";
    json += "  \"lines\": " + std::to_string(run.lines.size()) + ",\n";
    json += "  \"passed\": " + std::to_string(run.passed) + ",\n";
    json += "  \"failed\": " + std::to_string(run.failed) + ",\n";
    json += "  \"wall_ns\": " + std::to_string(run.wall_ns) + ",\n";
    json += "  \"simulated_ns\": " + (run.simulated_ns ? std::to_string(*run.simulated_ns) : "null") + ",\n";
    json += "  \"results\": [";
    for (size_t i = 0; i < run.lines.size(); ++i) {
        const LineOutcome &outcome = run.lines[i];
        const CallResult &result = outcome.result;
        json += i == 0 ? "\n" : ",\n";
        json += "    {\"line\": " + std::to_string(outcome.line->number);
        json += ", \"command\": " + json_string(outcome.line->command.name);
        json += ", \"arguments\": [";
        for (size_t a = 0; a < outcome.line->command.words.size(); ++a)
            json += (a == 0 ? "" : ", ") + json_string(outcome.line->command.words[a]);
        json += "], \"expected\": " + std::to_string(outcome.line->expected);
        json += ", \"status\": " + (result.status ? std::to_string(*result.status) : "null");
        json += ", \"passed\": " + std::string(outcome.passed ? "true" : "false");
        json += ", \"wall_ns\": " + std::to_string(result.wall_ns);
        json +=
            ", \"simulated_ns\": " + (result.simulated_ns ? std::to_string(*result.simulated_ns) : "null");
        if (run.captured) {
            json += ", \"stdout\": " + json_string(result.out);
            json += ", \"stderr\": " + json_string(result.err);
        }
        json += "}";
    }
    json += run.lines.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return json;
}

} // namespace shell
