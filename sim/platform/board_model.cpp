#include "platform/board_model.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "core/clock.h"
#include "core/journal.h"
#include "platform/platform.h"

namespace sim
{
namespace
{

// Words of the records the platform is handed.
constexpr size_t kParkColourWord = 1; // CliParkLedCtrl: group, colour, on, -, level
constexpr size_t kParkOnWord = 2;
constexpr size_t kPowerLampStateWord = 2; // CliSibPowerLamp: 1, 3, state

uint32_t record_word(const PlatformCall &call, size_t word)
{
    if (call.records.empty() || call.records[0] == nullptr || call.record_sizes[0] < (word + 1) * 4)
        return 0;
    uint32_t value = 0;
    memcpy(&value, static_cast<const uint8_t *>(call.records[0]) + word * 4, 4);
    return value;
}

uint32_t argument(const PlatformCall &call, size_t index)
{
    return index < call.values.size() ? static_cast<uint32_t>(call.values[index]) : 0;
}

void note(const char *what, const std::string &text)
{
    Entry entry;
    entry.kind = Kind::Note;
    entry.name = what;
    entry.text = text;
    journal().add(entry);
}

std::string lit_text(const std::set<uint32_t> &lit)
{
    std::string text;
    for (uint32_t colour : lit)
        text += (text.empty() ? "" : ", ") + std::to_string(colour);
    return text.empty() ? "none" : text;
}

bool is_board_operation(std::string_view name)
{
    return name == "DRV_SIBCliWaterLampTest" || name == "DRV_SIBPowerlLampCtl" || name == "DRV_SIBTest485" ||
           name == "DRV_SIBBoardTypeGet" || name == "DRV_SIBVersionGet";
}

} // namespace

BoardModel &board_model()
{
    // Never destroyed: a flash thread may still drive the lamps while the process exits.
    static BoardModel *instance = new BoardModel;
    return *instance;
}

void BoardModel::reset(const ControlBoardScript &script)
{
    std::lock_guard<std::mutex> hold(mutex_);
    lit_.clear();
    open_ = false;
    open_attempts_ = 0;
    running_light_period_ms_ = 0;
    running_light_group_ = 0;
    power_lamp_.reset();
    last_rs485_.reset();
    calls_before_open_ = 0;
    reports_ = script;
}

void BoardModel::observe(const PlatformCall &call, int64_t result)
{
    if (call.name == "DRV_SetParkLed")
        observe_park_led(call, result);
    else if (call.name == "DRV_OpenSIB" || is_board_operation(call.name))
        observe_board(call, result);
}

// A request the platform refused leaves the lamps as they were.
void BoardModel::observe_park_led(const PlatformCall &call, int64_t result)
{
    if (result != 0 || call.records.empty() || call.records[0] == nullptr)
        return;
    const uint32_t colour = record_word(call, kParkColourWord);
    const bool on = record_word(call, kParkOnWord) != 0;
    std::string text;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        const bool was = lit_.count(colour) != 0;
        if (was == on)
            return;
        if (on)
            lit_.insert(colour);
        else
            lit_.erase(colour);
        text = "parking lamps lit: " + lit_text(lit_);
    }
    note("parking lamps", text);
}

void BoardModel::observe_board(const PlatformCall &call, int64_t result)
{
    std::vector<std::string> notes;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (call.name == "DRV_OpenSIB") {
            ++open_attempts_;
            if (result == 0 && !open_) {
                open_ = true;
                notes.push_back("control board: link open");
            } else if (result != 0) {
                notes.push_back("control board: open refused (" + std::to_string(result) + ")");
            }
        } else {
            if (!open_)
                ++calls_before_open_;
            if (call.name == "DRV_SIBCliWaterLampTest" && result == 0) {
                running_light_group_ = argument(call, 0);
                running_light_period_ms_ = argument(call, 1);
                notes.push_back(running_light_period_ms_ == 0
                                    ? "control board: running lights off"
                                    : "control board: running lights on group " +
                                          std::to_string(running_light_group_) + " every " +
                                          std::to_string(running_light_period_ms_) + " ms");
            } else if (call.name == "DRV_SIBPowerlLampCtl" && result == 0 && !call.records.empty() &&
                       call.records[0] != nullptr) {
                power_lamp_ = record_word(call, kPowerLampStateWord);
                notes.push_back("control board: power lamp " + std::to_string(*power_lamp_));
            } else if (call.name == "DRV_SIBTest485") {
                Rs485Test test;
                test.arg1 = argument(call, 0);
                test.arg2 = argument(call, 1);
                test.arg3 = argument(call, 2);
                test.baud_rate = argument(call, 3);
                test.result = result;
                test.time = clock().now();
                last_rs485_ = test; // nothing to see: the platform's own entry shows the test
            }
        }
    }
    for (const std::string &text : notes)
        note("control board", text);
}

std::set<uint32_t> BoardModel::lit() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return lit_;
}

bool BoardModel::lit(uint32_t colour) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return lit_.count(colour) != 0;
}

bool BoardModel::open() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return open_;
}

int BoardModel::open_attempts() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return open_attempts_;
}

uint32_t BoardModel::running_light_period_ms() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return running_light_period_ms_;
}

uint32_t BoardModel::running_light_group() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return running_light_group_;
}

std::optional<uint32_t> BoardModel::power_lamp() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return power_lamp_;
}

std::optional<Rs485Test> BoardModel::last_rs485_test() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return last_rs485_;
}

int BoardModel::calls_before_open() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return calls_before_open_;
}

ControlBoardScript BoardModel::reports() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return reports_;
}

} // namespace sim
