// A station line's limits and options, and the readings taken from a command's result lines:
// pure logic, each value written out by hand.
#include <gtest/gtest.h>

#include "checks.h"
#include "readings.h"

namespace
{

using shell::Kind;
using shell::Limit;
using shell::Measurement;
using shell::Quantity;
using shell::StepOptions;

const std::vector<Quantity> kMeasured = {
    {"satellites_in_use", Kind::Integer, "", false},
    {"latitude", Kind::Real, "", false},
    {"chip", Kind::Text, "", false},
    {"voltage", Kind::Real, "V", false},
};

Measurement measured(const std::string &name, const std::string &text)
{
    for (const Quantity &quantity : kMeasured)
        if (quantity.name == name) {
            Measurement measurement{quantity};
            shell::set_value(measurement, text);
            return measurement;
        }
    ADD_FAILURE() << "no quantity " << name;
    return {};
}

// Whether `value` keeps to the one limit `text` states; the reason comes back in `why`.
bool keeps(const std::string &text, const std::string &name, const std::string &value, std::string &why)
{
    StepOptions options;
    const std::string error = shell::parse_checks(", " + text, kMeasured, options);
    EXPECT_EQ(error, "") << text;
    if (!error.empty() || options.limits.size() != 1)
        return false;
    return shell::within(options.limits[0], measured(name, value), why);
}

bool keeps(const std::string &text, const std::string &name, const std::string &value)
{
    std::string why;
    return keeps(text, name, value, why);
}

TEST(Limits, EachOperatorOnNumbers)
{
    EXPECT_TRUE(keeps("satellites_in_use >= 4", "satellites_in_use", "4"));
    EXPECT_FALSE(keeps("satellites_in_use >= 4", "satellites_in_use", "3"));
    EXPECT_TRUE(keeps("satellites_in_use > 4", "satellites_in_use", "5"));
    EXPECT_FALSE(keeps("satellites_in_use > 4", "satellites_in_use", "4"));
    EXPECT_TRUE(keeps("satellites_in_use < 4", "satellites_in_use", "3"));
    EXPECT_FALSE(keeps("satellites_in_use <= 4", "satellites_in_use", "5"));
    EXPECT_TRUE(keeps("satellites_in_use = 012", "satellites_in_use", "12"))
        << "012 is twelve, as typed elsewhere";
    EXPECT_TRUE(keeps("satellites_in_use == 0x10", "satellites_in_use", "16"));
    EXPECT_TRUE(keeps("satellites_in_use != 0", "satellites_in_use", "7"));
    EXPECT_FALSE(keeps("satellites_in_use != 7", "satellites_in_use", "7"));
    EXPECT_TRUE(keeps("latitude in 44.0..44.1", "latitude", "44.1"));
    EXPECT_TRUE(keeps("latitude in 44.0..44.1", "latitude", "44.0"));
    EXPECT_FALSE(keeps("latitude in 44.0..44.1", "latitude", "44.100001"));
    EXPECT_TRUE(keeps("latitude in -1..1", "latitude", "-0.5"));
    EXPECT_TRUE(keeps("voltage in 0.5..3.3", "voltage", "1.25"));
    EXPECT_FALSE(keeps("voltage in 0.5..3.3", "voltage", "3.31"));
    EXPECT_TRUE(keeps("satellites_in_use in 4|8|12", "satellites_in_use", "8"));
    EXPECT_FALSE(keeps("satellites_in_use in 4|8|12", "satellites_in_use", "9"));
    EXPECT_TRUE(keeps("satellites_in_use ~ ^1", "satellites_in_use", "10"))
        << "a pattern reads the value as printed";
}

TEST(Limits, EachOperatorOnText)
{
    EXPECT_TRUE(keeps("chip = HI3516A", "chip", "HI3516A"));
    EXPECT_FALSE(keeps("chip = HI3516A", "chip", "HI3516D"));
    EXPECT_TRUE(keeps("chip != HI3516A", "chip", "HI3516D"));
    EXPECT_TRUE(keeps("chip in HI3516A|HI3516D", "chip", "HI3516D"));
    EXPECT_FALSE(keeps("chip in HI3516A|HI3516D", "chip", "HI3518E"));
    EXPECT_TRUE(keeps("chip ~ \"^HI35\"", "chip", "HI3516A"));
    EXPECT_FALSE(keeps("chip ~ \"^HI35\"", "chip", "hi3516a"));
    // Nested repetition: a backtracking matcher would try 2^40 ways before saying no; this one
    // answers at once (found by fuzzing, where it stalled the run).
    EXPECT_FALSE(keeps("chip ~ \"a****************************************b\"", "chip",
                       "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"));
    EXPECT_TRUE(keeps("chip ~ \"A**$\"", "chip", "HI3516A"));
    EXPECT_TRUE(keeps("chip = \"a, b\"", "chip", "a, b")) << "a quoted value keeps its comma and blank";
}

TEST(Limits, TheReasonShowsTheValueBesideTheLimit)
{
    std::string why;
    EXPECT_FALSE(keeps("satellites_in_use >= 4", "satellites_in_use", "3", why));
    EXPECT_EQ(why, "satellites_in_use = 3, limit >= 4");
    EXPECT_FALSE(keeps("voltage in 0.5..3.3", "voltage", "0.20", why));
    EXPECT_EQ(why, "voltage = 0.20 V, limit in 0.5..3.3");
    EXPECT_FALSE(keeps("chip = HI3516A", "chip", "HI3516D", why));
    EXPECT_EQ(why, "chip = \"HI3516D\", limit = HI3516A");

    StepOptions options;
    ASSERT_EQ(shell::parse_checks(", satellites_in_use >= 4", kMeasured, options), "");
    Measurement absent{kMeasured[0]};
    EXPECT_FALSE(shell::within(options.limits[0], absent, why));
    EXPECT_EQ(why, "satellites_in_use was not printed, limit >= 4");
    EXPECT_FALSE(keeps("satellites_in_use >= 4", "satellites_in_use", "many", why));
    EXPECT_EQ(why, "satellites_in_use = many is not a number, limit >= 4");
}

TEST(Limits, RetriesAndTimeLimit)
{
    StepOptions options;
    ASSERT_EQ(shell::parse_checks(", latitude in 44.0..44.1, retry 2, timeout 40", kMeasured, options), "");
    EXPECT_EQ(options.limits.size(), 1u);
    EXPECT_EQ(options.retries, 2);
    ASSERT_TRUE(options.timeout_s.has_value());
    EXPECT_EQ(*options.timeout_s, 40.0);
    StepOptions with_unit;
    ASSERT_EQ(shell::parse_checks(", timeout 1.5 s", kMeasured, with_unit), "");
    EXPECT_EQ(*with_unit.timeout_s, 1.5);
    StepOptions none;
    EXPECT_EQ(shell::parse_checks("", kMeasured, none), "");
    EXPECT_TRUE(none.limits.empty());
    EXPECT_EQ(none.retries, 0);
    EXPECT_FALSE(none.timeout_s.has_value());
}

TEST(Limits, MistakesAreRefusedWithTheirReason)
{
    const auto refusal = [](const std::string &text) {
        StepOptions options;
        return shell::parse_checks(text, kMeasured, options);
    };
    EXPECT_EQ(
        refusal(", satellites >= 4"),
        "no measurement 'satellites' (this command measures: satellites_in_use, latitude, chip, voltage)");
    EXPECT_EQ(refusal(" satellites_in_use >= 4"),
              "write a comma between the expected status and what follows: => 0, satellites_in_use ...");
    EXPECT_EQ(refusal(", satellites_in_use >= 4,"), "an empty check between two commas");
    EXPECT_EQ(refusal(", satellites_in_use >="),
              "'satellites_in_use': a limit is NAME OPERATOR VALUE (such as satellites_in_use >= 4)");
    EXPECT_EQ(refusal(", satellites_in_use => 4"), "'=>' is not a limit (=, !=, <, <=, >, >=, in, ~)");
    EXPECT_EQ(refusal(", satellites_in_use >= four"),
              "'four' is not a number, and satellites_in_use is integer");
    EXPECT_EQ(refusal(", latitude in 44.1..44.0"), "the range 44.1..44.0 runs backwards");
    EXPECT_EQ(refusal(", chip in A..B"), "chip is text: a range needs a number");
    EXPECT_EQ(refusal(", chip >= A"), "chip is text: compare it with =, !=, in or ~");
    EXPECT_EQ(refusal(", chip ~ ("), "'(' is not a regular expression");
    EXPECT_EQ(refusal(", chip ~ \"(A)\\1\""),
              "'(A)\\1': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"A{1000}{1000}\""),
              "'A{1000}{1000}': a pattern takes no back-references and must stay small");
    // Numbers too long for the pattern compiler to read without overflowing (found by fuzzing).
    EXPECT_EQ(refusal(", chip ~ \"A\\5555555555555555555555\""),
              "'A\\5555555555555555555555': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"A{99999999999999999999}\""),
              "'A{99999999999999999999}': a pattern takes no back-references and must stay small");
    // A control escape takes the character after \c as its letter, a backslash too: what follows
    // that is a back-reference (found by fuzzing).
    EXPECT_EQ(refusal(", chip ~ \"A\\c\\\\5555555555555555555555\""),
              "'A\\c\\\\5555555555555555555555': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"A{2,99999}\""),
              "'A{2,99999}': a pattern takes no back-references and must stay small");
    EXPECT_TRUE(keeps("chip ~ \"^HI\\d{4}[AD]$\"", "chip", "HI3516A"))
        << "counts and escapes of a plain pattern";
    EXPECT_TRUE(keeps("chip ~ \"\\{9999999\"", "chip", "{9999999")) << "an escaped brace is a brace";
    // Repetitions whose copies multiply past what a line's pattern needs: the compiler would build
    // up to 100,000 states first, seconds of work on a camera (found by fuzzing).
    EXPECT_EQ(refusal(", chip ~ \"\t{1,8822}+{0,122}\""),
              "'\t{1,8822}+{0,122}': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"(A{100}){100}\""),
              "'(A{100}){100}': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"A{5000}\""),
              "'A{5000}': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"((A|B){70}[0-9]{70}){10}\""),
              "'((A|B){70}[0-9]{70}){10}': a pattern takes no back-references and must stay small");
    EXPECT_EQ(refusal(", chip ~ \"" + std::string(40, '(') + "A" + std::string(40, ')') + "\""),
              "'" + std::string(40, '(') + "A" + std::string(40, ')') +
                  "': a pattern takes no back-references and must stay small")
        << "groups nested deeper than the compiler should recurse";
    EXPECT_TRUE(keeps("chip ~ \"^A{400}$\"", "chip", std::string(400, 'A'))) << "a long count on its own";
    EXPECT_TRUE(keeps("chip ~ \"^(HI(35|37)[0-9]{2}(A|D|V)?){1,3}$\"", "chip", "HI3516AHI3519V"))
        << "groups, alternatives and counts of a real pattern";
    EXPECT_TRUE(keeps("chip ~ \"" + std::string(30, '(') + "A" + std::string(30, ')') + "\"", "chip", "A"))
        << "thirty nested groups";
    EXPECT_TRUE(keeps("chip ~ \"[{]{3}x\"", "chip", "{{{x")) << "a brace in brackets is listed, not a count";
    EXPECT_EQ(refusal(", chip = \"open"), "a quote is not closed");
    EXPECT_EQ(refusal(", retry"), "retry takes a count: retry 2");
    EXPECT_EQ(refusal(", retry 101").substr(0, 7), "retry: ");
    EXPECT_EQ(refusal(", timeout 0"), "timeout: '0' is not a number of seconds above 0");
    EXPECT_EQ(refusal(", timeout -3"), "timeout: '-3' is not a number of seconds above 0");
    EXPECT_EQ(refusal(", timeout"), "timeout takes seconds: timeout 40");
}

TEST(Readings, TheRowsOfTheTableAreWellFormed)
{
    EXPECT_TRUE(shell::reading_rule_errors().empty()) << shell::reading_rule_errors().front();
}

TEST(Readings, APositionFromTheTwoLinesTheAnalyserPrints)
{
    const auto readings = shell::take_readings(
        "CLI_GetGpsCoor", "$GPRMC,202656.000,A,440\r\nLongitude:W 121.188515\r\nLatitude:N 44.041305\r\n");
    ASSERT_EQ(readings.size(), 4u);
    EXPECT_EQ(readings[0].quantity.name, "longitude_hemisphere");
    EXPECT_EQ(readings[0].text, "W");
    EXPECT_EQ(readings[1].quantity.name, "longitude");
    ASSERT_TRUE(readings[1].number.has_value());
    EXPECT_DOUBLE_EQ(*readings[1].number, 121.188515);
    EXPECT_EQ(readings[3].quantity.name, "latitude");
    EXPECT_EQ(readings[3].quantity.kind, Kind::Real);
    EXPECT_EQ(readings[3].text, "44.041305");
    for (const Measurement &reading : readings)
        EXPECT_TRUE(reading.present) << reading.quantity.name;
}

TEST(Readings, ALineThatDoesNotMatchWholeIsNoReading)
{
    auto readings = shell::take_readings("CLI_GetGpsSatellite", "Location Satellite Num:10 or so\n");
    ASSERT_EQ(readings.size(), 2u);
    EXPECT_FALSE(readings[0].present);
    EXPECT_FALSE(readings[1].present);
    readings = shell::take_readings("CLI_GetGpsSatellite", "Location Satellite Num:3\n");
    EXPECT_TRUE(readings[0].present);
    EXPECT_EQ(readings[0].integer, 3);
    EXPECT_FALSE(readings[1].present) << "Satellite Num: matches whole lines only";
    EXPECT_TRUE(shell::take_readings("CLI_GetRawData", "anything\n").empty()) << "no readings: none listed";
}

TEST(Readings, ListsAndUnits)
{
    const auto tags = shell::take_readings("CLI_GetRfidIDInfo", "ID : 0A0B\nID : 0C0D\nTotal Number: 2\n");
    ASSERT_EQ(tags.size(), 2u);
    EXPECT_TRUE(tags[0].quantity.list);
    EXPECT_EQ(tags[0].items, (std::vector<std::string>{"0A0B", "0C0D"}));
    EXPECT_EQ(tags[1].integer, 2);
    const auto voltage = shell::take_readings("CLI_PhotoSensorVoltage", "photosensor voltage: 1.25V\n");
    ASSERT_EQ(voltage.size(), 1u);
    EXPECT_EQ(voltage[0].quantity.unit, "V");
    EXPECT_EQ(shell::show(voltage[0]), "1.25 V");
}

TEST(Readings, AnOverlongLineIsNoReading)
{
    const std::string line = "cpu chipid:" + std::string(1 << 20, 'A') + "\n";
    const auto readings = shell::take_readings("CLI_GetCpuInfo", line);
    ASSERT_FALSE(readings.empty());
    EXPECT_FALSE(readings[0].present);
}

} // namespace
