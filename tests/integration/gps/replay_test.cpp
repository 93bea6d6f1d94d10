// Every real receiver log of tests/data/nmea played by the simulated receiver straight on the
// link, as recorded (its own talkers, its acknowledgements among the sentences, 16 bytes at a
// time at 9600 baud), through both GPS queries in each mode. The expected transcript is worked
// out here by a small reader of our own from what the receiver put on the line: each try's block
// (the 1024 bytes after the position query's flush, or after the reopen for the satellite query),
// the first sentence of each wanted type with the mode's talker that has 128 bytes after it, and
// its fields. Logs without a usable position end in "Coordinate Info illegal" or the tries running
// out.
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "gps_fixture.h"
#include "nmea_model.h"

namespace
{

using namespace gpstest;

// ddmm.mmmm shown as the operator reads it, or the refusal's line.
bool shown_angle(const std::string &angle, std::string &shown, Lines &lines)
{
    if (clitest::nmea_shown_angle(angle, shown))
        return true;
    lines.push_back(" INFO CLI_StringConvert: error date " + angle);
    return false;
}

struct Query {
    const char *function;
    bool flush;
    std::vector<std::pair<std::string, uint32_t>> sentences; // type and field, in order
};

const Query kPosition = {"CLI_GetGpsCoor", true, {{"RMC", 3}, {"GGA", 2}, {"GLL", 1}}};
const Query kSatellites = {"CLI_GetGpsSatellite", false, {{"GGA", 7}, {"GSV", 3}}};

struct Expected {
    Lines messages;
    std::string out;
    std::string err;
    long long status = 1;
    std::string outcome; // for the summary: what the log gave
};

// The transcript the query must produce, given what each try could read.
Expected expected_for(const Query &query, uint32_t mode, const std::vector<std::string> &blocks)
{
    static const char *const talkers[] = {"GP", "BD", ""};
    const std::string function = query.function;
    Expected result;
    result.messages.push_back(cmd_line(mode));
    for (size_t k = 0; k < 6; ++k) {
        if (k >= blocks.size()) {
            result.outcome = "fewer blocks than tries";
            return result;
        }
        const std::string text = c_text(blocks[k]);
        result.messages.push_back(" INFO " + function + ": " +
                                  (query.flush ? "" : std::to_string(text.size()) + ",") + text);
        for (const auto &[type, field] : query.sentences) {
            const size_t at = text.find(talkers[mode] + type);
            if (at == std::string::npos || at > blocks[k].size() - kTail)
                continue;
            const std::vector<std::string> fields = clitest::nmea_fields(text.substr(at));
            const size_t address = text.rfind('$', at) == std::string::npos ? at : text.rfind('$', at) + 1;
            const std::string where = "try " + std::to_string(k + 1) + " " +
                                      text.substr(address, text.find(',', address) - address);
            if (!query.flush) {
                const uint32_t count = clitest::nmea_number(fields[field]);
                const std::string shown =
                    (type == "GGA" ? "Location Satellite Num:" : "Satellite Num:") + std::to_string(count);
                result.messages.push_back(" INFO " + function + ": " + shown);
                result.out = shown + "\r\n";
                result.status = 0;
                result.outcome = where + ": " + shown;
                return result;
            }
            bool legal = field + 3 < clitest::kNmeaFields;
            for (size_t i = 1; i <= 9; ++i)
                legal = legal && !fields[i].empty();
            if (!legal) {
                result.messages.push_back(" INFO CLI_InfoAnalyse: Coordinate Info illegal");
                result.messages.push_back("ERROR " + function + ": Data info Analyse failed");
                result.out = "Coordinate Info illegal\r\n";
                result.err = console(function, "Data info Analyse failed");
                result.outcome = where + ": Coordinate Info illegal";
                return result;
            }
            std::string latitude, longitude;
            shown_angle(fields[field], latitude, result.messages);
            shown_angle(fields[field + 2], longitude, result.messages);
            const std::string shown = std::string("Longitude:") + fields[field + 3].substr(0, 1) + " " +
                                      longitude + "\nLatitude:" + fields[field + 1].substr(0, 1) + " " +
                                      latitude;
            result.messages.push_back(" INFO CLI_InfoAnalyse: " + shown);
            result.out = shown + "\r\n";
            result.status = 0;
            result.outcome =
                where + ": " + shown.substr(0, shown.find('\n')) + " " + shown.substr(shown.find('\n') + 1);
            return result;
        }
        result.messages.push_back(" INFO " + function + ": Left " + std::to_string(5 - k) + " chance to try");
        result.messages.push_back(cmd_line(mode));
    }
    result.messages.push_back("ERROR " + function + ": Get Coordinate failed,please check rate");
    result.err = console(function, "Get Coordinate failed,please check rate");
    result.outcome = "six tries: Get Coordinate failed";
    return result;
}

struct ReplayRow {
    std::string log;
    bool position;
    uint32_t mode;
};

// Rows show by name in test listings.
void PrintTo(const ReplayRow &row, std::ostream *out)
{
    *out << row.log << (row.position ? " position" : " satellites") << " mode " << row.mode;
}

class Replay : public GpsTest, public ::testing::WithParamInterface<ReplayRow>
{
};

TEST_P(Replay, TheQueryAnswersWhatTheLogHolds)
{
    const ReplayRow &row = GetParam();
    std::ifstream file(std::string(CLIDRIVER_SOURCE_DIR) + "/tests/data/nmea/" + row.log + ".log",
                       std::ios::binary);
    ASSERT_TRUE(file.good()) << row.log;
    std::stringstream whole;
    whole << file.rdbuf();
    sim::GpsSetup setup;
    setup.sentences = sim::GpsPeer::read_log(whole.str());
    setup.follow_mode = false; // the talkers as the receiver recorded them
    hang_receiver(setup);
    rs_init();

    const Query &query = row.position ? kPosition : kSatellites;
    const Call call =
        run([&] { return row.position ? CLI_GetGpsCoor(row.mode) : CLI_GetGpsSatellite(row.mode); });
    const std::vector<std::string> blocks = blocks_on_the_line(call, query.flush, 6);
    for (const std::string &block : blocks)
        ASSERT_EQ(block.size(), kBlock) << "every try read a whole block";
    const Expected expected = expected_for(query, row.mode, blocks);
    EXPECT_EQ(call.messages(), expected.messages);
    EXPECT_EQ(call.out, expected.out);
    EXPECT_EQ(call.err, expected.err);
    EXPECT_EQ(call.status, expected.status);
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), call.of(sim::Kind::Open, kLink).size());
    std::cout << "[ replay ] " << row.log << " " << query.function << " " << row.mode << ": "
              << expected.outcome << "\n";
}

std::vector<ReplayRow> all_rows()
{
    static const char *const logs[] = {"april6_2019",
                                       "beidou-bd",
                                       "beidou-gb",
                                       "bt451",
                                       "bu353-glonass",
                                       "bu353s4",
                                       "ch-4711",
                                       "eXplorist110",
                                       "gp-320fw-2019-04-07-coldboot",
                                       "gps-360",
                                       "humminbird-M37",
                                       "magellan-ec10",
                                       "mt3339",
                                       "mtk-3301",
                                       "mtk-3329",
                                       "nd-1005",
                                       "neo-m8n",
                                       "quectel-L70",
                                       "skytraq-PX1172RH_DS",
                                       "skytraq-fixB",
                                       "sounder",
                                       "telit-pls83-w",
                                       "ublox-lea-5q",
                                       "ublox-zed-f9p-nmea"};
    std::vector<ReplayRow> rows;
    for (const char *log : logs)
        for (const bool position : {true, false})
            for (uint32_t mode = 0; mode < 3; ++mode)
                rows.push_back({log, position, mode});
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Logs, Replay, ::testing::ValuesIn(all_rows()), [](const auto &info) {
    std::string name =
        info.param.log + (info.param.position ? "_Coor_" : "_Satellite_") + std::to_string(info.param.mode);
    for (char &c : name)
        if (c == '-' || c == '.')
            c = '_';
    return name;
});

} // namespace
