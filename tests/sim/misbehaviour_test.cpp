// The misbehaviour layer every simulated peer sends through: silence, garbage, a trickle, hang-ups,
// spoiled checks and oversize lengths of numbered messages, bytes that pass untouched, and the
// scenario keys that ask for them, read the same for every peer. The layer is driven through a
// toy peer of the test's own, whose protocol is simple enough to write its bytes here by hand.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "peripherals/message_peer.h"
#include "peripherals/scripted_peer.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;
using Mode = sim::Misbehaviour::Mode;

constexpr sim::Nanos kByte9600 = 10 * kSecond / 9600;

// The toy protocol: 0xAA, a length byte n, n payload bytes, and a check byte, the sum of every
// byte before it.
Bytes toy_message(const Bytes &payload)
{
    Bytes message = {0xAA, static_cast<uint8_t>(payload.size())};
    message.insert(message.end(), payload.begin(), payload.end());
    uint8_t sum = 0;
    for (const uint8_t byte : message)
        sum = static_cast<uint8_t>(sum + byte);
    message.push_back(sum);
    return message;
}

// Its hooks: the check inverted; the length 0xFF with the check made right again.
void spoil_toy_check(Bytes &message)
{
    message.back() = static_cast<uint8_t>(~message.back());
}

void claim_toy_oversize(Bytes &message)
{
    message[1] = 0xFF;
    uint8_t sum = 0;
    for (size_t i = 0; i + 1 < message.size(); ++i)
        sum = static_cast<uint8_t>(sum + message[i]);
    message.back() = sum;
}

const sim::Framing kToyFraming = {"a toy", spoil_toy_check, claim_toy_oversize};

// A line whose speed the test chooses.
class FixedLine : public sim::PortLine
{
  public:
    explicit FixedLine(unsigned baud) : baud_(baud) {}
    const std::string &path() const override { return path_; }
    unsigned baud() const override { return baud_; }
    bool open_by_product() const override { return true; }

  private:
    std::string path_ = "/dev/ttyS1";
    unsigned baud_;
};

// Answers every piece it hears with one toy message carrying it, at once; can send raw bytes.
class ToyPeer : public sim::MessagePeer
{
  public:
    ToyPeer() : MessagePeer(kToyFraming) {}
    void say(sim::Nanos at, const Bytes &payload) { send_message(at, toy_message(payload)); }
    void raw(sim::Nanos at, const Bytes &bytes) { send_raw(at, bytes); }
    std::vector<Bytes> heard;

  protected:
    void on_receive(const Bytes &bytes, sim::Nanos now) override
    {
        heard.push_back(bytes);
        say(now, bytes);
    }
};

struct Piece {
    sim::Nanos when;
    Bytes bytes;
    bool operator==(const Piece &other) const = default;
};

std::ostream &operator<<(std::ostream &out, const Piece &piece)
{
    out << piece.when << ":";
    for (const uint8_t byte : piece.bytes)
        out << " " << static_cast<int>(byte);
    return out;
}

// Everything the peer sends until `until`, as it is taken.
std::vector<Piece> sent_until(sim::Peer &peer, sim::Nanos until)
{
    std::vector<Piece> all;
    while (peer.next_send() <= until) {
        const sim::Nanos when = peer.next_send();
        const Bytes bytes = peer.take(when);
        if (!bytes.empty())
            all.push_back({when, bytes});
    }
    return all;
}

Bytes joined(const std::vector<Piece> &pieces)
{
    Bytes all;
    for (const Piece &piece : pieces)
        all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    return all;
}

class Layer : public ::testing::Test
{
  protected:
    void SetUp() override { peer.attach(&line); }
    FixedLine line{9600};
    ToyPeer peer;
};

TEST_F(Layer, AMessageGoesOutWholeAtTheLinesSpeed)
{
    peer.say(kSecond, {1, 2});
    const Bytes message = toy_message({1, 2});
    ASSERT_EQ(message, (Bytes{0xAA, 0x02, 0x01, 0x02, 0xAF}));
    EXPECT_EQ(sent_until(peer, 2 * kSecond), (std::vector<Piece>{{kSecond + 5 * kByte9600, message}}));
    EXPECT_EQ(peer.messages(), 1u);
}

TEST_F(Layer, SilenceHearsEverythingAndDropsEveryMessage)
{
    peer.misbehave({.mode = Mode::Silent});
    peer.receive({7}, 0);
    peer.say(0, {8});
    EXPECT_EQ(peer.heard, std::vector<Bytes>{{7}});
    EXPECT_EQ(peer.next_send(), sim::kNever);
    EXPECT_EQ(peer.messages(), 2u) << "dropped messages are counted";
}

TEST_F(Layer, GarbageReplacesTheStreamWithTheSameNoiseAtTheLinesSpeedFromTheStart)
{
    peer.misbehave({.mode = Mode::Garbage, .garbage_seed = 5});
    peer.receive({7}, 0);
    const std::vector<Piece> sent = sent_until(peer, kSecond);
    const sim::Nanos every = 16 * kByte9600;
    ASSERT_EQ(sent.size(), static_cast<size_t>(kSecond / every + 1));
    for (size_t n = 0; n < sent.size(); ++n) {
        EXPECT_EQ(sent[n].when, static_cast<sim::Nanos>(n) * every);
        EXPECT_EQ(sent[n].bytes.size(), 16u);
    }
    const Bytes noise = joined(sent);
    const Bytes answer = toy_message({7});
    EXPECT_EQ(std::search(noise.begin(), noise.end(), answer.begin(), answer.end()), noise.end())
        << "no message among the noise";

    ToyPeer again;
    again.attach(&line);
    again.misbehave({.mode = Mode::Garbage, .garbage_seed = 5});
    EXPECT_EQ(joined(sent_until(again, kSecond)), noise) << "the same seed, the same noise";
    ToyPeer other;
    other.attach(&line);
    other.misbehave({.mode = Mode::Garbage, .garbage_seed = 6});
    EXPECT_NE(joined(sent_until(other, kSecond)), noise);
}

TEST_F(Layer, GarbageComesAtThePaceAndInThePiecesAskedFor)
{
    peer.misbehave({.mode = Mode::Garbage, .garbage_every = 3 * kMillisecond, .garbage_chunk = 2});
    const std::vector<Piece> sent = sent_until(peer, 10 * kMillisecond);
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[3].when, 9 * kMillisecond);
    EXPECT_EQ(sent[3].bytes.size(), 2u);
}

TEST_F(Layer, ATrickleSendsEachByteAGapAfterTheOneBeforeAndNeverEarly)
{
    peer.misbehave({.mode = Mode::Trickle, .trickle_gap = 10 * kMillisecond});
    peer.say(0, {});                   // AA 00 AA: three bytes from 0
    peer.say(5 * kMillisecond, {});    // waits behind the first
    peer.say(200 * kMillisecond, {1}); // the line is free again: from its own time
    std::vector<Piece> expected;
    const Bytes first = toy_message({});
    for (size_t i = 0; i < 6; ++i)
        expected.push_back({static_cast<sim::Nanos>(i + 1) * 10 * kMillisecond, {first[i % 3]}});
    const Bytes third = toy_message({1});
    for (size_t i = 0; i < third.size(); ++i)
        expected.push_back(
            {200 * kMillisecond + static_cast<sim::Nanos>(i + 1) * 10 * kMillisecond, {third[i]}});
    EXPECT_EQ(sent_until(peer, kSecond), expected);
}

TEST_F(Layer, AHangUpAfterSoManyBytesHeardEndsEverything)
{
    peer.misbehave({.hang_up_after = 3});
    peer.receive({1, 2}, 0);
    EXPECT_FALSE(peer.hung_up());
    peer.receive({3}, kMillisecond);
    EXPECT_TRUE(peer.hung_up());
    EXPECT_EQ(peer.heard, (std::vector<Bytes>{{1, 2}})) << "the byte that ends it is not acted on";
    EXPECT_EQ(peer.next_send(), sim::kNever) << "what was still to go is gone";
    peer.receive({4}, 2 * kMillisecond);
    peer.raw(3 * kMillisecond, {9});
    EXPECT_EQ(peer.heard.size(), 1u);
    EXPECT_EQ(peer.next_send(), sim::kNever);
}

TEST_F(Layer, AHangUpAtATimeComesAtThatTime)
{
    peer.misbehave({.hang_up_at = 50 * kMillisecond});
    peer.say(100 * kMillisecond, {1});
    EXPECT_EQ(peer.next_send(), 50 * kMillisecond);
    EXPECT_TRUE(peer.take(50 * kMillisecond).empty());
    EXPECT_TRUE(peer.hung_up());
    EXPECT_EQ(peer.next_send(), sim::kNever);
}

TEST_F(Layer, TheNumberedMessagesGetABadCheckOrAnOversizeLengthThroughThePeersHooks)
{
    peer.misbehave({.bad_checksum = {2, 4}, .oversize = {3, 4}});
    for (uint8_t n = 1; n <= 5; ++n)
        peer.say(static_cast<sim::Nanos>(n) * kSecond, {n});
    const std::vector<Piece> sent = sent_until(peer, 10 * kSecond);
    ASSERT_EQ(sent.size(), 5u);
    EXPECT_EQ(sent[0].bytes, toy_message({1}));
    EXPECT_EQ(sent[1].bytes, (Bytes{0xAA, 0x01, 0x02, static_cast<uint8_t>(~0xAD)}));
    EXPECT_EQ(sent[2].bytes, (Bytes{0xAA, 0xFF, 0x03, 0xAC})) << "the length, with a right check";
    EXPECT_EQ(sent[3].bytes, (Bytes{0xAA, 0xFF, 0x04, static_cast<uint8_t>(~0xAD)}))
        << "the length first, then the check spoiled";
    EXPECT_EQ(sent[4].bytes, toy_message({5}));
}

TEST_F(Layer, DroppedMessagesCountTowardsTheNumbers)
{
    peer.misbehave({.mode = Mode::Silent});
    peer.say(0, {1});
    peer.say(0, {2});
    peer.misbehave({.bad_checksum = {3}});
    peer.say(0, {3});
    const Bytes sent = joined(sent_until(peer, kSecond));
    Bytes expected = toy_message({3});
    expected.back() = static_cast<uint8_t>(~expected.back());
    EXPECT_EQ(sent, expected);
}

TEST_F(Layer, RawBytesGoOutAsGivenWhateverTheMisbehaviour)
{
    for (const Mode mode : {Mode::Silent, Mode::Trickle}) {
        ToyPeer quiet;
        quiet.attach(&line);
        quiet.misbehave({.mode = mode, .bad_checksum = {1}});
        quiet.raw(0, {1, 2, 3});
        EXPECT_EQ(sent_until(quiet, kSecond), (std::vector<Piece>{{3 * kByte9600, {1, 2, 3}}}));
        EXPECT_EQ(quiet.messages(), 0u) << "raw bytes are no message";
    }
}

TEST(LayerOrder, AScriptedPeerMisbehavesWhateverOrderItWasToldThingsIn)
{
    sim::ScriptedPeer peer;
    peer.announce(100 * kMillisecond, {1, 2});
    peer.misbehave({.mode = Mode::Silent});
    EXPECT_TRUE(sent_until(peer, kSecond).empty()) << "the announcement went through the layer";

    sim::ScriptedPeer trickling;
    trickling.announce(0, {1, 2});
    trickling.misbehave({.mode = Mode::Trickle, .trickle_gap = 5 * kMillisecond});
    EXPECT_EQ(sent_until(trickling, kSecond),
              (std::vector<Piece>{{5 * kMillisecond, {1}}, {10 * kMillisecond, {2}}}));
}

// ---- The keys, the same for every peer ----------------------------------------------------------

struct PeerKind {
    const char *name;
    bool has_check;  // takes bad_checksum
    bool has_length; // takes oversize
};

void PrintTo(const PeerKind &kind, std::ostream *out)
{
    *out << kind.name;
}

class SharedKeys : public ::testing::TestWithParam<PeerKind>
{
};

TEST_P(SharedKeys, AreReadTheSameForEveryPeer)
{
    const std::string kind = GetParam().name;
    std::string text = "[ports.\"/dev/ttyC0\"]\npeer = \"" + kind +
                       "\"\nmode = \"trickle\"\ntrickle_gap_ms = 7\ngarbage_every_ms = 3.5\ngarbage_chunk = "
                       "5\ngarbage_seed = 9\nhang_up_after = 11\nhang_up_at_ms = 13\n";
    if (GetParam().has_check)
        text += "bad_checksum = [2, 4]\n";
    if (GetParam().has_length)
        text += "oversize = 3\n";
    const sim::Scenario read = sim::parse_scenario(text, "keys.toml", ".");
    const std::unique_ptr<sim::Peer> made = read.ports.at("/dev/ttyC0").make_peer();
    const auto *peer = dynamic_cast<const sim::MessagePeer *>(made.get());
    ASSERT_NE(peer, nullptr) << "every peer sends through the layer";
    const sim::Misbehaviour &how = peer->misbehaviour();
    EXPECT_EQ(how.mode, Mode::Trickle);
    EXPECT_EQ(how.trickle_gap, 7 * kMillisecond);
    EXPECT_EQ(how.garbage_every, 3 * kMillisecond + 500 * sim::kMicrosecond);
    EXPECT_EQ(how.garbage_chunk, 5u);
    EXPECT_EQ(how.garbage_seed, 9u);
    EXPECT_EQ(how.hang_up_after, 11u);
    EXPECT_EQ(how.hang_up_at, 13 * kMillisecond);
    EXPECT_EQ(how.bad_checksum, GetParam().has_check ? (std::vector<size_t>{2, 4}) : std::vector<size_t>{});
    EXPECT_EQ(how.oversize, GetParam().has_length ? std::vector<size_t>{3} : std::vector<size_t>{});

    const sim::Scenario plain =
        sim::parse_scenario("[ports.\"/dev/ttyC0\"]\npeer = \"" + kind + "\"\n", "keys.toml", ".");
    const std::unique_ptr<sim::Peer> normal = plain.ports.at("/dev/ttyC0").make_peer();
    const sim::Misbehaviour &none = dynamic_cast<const sim::MessagePeer &>(*normal).misbehaviour();
    EXPECT_EQ(none.mode, Mode::Normal);
    EXPECT_FALSE(none.garbage_every) << "noise at the line's speed unless told";
    EXPECT_EQ(none.hang_up_after, 0u);
    EXPECT_EQ(none.hang_up_at, sim::kNever);
}

TEST_P(SharedKeys, BadChecksumAndOversizeOnlyWhereThePeerHasAHook)
{
    const std::string head = "[ports.\"/dev/ttyC0\"]\npeer = \"" + std::string(GetParam().name) + "\"\n";
    const std::string check_error = clitest::scenario_error(head + "bad_checksum = 1\n", ".");
    const std::string length_error = clitest::scenario_error(head + "oversize = 1\n", ".");
    EXPECT_EQ(check_error.empty(), GetParam().has_check) << check_error;
    EXPECT_EQ(length_error.empty(), GetParam().has_length) << length_error;
}

INSTANTIATE_TEST_SUITE_P(Peers, SharedKeys,
                         ::testing::Values(PeerKind{"script", false, false}, PeerKind{"gps", true, false},
                                           PeerKind{"hub", true, true}, PeerKind{"box", true, true},
                                           PeerKind{"rfid", true, true}, PeerKind{"zigbee", true, true},
                                           PeerKind{"ir_lamp", false, false},
                                           PeerKind{"light_sensor", true, false}),
                         [](const auto &info) { return std::string(info.param.name); });

class SharedKeyMistakes : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(SharedKeyMistakes, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "."), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, SharedKeyMistakes,
    ::testing::Values(
        clitest::ScenarioMistake{
            "UnknownMode", "[ports.\"/dev/ttyS1\"]\npeer = \"gps\"\nmode = \"quiet\"\n",
            "bad.toml:3: ports./dev/ttyS1.mode: expected normal, silent, garbage or trickle"},
        clitest::ScenarioMistake{
            "NoGap", "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\ntrickle_gap_ms = 0\n",
            "bad.toml:3: ports./dev/ttyS1.trickle_gap_ms: expected a time in milliseconds "
            "above 0"},
        clitest::ScenarioMistake{"NoPause",
                                 "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\ngarbage_every_ms = 0\n",
                                 "bad.toml:3: ports./dev/ttyS1.garbage_every_ms: expected a time in "
                                 "milliseconds above 0"},
        clitest::ScenarioMistake{"NoiseTooLong",
                                 "[ports.\"/dev/ttyS1\"]\npeer = \"hub\"\ngarbage_chunk = 1025\n",
                                 "bad.toml:3: ports./dev/ttyS1.garbage_chunk: expected 1..1024"},
        clitest::ScenarioMistake{"SeedZero", "[ports.\"/dev/ttyS1\"]\npeer = \"box\"\ngarbage_seed = 0\n",
                                 "bad.toml:3: ports./dev/ttyS1.garbage_seed: expected 1..4294967295"},
        clitest::ScenarioMistake{
            "HangUpAfterNothing", "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\nhang_up_after = 0\n",
            "bad.toml:3: ports./dev/ttyS1.hang_up_after: expected a number of bytes, 1 or more"},
        clitest::ScenarioMistake{
            "HangUpBeforeBoot", "[ports.\"/dev/ttyS1\"]\npeer = \"gps\"\nhang_up_at_ms = -1\n",
            "bad.toml:3: ports./dev/ttyS1.hang_up_at_ms: expected a time in milliseconds, 0 or "
            "more"},
        clitest::ScenarioMistake{
            "MessageZero", "[ports.\"/dev/ttyS1\"]\npeer = \"hub\"\nbad_checksum = [1, 0]\n",
            "bad.toml:3: ports./dev/ttyS1.bad_checksum: expected the numbers of messages, from 1 "
            "(3 or [1, 3])"},
        clitest::ScenarioMistake{
            "MessageAsText", "[ports.\"/dev/ttyS1\"]\npeer = \"hub\"\noversize = \"2\"\n",
            "bad.toml:3: ports./dev/ttyS1.oversize: expected the numbers of messages, from 1 "
            "(3 or [1, 3])"},
        clitest::ScenarioMistake{
            "NoCheckToSpoil", "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\nbad_checksum = 1\n",
            "bad.toml:3: ports./dev/ttyS1.bad_checksum: a scripted peer sends no check to "
            "spoil"},
        clitest::ScenarioMistake{
            "BehindTheHubToo",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".rfid]\npeer = "
            "\"script\"\noversize = 1\n",
            "bad.toml:5: ports./dev/ttyC0.rfid.oversize: a scripted peer sends no length field "
            "to make too long"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
