#include "peripherals/rfid_toml.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "peripherals/misbehaviour_toml.h"
#include "peripherals/rfid.h"

namespace sim
{
namespace
{

// "001A2BFF" or "00 1A 2B FF": the four bytes of a tag ID as the reader reports them.
std::array<uint8_t, 4> read_id(const Section &tag)
{
    const auto text = tag.string("id");
    if (!text)
        tag.fail("id", "a tag needs its ID, eight hexadecimal digits such as \"001A2BFF\"");
    std::string digits;
    for (const char c : *text)
        if (c != ' ')
            digits += c;
    const bool hex = digits.size() == 8 && std::all_of(digits.begin(), digits.end(),
                                                       [](unsigned char c) { return std::isxdigit(c) != 0; });
    if (!hex)
        tag.fail("id", "expected eight hexadecimal digits, such as \"001A2BFF\"");
    std::array<uint8_t, 4> id{};
    for (size_t i = 0; i < id.size(); ++i)
        id[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    return id;
}

RfidTag read_tag(const Section &tag)
{
    tag.only({"id", "at_ms", "repeat", "every_ms"});
    RfidTag result;
    result.id = read_id(tag);
    result.at = tag.milliseconds("at_ms").value_or(0);
    result.repeat = static_cast<size_t>(tag.integer_in("repeat", 0, 1000000).value_or(1));
    if (auto every = tag.milliseconds("every_ms")) {
        if (*every < kMillisecond)
            tag.fail("every_ms", "expected a time of 1 ms or more between two reports");
        result.every = *every;
    }
    return result;
}

RfidFrameAt read_frame(const Section &frame)
{
    frame.only({"at_ms", "bytes", "bytes_text"});
    auto bytes = frame.bytes_or_text("bytes");
    if (!bytes || bytes->empty())
        frame.fail("bytes", "a frame needs its bytes (bytes or bytes_text)");
    return RfidFrameAt{frame.milliseconds("at_ms").value_or(0), *bytes};
}

} // namespace

MakePeer load_rfid_peer(const Section &port)
{
    const Misbehaviour how =
        read_misbehaviour(port, RfidPeer::kFraming, {"inventory", "antenna", "acknowledge", "tag", "frame"});
    RfidSetup setup;
    if (auto inventory = port.string("inventory")) {
        if (*inventory == "on_open")
            setup.inventory = RfidInventory::OnOpen;
        else if (*inventory == "on_command")
            setup.inventory = RfidInventory::OnCommand;
        else
            port.fail("inventory", "expected on_open or on_command");
    }
    setup.antenna = static_cast<uint8_t>(port.integer_in("antenna", 0, 255).value_or(0x01));
    setup.acknowledge = port.boolean("acknowledge").value_or(false);
    for (const Section &tag : port.tables("tag"))
        setup.tags.push_back(read_tag(tag));
    for (const Section &frame : port.tables("frame"))
        setup.frames.push_back(read_frame(frame));
    return [setup, how]() -> std::unique_ptr<Peer> {
        auto reader = std::make_unique<RfidPeer>(setup);
        reader->misbehave(how);
        return reader;
    };
}

} // namespace sim
