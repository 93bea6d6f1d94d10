#include "peripherals/gps_toml.h"

#include "peripherals/gps.h"
#include "peripherals/misbehaviour_toml.h"

namespace sim
{
namespace
{

// The longest piece a UART or a hub hands over at once: one receive buffer of the camera.
constexpr int64_t kLongestChunk = 1024;

std::vector<std::string> sentences(const Section &section, std::string_view key)
{
    std::vector<std::string> result;
    const toml::node *node = section.raw().get(key);
    if (node == nullptr)
        return result;
    const toml::array *array = node->as_array();
    if (array == nullptr)
        section.fail_at(*node, key, "expected an array of sentences, each a string");
    for (const toml::node &item : *array) {
        if (!item.is_string())
            section.fail_at(item, key, "expected an array of sentences, each a string");
        result.push_back(*item.value<std::string>());
    }
    return result;
}

} // namespace

MakePeer load_gps_peer(const Section &port)
{
    const Misbehaviour how = read_misbehaviour(port, GpsPeer::kFraming,
                                               {"log", "sentences", "follow_mode", "acknowledge",
                                                "cold_start_ms", "cold_sentences", "baud", "chunk"});
    GpsSetup setup;
    if (port.raw().contains("log") && port.raw().contains("sentences"))
        port.fail("sentences", "a receiver plays either a log or sentences, not both");
    if (auto log = port.file_text("log")) {
        setup.sentences = GpsPeer::read_log(*log);
    } else {
        setup.sentences = sentences(port, "sentences");
    }
    setup.cold_sentences = sentences(port, "cold_sentences");
    setup.cold_start = port.milliseconds("cold_start_ms").value_or(0);
    if (auto baud = port.integer("baud")) {
        if (*baud <= 0 || *baud > 4000000)
            port.fail("baud", "expected a speed in bits per second, such as 9600");
        setup.baud = static_cast<unsigned>(*baud);
    }
    if (auto chunk = port.integer("chunk")) {
        if (*chunk < 1 || *chunk > kLongestChunk)
            port.fail("chunk", "expected 1.." + std::to_string(kLongestChunk) + " bytes");
        setup.chunk = static_cast<size_t>(*chunk);
    }
    setup.follow_mode = port.boolean("follow_mode").value_or(true);
    setup.acknowledge = port.boolean("acknowledge").value_or(true);
    return [setup, how]() -> std::unique_ptr<Peer> {
        auto gps = std::make_unique<GpsPeer>(setup);
        gps->misbehave(how);
        return gps;
    };
}

} // namespace sim
