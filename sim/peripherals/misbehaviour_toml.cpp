#include "peripherals/misbehaviour_toml.h"

#include <utility>

namespace sim
{
namespace
{

// Keys of the line itself, which every port table may hold whatever hangs on it.
constexpr std::string_view kLineKeys[] = {"peer", "absent", "open_errno"};

constexpr std::string_view kMisbehaviourKeys[] = {
    "mode",          "trickle_gap_ms", "garbage_every_ms", "garbage_chunk", "garbage_seed",
    "hang_up_after", "hang_up_at_ms",  "bad_checksum",     "oversize",
};

constexpr std::pair<std::string_view, Misbehaviour::Mode> kModes[] = {
    {"normal", Misbehaviour::Mode::Normal},
    {"silent", Misbehaviour::Mode::Silent},
    {"garbage", Misbehaviour::Mode::Garbage},
    {"trickle", Misbehaviour::Mode::Trickle},
};

// The longest piece of noise: one receive buffer of the camera.
constexpr int64_t kLongestNoise = 1024;

// `3` or `[1, 3]`: numbers of messages, counted from 1.
std::vector<size_t> message_numbers(const Section &port, std::string_view key)
{
    std::vector<size_t> numbers;
    const toml::node *node = port.raw().get(key);
    if (node == nullptr)
        return numbers;
    auto take = [&](const toml::node &item) {
        const auto number = item.value<int64_t>();
        if (!item.is_integer() || *number < 1)
            port.fail_at(item, key, "expected the numbers of messages, from 1 (3 or [1, 3])");
        numbers.push_back(static_cast<size_t>(*number));
    };
    if (const toml::array *array = node->as_array())
        for (const toml::node &item : *array)
            take(item);
    else
        take(*node);
    return numbers;
}

} // namespace

Misbehaviour read_misbehaviour(const Section &port, const Framing &framing,
                               std::initializer_list<std::string_view> own_keys)
{
    std::vector<std::string_view> allowed(std::begin(kLineKeys), std::end(kLineKeys));
    allowed.insert(allowed.end(), own_keys.begin(), own_keys.end());
    allowed.insert(allowed.end(), std::begin(kMisbehaviourKeys), std::end(kMisbehaviourKeys));
    port.only(allowed);

    Misbehaviour how;
    if (auto mode = port.string("mode")) {
        bool known = false;
        for (const auto &[name, value] : kModes)
            if (*mode == name) {
                how.mode = value;
                known = true;
            }
        if (!known)
            port.fail("mode", "expected normal, silent, garbage or trickle");
    }
    if (auto gap = port.milliseconds("trickle_gap_ms")) {
        if (*gap == 0)
            port.fail("trickle_gap_ms", "expected a time in milliseconds above 0");
        how.trickle_gap = *gap;
    }
    if (auto every = port.milliseconds("garbage_every_ms")) {
        if (*every == 0)
            port.fail("garbage_every_ms", "expected a time in milliseconds above 0");
        how.garbage_every = *every;
    }
    how.garbage_chunk = static_cast<size_t>(port.integer_in("garbage_chunk", 1, kLongestNoise).value_or(16));
    how.garbage_seed = static_cast<uint32_t>(port.integer_in("garbage_seed", 1, UINT32_MAX).value_or(1));
    if (auto after = port.integer("hang_up_after")) {
        if (*after < 1)
            port.fail("hang_up_after", "expected a number of bytes, 1 or more");
        how.hang_up_after = static_cast<size_t>(*after);
    }
    how.hang_up_at = port.milliseconds("hang_up_at_ms").value_or(kNever);
    how.bad_checksum = message_numbers(port, "bad_checksum");
    if (!how.bad_checksum.empty() && framing.spoil_check == nullptr)
        port.fail("bad_checksum", std::string(framing.peer) + " sends no check to spoil");
    how.oversize = message_numbers(port, "oversize");
    if (!how.oversize.empty() && framing.claim_oversize == nullptr)
        port.fail("oversize", std::string(framing.peer) + " sends no length field to make too long");
    return how;
}

} // namespace sim
