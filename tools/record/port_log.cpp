#include "port_log.h"

namespace record
{

std::string hex_bytes(const Bytes &bytes)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i != 0)
            text += ' ';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xF];
    }
    return text;
}

std::string port_log_text(const std::string &path, const Port &port)
{
    std::string text = "# " + path + " as the library used it\n";
    for (const PortEvent &event : port.events)
        text += sim::port_log_line(event) + "\n";
    return text;
}

std::string port_log_name(const std::string &path)
{
    std::string name = path.starts_with("/dev/") ? path.substr(5) : path;
    for (char &c : name)
        if (c == '/' || c == '\\' || c == ':' || static_cast<unsigned char>(c) < 0x20)
            c = '_';
    if (name.empty() || name == "." || name == "..")
        name = "port";
    return name + ".log";
}

} // namespace record
