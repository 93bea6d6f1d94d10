// The simulated GPS receiver: its stream of sentences paced from boot at its own speed, the logs
// it plays, its answers to the MediaTek sentences and the talkers it then uses, its misbehaviour
// (silence, a cold start, noise, another speed than the line), and its scenario keys. Most cases
// drive the peer directly on a line of known speed; the last ones go through a real pty, straight
// and behind the hub, as the product would.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "camera_line.h"
#include "core/clock.h"
#include "devices/serial.h"
#include "nmea_sentence.h"
#include "peripherals/gps.h"
#include "peripherals/hub.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;

constexpr const char *kLink = "/dev/ttyC0";

// One byte on a 9600 baud line: ten bits, whole nanoseconds.
constexpr sim::Nanos kByte9600 = 10 * kSecond / 9600;
// One piece of 16 bytes at 9600 baud.
constexpr sim::Nanos kPiece = 16 * kByte9600;

// A line whose speed the test chooses.
class FixedLine : public sim::PortLine
{
  public:
    explicit FixedLine(unsigned baud) : baud_(baud) {}
    const std::string &path() const override { return path_; }
    unsigned baud() const override { return baud_; }
    bool open_by_product() const override { return true; }

  private:
    std::string path_ = kLink;
    unsigned baud_;
};

std::string as_text(const Bytes &bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

Bytes as_bytes(const std::string &text)
{
    return Bytes(text.begin(), text.end());
}

// `sentences`, each with CR LF, repeated until at least `bytes` long.
std::string looped(const std::vector<std::string> &sentences, size_t bytes)
{
    std::string stream;
    while (stream.size() < bytes)
        for (const std::string &sentence : sentences)
            stream += sentence + "\r\n";
    return stream;
}

struct Piece {
    sim::Nanos when;
    std::string bytes;
};

// What the peer sends until `until`, piece by piece.
std::vector<Piece> pieces(sim::Peer &peer, sim::Nanos until)
{
    std::vector<Piece> all;
    while (peer.next_send() <= until) {
        const sim::Nanos when = peer.next_send();
        all.push_back({when, as_text(peer.take(when))});
    }
    return all;
}

std::string joined(const std::vector<Piece> &all)
{
    std::string text;
    for (const Piece &piece : all)
        text += piece.bytes;
    return text;
}

class GpsReceiver : public ::testing::Test
{
  protected:
    std::unique_ptr<sim::GpsPeer> make(sim::GpsSetup setup, unsigned line_baud = 9600)
    {
        line_ = std::make_unique<FixedLine>(line_baud);
        auto peer = std::make_unique<sim::GpsPeer>(std::move(setup));
        peer->attach(line_.get());
        return peer;
    }
    std::unique_ptr<FixedLine> line_;
};

const std::vector<std::string> kEpoch = {
    "$GPGGA,202640.000,4404.1306,N,12118.8515,W,2,10,0.98,1127.7,M,-19.6,M,0000,0000*6C",
    "$GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73",
};

// ---- Pacing -------------------------------------------------------------------------------------

TEST_F(GpsReceiver, StreamsItsSentencesBackToBackInSixteenBytePiecesAtNineHundredSixtyBytesASecond)
{
    auto gps = make({.sentences = kEpoch});
    EXPECT_EQ(gps->piece_time(), kPiece);
    const std::vector<Piece> sent = pieces(*gps, kSecond);
    ASSERT_EQ(sent.size(), 60u) << "960 bytes in the first simulated second";
    for (size_t n = 0; n < sent.size(); ++n) {
        EXPECT_EQ(sent[n].when, static_cast<sim::Nanos>(n + 1) * kPiece) << "piece " << n;
        EXPECT_EQ(sent[n].bytes.size(), 16u);
    }
    EXPECT_EQ(joined(sent), looped(kEpoch, 960).substr(0, 960)) << "in order, CR LF each, round again";
}

TEST_F(GpsReceiver, PiecesFollowItsOwnSpeedAndSize)
{
    auto gps = make({.sentences = kEpoch, .baud = 4800, .chunk = 100}, 4800);
    const sim::Nanos piece = 100 * (10 * kSecond / 4800);
    EXPECT_EQ(gps->piece_time(), piece);
    const std::vector<Piece> sent = pieces(*gps, 3 * piece);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2].when, 3 * piece);
    EXPECT_EQ(joined(sent), looped(kEpoch, 300).substr(0, 300));
}

TEST_F(GpsReceiver, ItsSentencesStartWithTheFirstPieceAfterTheLineIsFirstUsed)
{
    sim::clock().advance(1500 * kMillisecond); // the camera has been up for a while
    auto gps = make({.sentences = kEpoch});
    const std::vector<Piece> sent = pieces(*gps, 2 * kSecond);
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent[0].when, (1500 * kMillisecond / kPiece + 1) * kPiece) << "on the grid from boot";
    EXPECT_EQ(sent[0].bytes, kEpoch[0].substr(0, 16)) << "from its first sentence";
}

TEST_F(GpsReceiver, WithNothingToPlayItSaysNothingUntilAsked)
{
    auto gps = make({});
    EXPECT_EQ(gps->next_send(), sim::kNever);
    gps->receive(as_bytes("$PMTK000*32\r\n"), 5 * kSecond + 1);
    EXPECT_EQ(gps->next_send(), (5 * kSecond / kPiece + 1) * kPiece) << "the next piece after the question";
    EXPECT_EQ(joined(pieces(*gps, 6 * kSecond)), "$PMTK001,0,3*30\r\n");
    EXPECT_EQ(gps->next_send(), sim::kNever);
}

// ---- Logs ---------------------------------------------------------------------------------------

TEST(GpsLog, CommentsAndEmptyLinesAreSkippedLineEndsRemovedJunkKept)
{
    const std::string log = "# Name: test\r\n#\r\n$GPRMC,1*00\r\n\r\n{\"class\":\"TPV\"}\n,5,6*00\n$GPGGA,2\n"
                            "   \n# late comment\n$GPGLL,3*00\r\r\n$LAST";
    EXPECT_EQ(sim::GpsPeer::read_log(log),
              (std::vector<std::string>{"$GPRMC,1*00", "{\"class\":\"TPV\"}", ",5,6*00", "$GPGGA,2", "   ",
                                        "$GPGLL,3*00", "$LAST"}));
    EXPECT_TRUE(sim::GpsPeer::read_log("").empty());
    EXPECT_TRUE(sim::GpsPeer::read_log("# only\n# comments\n").empty());
}

// Every log of the corpus: what the receiver plays is the log's lines that are not comments, in
// order, each without its line end (counted here by the test's own reading of the file).
class CorpusLog : public ::testing::TestWithParam<const char *>
{
};

TEST_P(CorpusLog, IsPlayedLineForLineWithoutItsComments)
{
    const std::string path = std::string(CLIDRIVER_SOURCE_DIR) + "/tests/data/nmea/" + GetParam() + ".log";
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file.good()) << path;
    std::stringstream whole;
    whole << file.rdbuf();
    const std::string text = whole.str();
    std::vector<std::string> expected;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        while (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line.front() != '#')
            expected.push_back(line);
    }
    const std::vector<std::string> played = sim::GpsPeer::read_log(text);
    EXPECT_EQ(played, expected);
    ASSERT_FALSE(played.empty());
    for (const std::string &sentence : played)
        EXPECT_EQ(sentence.find_first_of("\r\n"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Nmea, CorpusLog,
                         ::testing::Values("april6_2019", "beidou-bd", "beidou-gb", "bt451", "bu353-glonass",
                                           "bu353s4", "ch-4711", "eXplorist110",
                                           "gp-320fw-2019-04-07-coldboot", "gps-360", "humminbird-M37",
                                           "magellan-ec10", "mt3339", "mtk-3301", "mtk-3329", "nd-1005",
                                           "neo-m8n", "quectel-L70", "skytraq-PX1172RH_DS", "skytraq-fixB",
                                           "sounder", "telit-pls83-w", "ublox-lea-5q", "ublox-zed-f9p-nmea"),
                         [](const auto &info) {
                             std::string name = info.param;
                             for (char &c : name)
                                 if (c == '-' || c == '.')
                                     c = '_';
                             return name;
                         });

TEST(GpsLog, TheFirstSentenceOfARealLogIsItsFirstLineAfterTheHeader)
{
    std::ifstream file(std::string(CLIDRIVER_SOURCE_DIR) + "/tests/data/nmea/nd-1005.log", std::ios::binary);
    std::stringstream whole;
    whole << file.rdbuf();
    const auto played = sim::GpsPeer::read_log(whole.str());
    ASSERT_FALSE(played.empty());
    EXPECT_EQ(played.front(), "$GPGGA,110518.000,5709.8067,N,00207.2822,W,1,08,1.0,59.3,M,48.2,M,,0000*77");
}

// ---- MediaTek sentences -------------------------------------------------------------------------

TEST_F(GpsReceiver, AcknowledgesTheTestPacketAtTheNextSentenceBoundary)
{
    auto gps = make({.sentences = kEpoch});
    std::string before = joined(pieces(*gps, 2 * kPiece)); // 32 bytes: inside the GGA sentence
    gps->receive(as_bytes("$PMTK000*32\r\n"), 2 * kPiece + 1);
    const std::string after = joined(pieces(*gps, 20 * kPiece));
    const std::string stream = before + after;
    const std::string expected = kEpoch[0] + "\r\n" + "$PMTK001,0,3*30\r\n" + kEpoch[1] + "\r\n";
    EXPECT_EQ(stream.substr(0, expected.size()), expected);
    EXPECT_EQ(gps->heard(), std::vector<std::string>{"$PMTK000*32"});
    EXPECT_EQ(gps->acknowledged(), std::vector<std::string>{"$PMTK001,0,3*30"});
}

struct ModeRow {
    const char *name;
    std::string command; // as the camera writes it
    std::string ack;
    std::string talker;
};

// Rows show by name in test listings.
void PrintTo(const ModeRow &row, std::ostream *out)
{
    *out << row.name;
}

class GpsSearchMode : public GpsReceiver, public ::testing::WithParamInterface<ModeRow>
{
};

// A receiver of every system: sentences of four talkers, one proprietary, one with a wrong checksum.
const std::vector<std::string> kMixed = {
    "$GNRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*6D",
    "$GPGGA,202640.000,4404.1306,N,12118.8515,W,2,10,0.98,1127.7,M,-19.6,M,0000,0000*6C",
    "$BDGSV,1,1,01,01,45,120,40*5E",
    "$PSTI,030,1,2*00",
    "$GLGSV,1,1,00*65",
    "$GPZDA,202640.000,13,04,2015,,*00",
};

TEST_P(GpsSearchMode, AcknowledgesAndRenamesItsSentencesWithRightChecksums)
{
    const ModeRow &row = GetParam();
    auto gps = make({.sentences = kMixed, .chunk = 1024});
    gps->receive(as_bytes(row.command + "\r\n"), 0);
    EXPECT_EQ(gps->talker(), row.talker);
    EXPECT_EQ(gps->acknowledged(), std::vector<std::string>{row.ack});
    const std::string stream = joined(pieces(*gps, gps->piece_time()));
    std::string expected = row.ack + "\r\n";
    for (const std::string &sentence : kMixed) {
        const size_t star = sentence.find('*');
        const bool system = sentence[1] != 'P';
        const bool right_sum = clitest::with_nmea_checksum(sentence.substr(0, star)) == sentence;
        std::string renamed = sentence;
        if (system && !row.talker.empty())
            renamed.replace(1, 2, row.talker);
        if (system && !row.talker.empty() && right_sum)
            renamed = clitest::with_nmea_checksum(renamed.substr(0, star));
        expected += renamed + "\r\n";
    }
    EXPECT_EQ(stream.substr(0, expected.size()), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, GpsSearchMode,
    ::testing::Values(ModeRow{"GpsOnly", "$PMTK353,1,0,0,0,0*2A", "$PMTK001,353,3*35", "GP"},
                      ModeRow{"BeidouOnly", "$PMTK353,0,0,0,0,1*2A", "$PMTK001,353,3*35", "BD"},
                      ModeRow{"GpsAndBeidou", "$PMTK353,1,0,0,0,1*2B", "$PMTK001,353,3*35", "GN"},
                      ModeRow{"GlonassOnly", "$PMTK353,0,1,0,0,0*2A", "$PMTK001,353,3*35", "GL"},
                      ModeRow{"GalileoOnly", "$PMTK353,0,0,1,0,0*2A", "$PMTK001,353,3*35", "GA"},
                      ModeRow{"LowerCaseChecksum", "$PMTK353,1,0,0,0,1*2b", "$PMTK001,353,3*35", "GN"},
                      // Refusals leave the talkers as recorded.
                      ModeRow{"NothingEnabled", "$PMTK353,0,0,0,0,0*2B", "$PMTK001,353,2*34", ""},
                      ModeRow{"WrongChecksum", "$PMTK353,1,0,0,0,0*2B", "$PMTK001,353,0*36", ""},
                      ModeRow{"NoChecksum", "$PMTK353,1,0,0,0,0", "$PMTK001,353,0*36", ""},
                      ModeRow{"FourFlags", clitest::with_nmea_checksum("$PMTK353,1,0,0,0"),
                              "$PMTK001,353,0*36", ""},
                      ModeRow{"AFlagOtherThanZeroOrOne", clitest::with_nmea_checksum("$PMTK353,2,0,0,0,0"),
                              "$PMTK001,353,0*36", ""},
                      ModeRow{"UnsupportedPacket", "$PMTK220,1000*1F", "$PMTK001,220,1*32", ""}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(GpsReceiver, ARecordedReceiverKeepsItsTalkersWhenToldNotToFollow)
{
    auto gps = make({.sentences = kMixed, .chunk = 1024, .follow_mode = false});
    gps->receive(as_bytes("$PMTK353,1,0,0,0,0*2A\r\n"), 0);
    EXPECT_EQ(gps->acknowledged(), std::vector<std::string>{"$PMTK001,353,3*35"});
    EXPECT_EQ(gps->talker(), "");
    EXPECT_EQ(joined(pieces(*gps, gps->piece_time())),
              ("$PMTK001,353,3*35\r\n" + looped(kMixed, 1024)).substr(0, 1024));
}

TEST_F(GpsReceiver, WithoutAcknowledgementsItStillTakesTheMode)
{
    auto gps = make({.sentences = {"$GNGSV,1,1,00*67"}, .chunk = 18, .acknowledge = false});
    gps->receive(as_bytes("$PMTK000*32\r\n$PMTK353,0,0,0,0,1*2A\r\n"), 0);
    EXPECT_TRUE(gps->acknowledged().empty());
    EXPECT_EQ(gps->heard(), (std::vector<std::string>{"$PMTK000*32", "$PMTK353,0,0,0,0,1*2A"}));
    EXPECT_EQ(joined(pieces(*gps, gps->piece_time())), clitest::with_nmea_checksum("$BDGSV,1,1,00") + "\r\n");
}

TEST_F(GpsReceiver, CommandsMayArriveInPiecesAndOtherLinesAreNotForIt)
{
    auto gps = make({});
    const std::string lines = "$GPRMC,ignored*00\r\n$PMTK0";
    gps->receive(as_bytes(lines), 0);
    gps->receive(as_bytes("00*32\r"), 1);
    EXPECT_TRUE(gps->acknowledged().empty()) << "no line end yet";
    gps->receive(as_bytes("\n"), 2);
    EXPECT_EQ(gps->heard(), (std::vector<std::string>{"$GPRMC,ignored*00", "$PMTK000*32"}));
    EXPECT_EQ(gps->acknowledged(), std::vector<std::string>{"$PMTK001,0,3*30"});
}

// ---- Misbehaviour -------------------------------------------------------------------------------

TEST_F(GpsReceiver, ASilentReceiverHearsEverythingAndSendsNothing)
{
    auto gps = make({.sentences = kEpoch});
    gps->misbehave({.mode = sim::Misbehaviour::Mode::Silent});
    gps->receive(as_bytes("$PMTK000*32\r\n"), 0);
    EXPECT_EQ(gps->next_send(), sim::kNever);
    EXPECT_EQ(gps->heard(), std::vector<std::string>{"$PMTK000*32"});
    EXPECT_EQ(gps->acknowledged(), std::vector<std::string>{"$PMTK001,0,3*30"})
        << "it decides its answer; the layer drops it";
}

TEST_F(GpsReceiver, ABadChecksumSpoilsTheNumberedSentencesOnly)
{
    auto gps = make({.sentences = kEpoch, .chunk = 1024});
    gps->misbehave({.bad_checksum = {2, 3}});
    gps->receive(as_bytes("$PMTK000*32\r\n"), 0);
    // Messages in the order it composes them: the acknowledgement first, then the sentences.
    const std::string stream = joined(pieces(*gps, gps->piece_time()));
    const std::string gga = kEpoch[0].substr(0, kEpoch[0].size() - 2) + "6D"; // *6C + 1
    const std::string rmc = kEpoch[1].substr(0, kEpoch[1].size() - 2) + "74"; // *73 + 1
    const std::string expected = "$PMTK001,0,3*30\r\n" + gga + "\r\n" + rmc + "\r\n" + kEpoch[0] + "\r\n";
    EXPECT_EQ(stream.substr(0, expected.size()), expected);
}

TEST(GpsSentence, ItsCheckIsSpoiledByOneOrLeftAloneWithoutOne)
{
    auto spoiled = [](const std::string &sentence) {
        Bytes bytes = as_bytes(sentence);
        sim::spoil_nmea_checksum(bytes);
        return std::string(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(spoiled("$GPGSV,1,1,00*79\r\n"), "$GPGSV,1,1,00*7A\r\n");
    EXPECT_EQ(spoiled("$GPGSV,1,1,00*ff"), "$GPGSV,1,1,00*00");
    EXPECT_EQ(spoiled("$GPGSV,1,1,00\r\n"), "$GPGSV,1,1,00\r\n");
    EXPECT_EQ(spoiled("$GPGSV,1,1,00*7"), "$GPGSV,1,1,00*7");
    EXPECT_EQ(spoiled("junk*ZZ"), "junk*ZZ");
}

TEST_F(GpsReceiver, AColdReceiverSaysNothingUntilItHasStarted)
{
    auto gps = make({.sentences = kEpoch, .cold_start = 9 * kSecond});
    gps->receive(as_bytes("$PMTK000*32\r\n"), kSecond);
    const std::vector<Piece> sent = pieces(*gps, 10 * kSecond);
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent[0].when, (9 * kSecond + kPiece - 1) / kPiece * kPiece)
        << "the first piece after its start";
    EXPECT_GE(sent[0].when, 9 * kSecond);
    EXPECT_EQ(joined(sent).substr(0, 17 + kEpoch[0].size()), "$PMTK001,0,3*30\r\n" + kEpoch[0])
        << "what it was asked while cold is answered first";
}

TEST_F(GpsReceiver, AColdReceiverMaySendSentencesWithoutAFixMeanwhile)
{
    const std::vector<std::string> no_fix = {"$GPRMC,,V,,,,,,,,,,N*53"};
    auto gps = make({.sentences = kEpoch, .cold_sentences = no_fix, .cold_start = 2 * kSecond});
    const std::vector<Piece> sent = pieces(*gps, 3 * kSecond);
    std::string cold, warm;
    for (const Piece &piece : sent)
        (piece.when < 2 * kSecond ? cold : warm) += piece.bytes;
    EXPECT_EQ(cold, looped(no_fix, cold.size()).substr(0, cold.size()));
    // The no-fix sentence under way when the receiver starts is finished first.
    const size_t finish = (25 - cold.size() % 25) % 25;
    EXPECT_EQ(warm.substr(finish, kEpoch[0].size()), kEpoch[0]);
}

TEST_F(GpsReceiver, AGarbageReceiverSendsNoiseAtItsOwnSpeedFromTheStart)
{
    auto noisy = [this](uint32_t seed) {
        auto gps = make({.sentences = kEpoch});
        gps->misbehave({.mode = sim::Misbehaviour::Mode::Garbage, .garbage_seed = seed});
        return gps;
    };
    auto gps = noisy(7);
    gps->receive(as_bytes("$PMTK000*32\r\n"), 0);
    const std::vector<Piece> sent = pieces(*gps, kSecond);
    ASSERT_EQ(sent.size(), 61u) << "16 bytes every 16 byte-times at 9600 baud, the first at once";
    for (size_t n = 0; n < sent.size(); ++n) {
        EXPECT_EQ(sent[n].when, static_cast<sim::Nanos>(n) * kPiece) << "piece " << n;
        EXPECT_EQ(sent[n].bytes.size(), 16u);
    }
    const std::string noise = joined(sent);
    EXPECT_EQ(noise.find("$GP"), std::string::npos);
    EXPECT_EQ(noise.find("PMTK001"), std::string::npos) << "and no acknowledgement";
    EXPECT_EQ(joined(pieces(*noisy(7), kSecond)), noise) << "the same noise for the same seed";
    EXPECT_NE(joined(pieces(*noisy(8), kSecond)), noise);
}

TEST_F(GpsReceiver, OnALineSetToAnotherSpeedTheProductReadsEightBitNoise)
{
    auto gps = make({.sentences = kEpoch}, 4800);
    const std::string read = joined(pieces(*gps, kSecond));
    ASSERT_EQ(read.size(), 960u) << "the receiver keeps its own pace";
    for (const char c : read)
        ASSERT_GE(static_cast<unsigned char>(c), 0x80u);
    auto matched = make({.sentences = kEpoch}, 9600);
    EXPECT_EQ(joined(pieces(*matched, kSecond)), looped(kEpoch, 960).substr(0, 960));
}

// ---- Through a real pty -------------------------------------------------------------------------

class GpsOnTheLine : public clitest::SimTest
{
  protected:
    void hang(sim::GpsSetup setup)
    {
        scenario().ports[kLink].make_peer = [setup] { return std::make_unique<sim::GpsPeer>(setup); };
        restart();
    }

    static int open_raw(speed_t speed)
    {
        const int fd = clitest::open_raw_line(kLink, speed);
        EXPECT_GE(fd, 0);
        return fd;
    }

    // The receiver's sentences as text.
    static std::string read_exactly(int fd, size_t count)
    {
        const std::vector<uint8_t> got = clitest::read_exactly(fd, count);
        return std::string(got.begin(), got.end());
    }
};

TEST_F(GpsOnTheLine, AFlushDiscardsWhatCameSoFarAndTheNextReadGetsFreshSentences)
{
    hang({.sentences = {"$GPZDA,000000.000,01,01,2026,,*00", "$GPZDA,000001.000,01,01,2026,,*00"}});
    const std::string stream =
        looped({"$GPZDA,000000.000,01,01,2026,,*00", "$GPZDA,000001.000,01,01,2026,,*00"}, 8000);
    const int fd = open_raw(B9600);
    sim::clock().advance(2 * kSecond); // 120 pieces wait in the line's buffer
    tcflush(fd, TCIOFLUSH);
    const sim::Nanos flushed = sim::clock().now();
    const std::string fresh = read_exactly(fd, 32);
    const int64_t first = flushed / kPiece + 1;
    EXPECT_EQ(sim::clock().now(), (first + 1) * kPiece) << "two pieces after the flush";
    EXPECT_EQ(fresh, stream.substr(static_cast<size_t>(first - 1) * 16, 32));
    close(fd);
}

TEST_F(GpsOnTheLine, WhatItSendsWhileThePortIsClosedIsLost)
{
    hang({.sentences = kEpoch});
    const std::string stream = looped(kEpoch, 8000);
    int fd = open_raw(B9600);
    EXPECT_EQ(read_exactly(fd, 16), stream.substr(0, 16));
    close(fd);
    sim::clock().advance(kSecond);
    fd = open_raw(B9600);
    const int64_t next = sim::clock().now() / kPiece + 1;
    EXPECT_EQ(read_exactly(fd, 16), stream.substr(static_cast<size_t>(next - 1) * 16, 16))
        << "the stream went on meanwhile";
    const auto sent = sim::journal().select(sim::Kind::SerialSend, kLink);
    ASSERT_EQ(sent.size(), 2u) << "only what an open port received";
    close(fd);
}

TEST_F(GpsOnTheLine, AnswersWhatTheProductWritesOnTheLine)
{
    hang({.chunk = 64});
    const int fd = open_raw(B9600);
    const std::string question = "$PMTK000*32\r\n";
    ASSERT_EQ(write(fd, question.data(), question.size()), static_cast<ssize_t>(question.size()));
    EXPECT_EQ(read_exactly(fd, 17), "$PMTK001,0,3*30\r\n");
    close(fd);
}

TEST_F(GpsOnTheLine, BehindTheHubItRunsAtItsChannelsRate)
{
    auto run_with_rate = [this](uint32_t rate) {
        scenario().ports[kLink].make_peer = [] {
            auto hub = std::make_unique<sim::HubPeer>();
            hub->add_device(sim::kHubPortGps,
                            std::make_unique<sim::GpsPeer>(sim::GpsSetup{.sentences = kEpoch}));
            return hub;
        };
        restart();
        const int fd = open_raw(B115200);
        sim::HubFrame open_channel;
        open_channel.port = sim::kHubPortGps;
        open_channel.command = sim::kHubOpen;
        sim::HubFrame set_rate;
        set_rate.port = sim::kHubPortGps;
        set_rate.command = sim::kHubSetRate;
        set_rate.payload = {static_cast<uint8_t>(rate >> 24), static_cast<uint8_t>(rate >> 16),
                            static_cast<uint8_t>(rate >> 8), static_cast<uint8_t>(rate)};
        for (const Bytes &frame : {open_channel.bytes(), set_rate.bytes()})
            EXPECT_EQ(write(fd, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
        const std::string frame = read_exactly(fd, 25); // one piece of 16 bytes in one frame
        close(fd);
        return frame;
    };
    sim::HubFrame expected;
    expected.port = sim::kHubPortGps;
    expected.payload = as_bytes(kEpoch[0].substr(0, 16));
    EXPECT_EQ(run_with_rate(9600), as_text(expected.bytes()));
    const std::string garbled = run_with_rate(4800);
    ASSERT_EQ(garbled.size(), 25u);
    EXPECT_EQ(garbled.substr(0, 7), as_text(expected.bytes()).substr(0, 7)) << "a good frame of the GPS port";
    for (size_t i = 7; i < 23; ++i)
        EXPECT_GE(static_cast<unsigned char>(garbled[i]), 0x80u) << "carrying noise, at " << i;
}

// ---- Scenario keys ------------------------------------------------------------------------------

TEST_F(GpsOnTheLine, AScenarioFileDescribesTheReceiver)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "gps"
log = "../tests/data/nmea/nd-1005.log"
follow_mode = false
acknowledge = false
cold_start_ms = 500
chunk = 32
baud = 9600
)",
                                     "receiver.toml", std::string(CLIDRIVER_SOURCE_DIR) + "/sim");
    restart();
    const int fd = open_raw(B9600);
    const sim::Nanos piece = 32 * kByte9600;
    const std::string first = read_exactly(fd, 32);
    EXPECT_EQ(sim::clock().now(), (500 * kMillisecond + piece - 1) / piece * piece);
    EXPECT_EQ(first, "$GPGGA,110518.000,5709.8067,N,00");
    close(fd);
}

TEST_F(GpsOnTheLine, AScenarioFileCanGiveSentencesAndMisbehaviour)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "gps"
sentences = ["$GPGSV,1,1,00*79"]
cold_sentences = ["$GPRMC,,V,,,,,,,,,,N*53"]
cold_start_ms = 30
chunk = 25
bad_checksum = 1
)",
                                     "receiver.toml", ".");
    restart();
    const int fd = open_raw(B9600);
    EXPECT_EQ(read_exactly(fd, 25), "$GPRMC,,V,,,,,,,,,,N*54\r\n") << "its first sentence spoiled";
    EXPECT_EQ(read_exactly(fd, 25).substr(0, 18), "$GPGSV,1,1,00*79\r\n");
    close(fd);
}

class GpsScenarioErrors : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(GpsScenarioErrors, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "/nowhere"), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, GpsScenarioErrors,
    ::testing::Values(
        clitest::ScenarioMistake{
            "UnknownKey", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nbaudrate = 9600\n",
            "bad.toml:3: ports./dev/ttyC0.baudrate: unknown key (expected one of: peer, absent, open_errno, "
            "log, sentences, follow_mode, acknowledge, cold_start_ms, cold_sentences, baud, chunk, mode, "
            "trickle_gap_ms, garbage_every_ms, garbage_chunk, garbage_seed, hang_up_after, hang_up_at_ms, "
            "bad_checksum, oversize)"},
        clitest::ScenarioMistake{
            "NoLengthToMakeTooLong", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\noversize = 2\n",
            "bad.toml:3: ports./dev/ttyC0.oversize: the GPS receiver sends no length field to make too long"},
        clitest::ScenarioMistake{
            "LogAndSentences",
            "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nlog = \"a.log\"\nsentences = [\"$A\"]\n",
            "bad.toml:4: ports./dev/ttyC0.sentences: a receiver plays either a log or sentences, not both"},
        clitest::ScenarioMistake{"MissingLog", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nlog = \"gone.log\"\n",
                                 "bad.toml:3: ports./dev/ttyC0.log: cannot read /nowhere/gone.log"},
        clitest::ScenarioMistake{
            "SentencesNotStrings", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nsentences = [1, 2]\n",
            "bad.toml:3: ports./dev/ttyC0.sentences: expected an array of sentences, each a string"},
        clitest::ScenarioMistake{"ChunkTooLarge", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nchunk = 1025\n",
                                 "bad.toml:3: ports./dev/ttyC0.chunk: expected 1..1024 bytes"},
        clitest::ScenarioMistake{"ChunkZero", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nchunk = 0\n",
                                 "bad.toml:3: ports./dev/ttyC0.chunk: expected 1..1024 bytes"},
        clitest::ScenarioMistake{
            "NoSpeed", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\nbaud = 0\n",
            "bad.toml:3: ports./dev/ttyC0.baud: expected a speed in bits per second, such as 9600"},
        clitest::ScenarioMistake{
            "ColdBeforeBoot", "[ports.\"/dev/ttyC0\"]\npeer = \"gps\"\ncold_start_ms = -1\n",
            "bad.toml:3: ports./dev/ttyC0.cold_start_ms: expected a time in milliseconds, 0 or more"},
        clitest::ScenarioMistake{
            "BehindTheHubWithALineOfItsOwn",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".gps]\npeer = \"gps\"\nabsent = "
            "true\n",
            "bad.toml:5: ports./dev/ttyC0.gps.absent: a device behind the hub has no line of its own"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
