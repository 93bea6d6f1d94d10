// The real frames of ZigBee control-bridge coordinators in tests/data/zigbee/frames.json (wire
// frames, frames printed already unstuffed, logged frames without their framing bytes, payloads
// alone) through both decoders of libclidriver.so. None is a sensor report: each must be refused
// with the one line the test's own reading of the frame predicts, the count and the record left as
// they were, and nothing read past the frame (each is handed over in a heap buffer of exactly its
// size) or written past the record.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "zigbee_fixture.h"

namespace
{

using namespace zbtest;
using clitest::zb_bytes;
using clitest::zb_hex;

std::vector<ZbBytes> real_frames()
{
    std::ifstream file(std::string(CLIDRIVER_SOURCE_DIR) + "/tests/data/zigbee/frames.json");
    std::stringstream text;
    text << file.rdbuf();
    const std::string json = text.str();
    std::vector<ZbBytes> frames;
    const std::regex hex("\"hex\": \"([0-9A-Fa-f ]*)\"");
    for (auto match = std::sregex_iterator(json.begin(), json.end(), hex); match != std::sregex_iterator();
         ++match)
        frames.push_back(zb_bytes((*match)[1].str()));
    return frames;
}

// What the coordinator decoder must say of a frame that is no report, read by the test: a first
// byte other than 01; else the frame unstuffed up to its end byte (or the end of the input) and
// found too short for a sensor frame, or cut at an escape.
std::string expected_refusal(const ZbBytes &frame)
{
    char line[96];
    if (frame.at(0) != 0x01) {
        snprintf(line, sizeof line, "ERROR CLI_ZigBeeDataDealNew: first word[0x%x] != 0x1", frame[0]);
        return line;
    }
    size_t content = 1;
    for (size_t i = 1; i < frame.size(); ++i) {
        if (frame[i] == 0x03)
            break;
        if (frame[i] == 0x02) {
            if (i + 1 == frame.size())
                return "ERROR CLI_ZigBeeDataDealNew: data fomat err(tail)";
            if ((frame[++i] ^ 0x10) > 0x0F)
                return "";
        }
        ++content;
    }
    EXPECT_LT(content, 16u) << "a real frame long enough to hold a sensor frame: " << zb_hex(frame);
    snprintf(line, sizeof line, "ERROR CLI_ZigBeeDataDealNew: data len %zu too short", content);
    return line;
}

void expect_untouched(const GuardedRecord &held, uint32_t count)
{
    const GuardedRecord before = GuardedRecord::marked();
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(held.record.lState, before.record.lState);
    EXPECT_EQ(held.record.ulTemperature, before.record.ulTemperature);
    EXPECT_EQ(held.record.ulHumidity, before.record.ulHumidity);
    EXPECT_EQ(held.record.ulParticulate, before.record.ulParticulate);
    EXPECT_EQ(held.version(), "old");
    EXPECT_TRUE(held.guard_intact());
}

class RealFrames : public clitest::SimTest
{
};

TEST_F(RealFrames, AreEachRefusedByTheCoordinatorDecoder)
{
    const std::vector<ZbBytes> frames = real_frames();
    ASSERT_EQ(frames.size(), 36u);
    for (const ZbBytes &frame : frames) {
        SCOPED_TRACE(zb_hex(frame));
        const ExactBuffer data(frame);
        GuardedRecord held = GuardedRecord::marked();
        uint32_t count = 5;
        const Call call =
            run([&] { return CLI_ZigBeeDataDealNew(data.data(), data.size(), &held.record, &count); });
        EXPECT_EQ(call.status, 1);
        const std::string refusal = expected_refusal(frame);
        EXPECT_EQ(call.messages(), refusal.empty() ? Lines{} : Lines{refusal});
        EXPECT_EQ(call.out, "");
        EXPECT_EQ(call.err, "");
        expect_untouched(held, count);
    }
}

TEST_F(RealFrames, AreEachRefusedByTheOlderDecoder)
{
    for (const ZbBytes &frame : real_frames()) {
        SCOPED_TRACE(zb_hex(frame));
        ASSERT_FALSE(frame.size() >= 2 && frame[0] == 0xAA && frame[1] == 0xF0)
            << "an older frame among them";
        const ExactBuffer data(frame);
        GuardedRecord held = GuardedRecord::marked();
        uint32_t count = 5;
        const Call call = run([&] { return CLI_ZigBeeDataDeal(data.data(), &held.record, &count); });
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), Lines{"ERROR CLI_ZigBeeDataDeal: data head error"});
        EXPECT_EQ(call.err, "");
        expect_untouched(held, count);
    }
}

} // namespace
