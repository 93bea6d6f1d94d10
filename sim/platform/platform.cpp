#include "platform/platform.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "core/fault.h"
#include "core/journal.h"
#include "core/replay.h"
#include "platform/board_model.h"

namespace sim
{

Platform &platform()
{
    static Platform *instance = new Platform;
    return *instance;
}

void Platform::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    scripts_.clear();
    alarm_count_ = CliAlarmCount{};
}

OpScript &Platform::script(const std::string &operation)
{
    std::lock_guard<std::mutex> hold(mutex_);
    return scripts_[operation];
}

namespace
{

std::string numbers_text(const std::vector<int64_t> &numbers, const std::vector<std::string> &texts)
{
    std::string text = "(";
    for (const int64_t number : numbers)
        text += (text.size() > 1 ? ", " : "") + std::to_string(number);
    for (const std::string &word : texts)
        text += (text.size() > 1 ? ", \"" : "\"") + word + "\"";
    return text + ")";
}

} // namespace

int64_t Platform::answer_recorded(PlatformCall &call)
{
    RecordedCall expected;
    bool have = false;
    int number = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        OpScript &script = scripts_[call.name];
        number = ++script.calls;
        if (!script.recorded.empty()) {
            expected = script.recorded.front();
            script.recorded.pop_front();
            have = true;
        }
    }
    const std::string which = "call " + std::to_string(number);
    if (!have) {
        replay().depart(call.name, which + numbers_text(call.numbers, call.texts) +
                                       "; the recording has no more calls of it");
        return -1;
    }
    if (expected.args != call.numbers || expected.texts != call.texts) {
        replay().depart(call.name, which + numbers_text(call.numbers, call.texts) +
                                       " where the recording has " +
                                       numbers_text(expected.args, expected.texts));
        return -1;
    }
    void *record = call.records.empty() ? nullptr : call.records[0];
    const size_t size = call.record_sizes.empty() ? 0 : call.record_sizes[0];
    if (expected.sent && record != nullptr) {
        const auto *bytes = static_cast<const uint8_t *>(record);
        const std::vector<uint8_t> passed(bytes, bytes + size);
        if (passed != *expected.sent) {
            replay().depart(call.name, which + " passes the record " + hex_bytes(passed) +
                                           " where the recording has " + hex_bytes(*expected.sent));
            return -1;
        }
    }
    if (record != nullptr && !expected.bytes.empty())
        memcpy(record, expected.bytes.data(), std::min(size, expected.bytes.size()));
    if (call.name == "drv_GetAlarmCnt" && !expected.bytes.empty()) {
        std::lock_guard<std::mutex> hold(mutex_);
        memcpy(&alarm_count_, expected.bytes.data(), std::min(sizeof alarm_count_, expected.bytes.size()));
    }
    return expected.result;
}

int64_t Platform::answer(PlatformCall &call)
{
    if (replay().active())
        return answer_recorded(call);
    std::function<int64_t(PlatformCall &)> hook;
    int64_t result = 0;
    std::vector<uint8_t> out;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        OpScript &script = scripts_[call.name];
        ++script.calls;
        hook = script.hook;
        if (!hook && !script.sequence.empty()) { // while a hook answers, the sequence waits
            result = script.sequence.front();
            script.sequence.pop_front();
        } else if (script.result) {
            result = *script.result;
        }
        out = script.out;
    }
    if (!out.empty() && !call.records.empty() && call.records[0] != nullptr)
        memcpy(call.records[0], out.data(), std::min(out.size(), call.record_sizes[0]));
    if (hook)
        result = hook(call);
    return result;
}

namespace
{

// Collects one argument of a platform call.
template <typename T> void collect(PlatformCall &call, T value)
{
    if constexpr (std::is_same_v<T, const char *> || std::is_same_v<T, char *>) {
        call.texts.emplace_back(value != nullptr ? value : "(null)");
        call.values.push_back(reinterpret_cast<intptr_t>(value));
    } else if constexpr (std::is_pointer_v<T>) {
        call.records.push_back(const_cast<void *>(static_cast<const void *>(value)));
        call.record_sizes.push_back(sizeof(std::remove_pointer_t<T>));
        call.values.push_back(reinterpret_cast<intptr_t>(value));
    } else {
        call.values.push_back(static_cast<int64_t>(value));
        call.numbers.push_back(static_cast<int64_t>(value));
    }
}

// One argument as the journal shows it: numbers in decimal, records as their 32-bit words.
template <typename T> std::string show(T value, size_t size)
{
    if constexpr (std::is_same_v<T, const char *> || std::is_same_v<T, char *>) {
        return value != nullptr ? "\"" + std::string(value) + "\"" : "NULL";
    } else if constexpr (std::is_pointer_v<T>) {
        if (value == nullptr)
            return "NULL";
        const auto *record_bytes = reinterpret_cast<const uint8_t *>(value);
        std::string text = "{";
        for (size_t offset = 0; offset + 4 <= size; offset += 4) {
            uint32_t word = 0;
            memcpy(&word, record_bytes + offset, 4);
            text += (offset == 0 ? "" : ", ") + std::to_string(word);
        }
        if constexpr (std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, CliSibVersion>) {
            text = "{\"";
            for (size_t i = 0; i < size && record_bytes[i] != 0; ++i)
                text += static_cast<char>(record_bytes[i]);
            text += "\"";
        }
        return text + "}";
    } else {
        return std::to_string(static_cast<int64_t>(value));
    }
}

template <typename R, typename... A> R call_platform(const char *name, A... args)
{
    PlatformCall call;
    call.name = name;
    (collect(call, args), ...);
    // An operation that answers with a status can fail as the closed library's do: -1, or 1 from
    // the Wi-Fi configuration, whose only failure is 1.
    int64_t result = 0;
    if (std::is_same_v<R, int32_t> && fault_point().fails(Fault::Platform, [&] { return std::string(name); }))
        result = strcmp(name, "DRV_SetWifiCfg") == 0 ? 1 : -1;
    else
        result = platform().answer(call);

    Entry entry;
    entry.kind = Kind::Platform;
    entry.name = name;
    entry.values = call.values;
    for (size_t i = 0; i < call.records.size(); ++i) {
        const auto *bytes = static_cast<const uint8_t *>(call.records[i]);
        entry.records.emplace_back(bytes != nullptr
                                       ? std::vector<uint8_t>(bytes, bytes + call.record_sizes[i])
                                       : std::vector<uint8_t>{});
    }
    entry.result = result;
    std::string text = std::string(name) + "(";
    bool first = true;
    ((text += (first ? "" : ", ") + show(args, sizeof(std::remove_pointer_t<A>)), first = false), ...);
    entry.text = text + ") -> " + std::to_string(result);
    journal().add(entry);
    // The parking lamps and the control board keep what the accepted requests left them showing.
    board_model().observe(call, result);

    if constexpr (std::is_same_v<R, CliAlarmCount *>) {
        return &platform().alarm_count();
    } else {
        return static_cast<R>(result);
    }
}

} // namespace

const std::vector<std::string> &platform_operations()
{
    static const std::vector<std::string> names = {
#define CLI_PLATFORM(library, ret, name, params, args) #name,
#include "clidriver/platform.def"
    };
    return names;
}

} // namespace sim

// ---- The operations themselves, one per row of the platform list ------------------------------

#define SIM_FORWARD(...) __VA_OPT__(, ) __VA_ARGS__
#define CLI_PLATFORM(library, ret, name, params, args)                                                       \
    extern "C" ret name params                                                                               \
    {                                                                                                        \
        return sim::call_platform<ret>(#name SIM_FORWARD args);                                              \
    }
#include "clidriver/platform.def"

// The console print sink: the text unchanged into the journal and, in the shell, onto the console.
extern "C" int Cli_Common_Print(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, args);
    va_end(args);
    if (length < 0)
        return length;
    sim::Entry entry;
    entry.kind = sim::Kind::Print;
    entry.name = "Cli_Common_Print";
    entry.text.assign(text, static_cast<size_t>(length));
    free(text);
    if (FILE *console = sim::platform().console()) {
        fwrite(entry.text.data(), 1, entry.text.size(), console);
        fflush(console);
    }
    sim::journal().add(entry);
    return length;
}
