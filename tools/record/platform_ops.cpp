// The camera platform's operations, one per row of the platform list, each passed to the
// platform's own definition and written down when the library called it: its number and text
// arguments, its result, and the first record it was handed, as passed and as left.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <type_traits>

#include "clidriver/platform.h"
#include "recorder.h"

using namespace record;

namespace
{

template <typename T> constexpr bool kText = std::is_same_v<T, const char *> || std::is_same_v<T, char *>;

template <typename T> void collect(PlatformCall &call, const void *&record, size_t &size, T value)
{
    if constexpr (kText<T>) {
        call.texts.emplace_back(value != nullptr ? value : "(null)");
    } else if constexpr (std::is_pointer_v<T>) {
        if (record == nullptr && size == 0) {
            record = value;
            size = value != nullptr ? sizeof(std::remove_pointer_t<T>) : 1; // 1: first record seen
        }
    } else {
        call.args.push_back(static_cast<int64_t>(value));
    }
}

// An operation the camera's libraries do not define: without the layer the shell would not have
// loaded, so this says so once and answers as a failure rather than jump to nothing.
template <typename R> R missing(const char *name)
{
    static std::mutex mutex;
    static auto *said = new std::set<std::string>;
    {
        std::lock_guard<std::mutex> hold(mutex);
        if (said->insert(name).second)
            fprintf(stderr, "clidriver-record: the camera platform has no %s\n", name);
    }
    if constexpr (std::is_same_v<R, CliAlarmCount *>) {
        static CliAlarmCount none = {};
        return &none;
    } else if constexpr (std::is_signed_v<R>) {
        return static_cast<R>(-1);
    } else {
        return static_cast<R>(0);
    }
}

template <typename R, typename... A>
R platform_call(const char *name, const void *caller, R (*next_op)(A...), std::type_identity_t<A>... args)
{
    if (next_op == nullptr)
        return missing<R>(name);
    // The platform answers the shell too (the station's header asks it for the product type): a
    // replay answers every call in order, so every call is written down, whoever made it.
    (void)caller;
    if (!recording())
        return next_op(args...);
    PlatformCall call;
    const void *record = nullptr;
    size_t size = 0;
    (collect(call, record, size, args), ...);
    const auto *record_bytes = static_cast<const uint8_t *>(record);
    if (record_bytes != nullptr)
        call.sent = Bytes(record_bytes, record_bytes + size);
    R result = next_op(args...);
    KeepErrno keep;
    if constexpr (std::is_pointer_v<R>) {
        // drv_GetAlarmCnt: the record the platform hands out is its answer.
        const auto *answer = reinterpret_cast<const uint8_t *>(result);
        if (answer != nullptr)
            call.bytes = Bytes(answer, answer + sizeof(std::remove_pointer_t<R>));
    } else {
        call.result = static_cast<int64_t>(result);
        if (record_bytes != nullptr)
            call.bytes = Bytes(record_bytes, record_bytes + size);
    }
    std::lock_guard<std::mutex> hold(state().mutex);
    state().recording.platform[name].push_back(std::move(call));
    return result;
}

} // namespace

#define RECORD_FORWARD(...) __VA_OPT__(, ) __VA_ARGS__
#define CLI_PLATFORM(library, ret, name, params, args)                                                       \
    extern "C" ret name params                                                                               \
    {                                                                                                        \
        using Next = ret(*) params;                                                                          \
        static const Next next_op = next<Next>(#name);                                                       \
        return platform_call<ret>(#name, __builtin_return_address(0), next_op RECORD_FORWARD args);          \
    }
#include "clidriver/platform.def"

// The console print sink: the text formatted here and handed on whole, so that the platform's sink
// (or the simulated camera's) prints exactly what the library meant.
extern "C" int Cli_Common_Print(const char *format, ...)
{
    using Print = int (*)(const char *, ...);
    static const auto next_print = next<Print>("Cli_Common_Print");
    if (format == nullptr)
        return -1;
    va_list args;
    va_start(args, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, args);
    va_end(args);
    if (length < 0)
        return length;
    int result = length;
    if (next_print != nullptr) {
        result = next_print("%s", text);
    } else {
        fwrite(text, 1, static_cast<size_t>(length), stdout); // no platform sink: the console itself
        fflush(stdout);
    }
    free(text);
    return result;
}
