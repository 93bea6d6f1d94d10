// The traffic camera's parking indicator lamps and its control board (SIB), as the simulated
// platform drives them: what the lamps show after the requests the platform accepted, whether
// the board's link is open, what its lamps do, the last RS-485 loop test, and the board type and
// version text it reports (from the scenario's [control_board]).
//
// The platform answers every operation from its scripts as for any other operation (platform.h);
// this model only watches the calls and their answers and keeps the state they leave behind, so
// a test can ask what is lit, and the journal (and with it the shell's --trace) gets a note each
// time something one can see changes: "parking lamps lit: 1", "parking lamps lit: none",
// "control board: power lamp 1". The flash
// thread and the shell's thread drive the lamps at once, so everything here is guarded.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "core/time.h"

namespace sim
{

struct PlatformCall;

// What a scenario says the control board reports.
struct ControlBoardScript {
    std::optional<uint32_t> board_type; // DRV_SIBBoardTypeGet
    std::optional<std::string> version; // DRV_SIBVersionGet: up to 8 characters (8: no terminator)
};

// One RS-485 loop test as the board library was asked for it.
struct Rs485Test {
    uint32_t arg1 = 0;
    uint32_t arg2 = 0;
    uint32_t arg3 = 0; // the byte the library handed over
    uint32_t baud_rate = 0;
    int64_t result = 0;
    Nanos time = 0;
};

class BoardModel
{
  public:
    // The version area DRV_SIBVersionGet fills.
    static constexpr size_t kVersionAreaSize = 8;

    // Dark lamps, a closed board link, nothing asked yet; the board reports what `script` says.
    void reset(const ControlBoardScript &script = {});
    // Called by the platform after every operation, with what it answered.
    void observe(const PlatformCall &call, int64_t result);

    // ---- Parking lamps: colour codes lit now (the platform's 1, 3, 4...) ----
    std::set<uint32_t> lit() const;
    bool lit(uint32_t colour) const;

    // ---- Control board ----
    bool open() const;
    int open_attempts() const;
    // The running-light test's period in ms while it runs (0: stopped or never started), and
    // the lamp group it runs on.
    uint32_t running_light_period_ms() const;
    uint32_t running_light_group() const;
    // The power lamp's state word of the last accepted request; none before one.
    std::optional<uint32_t> power_lamp() const;
    std::optional<Rs485Test> last_rs485_test() const;
    // Board operations made while the link was not open: the library opens it first, so a
    // camera's board library never sees one; anything but 0 is a fault of the caller.
    int calls_before_open() const;
    // What the scenario said the board reports.
    ControlBoardScript reports() const;

  private:
    void observe_park_led(const PlatformCall &call, int64_t result);
    void observe_board(const PlatformCall &call, int64_t result);

    mutable std::mutex mutex_;
    std::set<uint32_t> lit_;
    bool open_ = false;
    int open_attempts_ = 0;
    uint32_t running_light_period_ms_ = 0;
    uint32_t running_light_group_ = 0;
    std::optional<uint32_t> power_lamp_;
    std::optional<Rs485Test> last_rs485_;
    int calls_before_open_ = 0;
    ControlBoardScript reports_;
};

BoardModel &board_model();

} // namespace sim
