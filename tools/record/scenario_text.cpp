#include "scenario_text.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <functional>

#include "port_log.h"

namespace record
{

namespace
{

// Length of the UTF-8 sequence at text[at], 0 when the bytes there are not one.
size_t utf8_length(std::string_view text, size_t at)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    size_t length = 0;
    uint32_t point = 0;
    if (lead < 0x80)
        return 1;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        point = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        point = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        point = lead & 0x07;
    } else {
        return 0;
    }
    if (at + length > text.size())
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
        point = (point << 6) | (byte(at + i) & 0x3F);
    }
    // Overlong forms, surrogates and points past U+10FFFF are not UTF-8.
    static constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kLeast[length] || (point >= 0xD800 && point <= 0xDFFF) || point > 0x10FFFF)
        return 0;
    return length;
}

std::string number(int64_t value)
{
    return std::to_string(value);
}

std::string hex_number(uint64_t value)
{
    char text[24];
    snprintf(text, sizeof text, "0x%" PRIX64, value);
    return text;
}

// Long lists (clock reads, sleeps) a few values to a line, so that the file stays readable.
template <typename T, typename Show> std::string array(const std::vector<T> &values, Show show)
{
    if (values.empty())
        return "[]";
    std::string text = "[";
    for (size_t i = 0; i < values.size(); ++i) {
        if (i != 0)
            text += i % 8 == 0 ? ",\n    " : ", ";
        text += show(values[i]);
    }
    return text + "]";
}

std::string bytes_value(const Bytes &bytes)
{
    return "\"" + hex_bytes(bytes) + "\"";
}

// Content of a file or a command's output: inline when it is text a TOML string holds, else a
// side file named by `from`.
void content_keys(std::string &out, Rendered &rendered, const char *key, const Bytes &bytes,
                  const std::string &side_name)
{
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    if (valid_utf8(text) && text.find('\0') == std::string_view::npos) {
        out += std::string(key) + " = " + toml_string(text) + "\n";
        return;
    }
    rendered.side_files.push_back({side_name, bytes});
    out += "from = " + toml_string(side_name) + "\n";
}

std::string side_name(const std::string &folder, const std::string &what, size_t index)
{
    std::string name;
    for (char c : what)
        name += (isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-') ? c : '_';
    if (name.size() > 64)
        name.resize(64);
    return folder + "/" + std::to_string(index) + "-" + name;
}

// Opens that did not all end alike (a driver busy once, then free) are written one by one; the
// standing answer after them is that of the last.
void open_outcomes(std::string &out, const std::vector<int> &opens)
{
    if (std::adjacent_find(opens.begin(), opens.end(), std::not_equal_to<>()) == opens.end())
        return;
    out += "opens = [";
    for (size_t i = 0; i < opens.size(); ++i)
        out += (i == 0 ? "" : ", ") + (opens[i] == 0 ? std::string("0") : errno_value(opens[i]));
    out += "]\n";
}

void open_failure(std::string &out, int error)
{
    if (error == ENOENT)
        out += "absent = true\n";
    else
        out += "open_errno = " + errno_value(error) + "\n";
}

} // namespace

bool valid_utf8(std::string_view text)
{
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8_length(text, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

std::string toml_string(std::string_view text)
{
    std::string out = "\"";
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8_length(text, at);
        if (length == 0) {
            out += "\\uFFFD";
            ++at;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[at]);
        if (length > 1) {
            out.append(text.substr(at, length));
        } else if (c == '"') {
            out += "\\\"";
        } else if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            char escape[8];
            snprintf(escape, sizeof escape, "\\u%04X", c);
            out += escape;
        } else {
            out += static_cast<char>(c);
        }
        at += length;
    }
    return out + "\"";
}

std::string errno_value(int error)
{
    const char *name = strerrorname_np(error);
    if (name != nullptr)
        return toml_string(name);
    return number(error);
}

Rendered render(const Recording &recording, const std::string &capture_name)
{
    Rendered rendered;
    std::string &out = rendered.scenario;
    out += "# A camera as clidriver-camera --record saw it: replay with clidriver --scenario FILE\n\n";

    out += "[camera]\n";
    out += "name = " + toml_string("recorded: " + recording.camera_name) + "\n";
    out += "boot_epoch = " + number(recording.boot_epoch) + "\n";

    if (!recording.startup_toml.empty()) {
        out += "\n[startup]\n" + recording.startup_toml;
        if (recording.startup_toml.back() != '\n')
            out += "\n";
    }

    out += "\n[recording]\n";
    out += "recorder = " + toml_string(recording.recorder) + "\n";
    out += "clock_us = " + array(recording.clock_us, number) + "\n";
    out += "sleeps_ns = " +
           array(recording.sleeps_ns,
                 [](const std::pair<int64_t, int64_t> &sleep) {
                     return "[" + number(sleep.first) + ", " + number(sleep.second) + "]";
                 }) +
           "\n";

    size_t side_index = 0;
    for (const auto &[path, file] : recording.files) {
        out += "\n[files." + toml_string(path) + "]\n";
        if (file.open_errno != 0)
            open_failure(out, file.open_errno);
        else
            content_keys(out, rendered, "content", file.content, side_name("files", path, ++side_index));
        open_outcomes(out, file.opens);
    }

    for (const auto &[command, seen] : recording.commands) {
        out += "\n[commands." + toml_string(command) + "]\n";
        if (seen.fail_errno != 0) {
            out += "fail = " + errno_value(seen.fail_errno) + "\n";
            continue;
        }
        content_keys(out, rendered, "output", seen.output, side_name("commands", command, ++side_index));
        out += "status = " + number(seen.exit_code) + "\n";
    }

    for (const auto &[path, device] : recording.devices) {
        out += "\n[devices." + toml_string(path) + "]\n";
        open_outcomes(out, device.opens);
        if (!device.opened) {
            open_failure(out, device.first_open_errno);
            continue;
        }
        for (const Request &request : device.requests) {
            out += "[[devices." + toml_string(path) + ".recorded]]\n";
            out += "number = " + hex_number(request.number) + "\n";
            if (request.value)
                out += "value = " + number(static_cast<int64_t>(*request.value)) + "\n";
            if (request.sent)
                out += "sent = " + bytes_value(*request.sent) + "\n";
            out += "result = " + number(request.result) + "\n";
            if (request.error != 0)
                out += "errno = " + errno_value(request.error) + "\n";
            if (request.bytes)
                out += "bytes = " + bytes_value(*request.bytes) + "\n";
        }
    }

    for (const auto &[path, port] : recording.ports) {
        out += "\n[ports." + toml_string(path) + "]\n";
        open_outcomes(out, port.opens);
        if (!port.opened) {
            open_failure(out, port.first_open_errno);
            continue;
        }
        const std::string log = "ports/" + port_log_name(path);
        const std::string text = port_log_text(path, port);
        rendered.side_files.push_back({log, Bytes(text.begin(), text.end())});
        out += "peer = \"recording\"\n";
        out += "log = " + toml_string(log) + "\n";
    }

    const Capture &wifi = recording.wifi;
    if (wifi.opened || wifi.open_error || !wifi.channel_errors.empty() || wifi.socket_errno != 0) {
        out += "\n[wifi]\n";
        if (!wifi.interface.empty() && wifi.interface != "wlan0")
            out += "interface = " + toml_string(wifi.interface) + "\n";
        if (wifi.opened) {
            out += "capture = " + toml_string(capture_name) + "\n";
            out += "arrival = \"stamped\"\n";
        }
        if (wifi.open_error)
            out += "open_error = " + toml_string(*wifi.open_error) + "\n";
        if (wifi.any_dispatch_failed)
            out +=
                "dispatch_errors = " + array(wifi.dispatch_results, [](int r) { return number(r); }) + "\n";
        if (!wifi.channel_errors.empty())
            out +=
                "channel_errors = " +
                array(wifi.channel_errors, [](int e) { return e == 0 ? std::string("0") : errno_value(e); }) +
                "\n";
        if (wifi.socket_errno != 0)
            out += "socket_errno = " + errno_value(wifi.socket_errno) + "\n";
    }

    for (const auto &[operation, calls] : recording.platform) {
        for (const PlatformCall &call : calls) {
            out += "\n[[platform." + operation + ".recorded]]\n";
            out += "args = " + array(call.args, number) + "\n";
            if (!call.texts.empty())
                out += "texts = " + array(call.texts, [](const std::string &t) { return toml_string(t); }) +
                       "\n";
            if (call.result)
                out += "result = " + number(*call.result) + "\n";
            if (call.sent)
                out += "sent = " + bytes_value(*call.sent) + "\n";
            if (call.bytes)
                out += "bytes = " + bytes_value(*call.bytes) + "\n";
        }
    }
    return rendered;
}

} // namespace record
