// The fixture every integration test stands on: a fresh simulated camera (the healthy one of
// sim/scenarios/default.toml unless the test says otherwise), one-call capture of everything an
// operator and the hardware would see, and a check after each test that the product left no
// descriptor open, apart from the few it leaves open on purpose (listed once, below).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "core/descriptors.h"
#include "core/journal.h"
#include "core/time.h"
#include "diag_line.h"
#include "scenario/scenario.h"

namespace clitest
{

// Descriptors the camera software leaves open by design. A test that drives such a path names
// the entry; anything else still open after a test fails it.
enum class LeftOpen {
    EncodeInitPipe,          // CLI_EncodeInit keeps its sensor-type pipe open after success
    PeripheralLinkAfterRate, // CLI_ComOpen keeps the link open when setting its rate fails
    GpsLinkAfterReopen,      // the GPS queries keep the descriptor of a failed reopen
    LightSensorAfterTimeout, // CLI_232PhotoSensorVoltage keeps the port open after a read time-out
};

// Whether a descriptor's owner is the one a deliberate exception leaves open.
bool left_open_by(LeftOpen reason, const sim::FdOwner &owner);

// What one call did.
struct Call {
    long long status = 0;             // the status word (0 for commands without one)
    std::string out;                  // standard output, byte for byte
    std::string err;                  // standard error, byte for byte
    std::vector<std::string> printed; // diagnostic lines, as the print sink received them
    std::vector<DiagLine> lines;      // the same, split into fields
    sim::Nanos waited = 0;            // simulated time the call took
    std::vector<sim::Entry> journal;  // everything it did to the camera, in order

    // "LEVEL function: text" for each diagnostic line, without the final newline: compact to assert.
    std::vector<std::string> messages() const;
    std::vector<sim::Entry> of(sim::Kind kind, const std::string &name = {}) const;
};

class SimTest : public ::testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override;

    // The scenario the test starts with; tests may change it and call restart().
    sim::Scenario &scenario() { return scenario_; }
    void restart();
    void use_scenario_file(const std::string &path);

    // Runs `call` (a lambda calling into libclidriver) and captures what it did.
    template <typename F> Call run(F &&call)
    {
        Call result;
        run_captured(
            [&] {
                if constexpr (std::is_void_v<std::invoke_result_t<F>>)
                    call();
                else
                    result.status = static_cast<long long>(call());
            },
            result);
        return result;
    }

    void allow_left_open(LeftOpen reason) { allowed_.push_back(reason); }

  private:
    void run_captured(const std::function<void()> &call, Call &result);
    sim::Scenario scenario_;
    std::set<int> fds_before_;
    std::vector<LeftOpen> allowed_;
};

// The descriptors open in this process now.
std::set<int> open_descriptors();

// The message a scenario text raises when read as "bad.toml" with relative files under `dir`,
// or "" when it reads cleanly.
std::string scenario_error(const std::string &text, const std::string &dir);

// One row of a table of scenario mistakes: the text and the message it must raise.
struct ScenarioMistake {
    const char *name;
    const char *text;
    const char *error;
};
inline void PrintTo(const ScenarioMistake &mistake, std::ostream *out)
{
    *out << mistake.name;
}

} // namespace clitest
