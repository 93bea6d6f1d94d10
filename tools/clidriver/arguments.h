// How the shell supplies each parameter of a command, chosen by the parameter's C++ type:
// numbers and strings come from the operator's words; result words, serial port records and
// buffers are lent by the shell, zeroed, and printed after the call. A type with no rule here
// makes the command one the shell cannot call.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/time.h>
#include <type_traits>
#include <vector>

#include "clidriver/clidriver.h"
#include "measurement.h"
#include "number.h"
#include "signature.h"

namespace shell
{

using Lines = std::vector<std::string>;
using Quantities = std::vector<Quantity>;
using Measurements = std::vector<Measurement>;

// A value the shell lent and the command filled, as a measurement named after the parameter.
inline void add_measured(Measurements &out, std::string name, Kind kind, const std::string &text)
{
    Measurement measurement{Quantity{std::move(name), kind}};
    set_value(measurement, text);
    out.push_back(std::move(measurement));
}

// What the shell learns from all of a call's words before it lends any buffer.
struct ParseContext {
    uint64_t largest_number = 0; // the largest magnitude among the numeric arguments
};

// Buffers the shell lends are this size, or as large as the largest number among the arguments
// (a byte count typed for CLI_Treadn then always fits), up to kLargestBuffer.
constexpr size_t kBufferBytes = 1024;
constexpr uint64_t kLargestBuffer = 1u << 20;

inline std::string lend_size(const ParseContext &context, size_t at_least, const Param &param, size_t &size)
{
    if (context.largest_number > kLargestBuffer)
        return "a count of " + std::to_string(context.largest_number) + " is more than the " +
               std::to_string(kLargestBuffer) + " bytes the shell lends for " + param.name;
    size = std::max({kBufferBytes, at_least, static_cast<size_t>(context.largest_number)});
    return {};
}

// Every rule below has the same shape: kSupported, kWords (operator words it takes: 0 or 1),
// parse() for that word, lend() once every word is parsed, get() for the call, report() after,
// and for what it lends, describe() (the measurements, before the call) and measure() (after).
struct NoWord {
    static constexpr bool kSupported = true;
    static constexpr int kWords = 0;
    std::string parse(std::string_view, const Param &, ParseContext &) { return {}; }
};

struct OneWord {
    static constexpr bool kSupported = true;
    static constexpr int kWords = 1;
    std::string lend(const ParseContext &, const Param &) { return {}; }
    void report(const Param &, Lines &) const {}
    static void describe(const Param &, Quantities &) {}
    void measure(const Param &, Measurements &) const {}
};

template <typename T> struct Number : OneWord {
    T value{};
    std::string parse(std::string_view word, const Param &param, ParseContext &context)
    {
        std::string error = parse_number(word, param.type, value);
        if (error.empty()) {
            const int64_t wide = static_cast<int64_t>(value);
            context.largest_number =
                std::max(context.largest_number, static_cast<uint64_t>(wide < 0 ? -wide : wide));
        }
        return error;
    }
    T get() const { return value; }
};

struct Text : OneWord {
    std::string value;
    std::string parse(std::string_view word, const Param &, ParseContext &)
    {
        value = word;
        return {};
    }
    const char *get() const { return value.c_str(); }
};

// A string the command may write into (a sentence it splits, a destination it fills): the
// operator's text in a zeroed buffer, printed again after the call.
struct EditableText : OneWord {
    std::string word;
    std::vector<char> buffer;
    std::string parse(std::string_view text, const Param &, ParseContext &)
    {
        word = text;
        return {};
    }
    std::string lend(const ParseContext &context, const Param &param)
    {
        size_t size = 0;
        std::string error = lend_size(context, word.size() + 1, param, size);
        if (error.empty()) {
            buffer.assign(size, '\0');
            std::copy(word.begin(), word.end(), buffer.begin());
        }
        return error;
    }
    char *get() { return buffer.data(); }
    void report(const Param &param, Lines &lines) const
    {
        lines.push_back("  " + param.name + " = " + escape_text(text()));
    }
    static void describe(const Param &param, Quantities &quantities)
    {
        quantities.push_back({param.name, Kind::Text});
    }
    void measure(const Param &param, Measurements &out) const
    {
        add_measured(out, param.name, Kind::Text, text());
    }
    std::string text() const { return std::string(buffer.data(), strnlen(buffer.data(), buffer.size())); }
};

struct Timeout : OneWord {
    struct timeval value {
    };
    std::string parse(std::string_view word, const Param &, ParseContext &)
    {
        return parse_timeval(word, value);
    }
    struct timeval get() const { return value; }
};

// Raw bytes the command reads: the operator's bytes at the start of a zeroed buffer, so a length
// argument larger than what was typed reads zeros rather than memory the shell does not own.
template <typename T> struct Bytes : OneWord {
    std::vector<uint8_t> typed;
    std::vector<uint8_t> buffer;
    std::string parse(std::string_view word, const Param &, ParseContext &)
    {
        return parse_hex_bytes(word, typed);
    }
    std::string lend(const ParseContext &context, const Param &param)
    {
        size_t size = 0;
        std::string error = lend_size(context, typed.size(), param, size);
        if (error.empty()) {
            buffer.assign(size, 0);
            std::copy(typed.begin(), typed.end(), buffer.begin());
        }
        return error;
    }
    T get() const { return static_cast<T>(buffer.data()); }
};

// A result word the command stores through a pointer. A signed word starts at -1: it is a
// descriptor where the list has one (int *pFd), and a command that closes the descriptor it is
// handed then closes nothing of the shell's own (0 would be its standard input).
template <typename T> struct ResultWord : NoWord {
    T value = std::is_signed_v<T> ? static_cast<T>(-1) : T{};
    std::string lend(const ParseContext &, const Param &) { return {}; }
    T *get() { return &value; }
    void report(const Param &param, Lines &lines) const
    {
        using Unsigned = std::make_unsigned_t<T>;
        char hex[24];
        snprintf(hex, sizeof hex, "0x%llx", static_cast<unsigned long long>(static_cast<Unsigned>(value)));
        const std::string number = std::is_signed_v<T>
                                       ? std::to_string(static_cast<long long>(value))
                                       : std::to_string(static_cast<unsigned long long>(value));
        lines.push_back("  *" + param.name + " = " + number + " (" + hex + ")");
    }
    static void describe(const Param &param, Quantities &quantities)
    {
        quantities.push_back({param.name, Kind::Integer});
    }
    void measure(const Param &param, Measurements &out) const
    {
        add_measured(out, param.name, Kind::Integer,
                     std::is_signed_v<T> ? std::to_string(static_cast<long long>(value))
                                         : std::to_string(static_cast<unsigned long long>(value)));
    }
};

// A buffer the command fills: printed as hex up to its last non-zero byte.
template <typename T> struct Buffer : NoWord {
    std::vector<uint8_t> buffer;
    std::string lend(const ParseContext &context, const Param &param)
    {
        size_t size = 0;
        std::string error = lend_size(context, 0, param, size);
        if (error.empty())
            buffer.assign(size, 0);
        return error;
    }
    T get() { return static_cast<T>(buffer.data()); }
    void report(const Param &param, Lines &lines) const
    {
        const std::string bytes = used_bytes();
        lines.push_back("  " + param.name + " = " + (bytes.empty() ? std::string("(all zero)") : bytes));
    }
    // The bytes up to the last non-zero one, in hex.
    std::string used_bytes() const
    {
        size_t used = buffer.size();
        while (used > 0 && buffer[used - 1] == 0)
            --used;
        return used == 0 ? std::string() : hex_bytes(buffer.data(), used);
    }
    static void describe(const Param &param, Quantities &quantities)
    {
        quantities.push_back({param.name, Kind::Text});
    }
    void measure(const Param &param, Measurements &out) const
    {
        add_measured(out, param.name, Kind::Text, used_bytes());
    }
};

// The shell's serial port list: three zeroed records; the command fills path and flag.
struct SerialPorts : NoWord {
    std::array<CliSerialPort, 3> records{};
    std::string lend(const ParseContext &, const Param &) { return {}; }
    CliSerialPort *get() { return records.data(); }
    void report(const Param &param, Lines &lines) const
    {
        for (size_t i = 0; i < records.size(); ++i)
            lines.push_back("  " + param.name + "[" + std::to_string(i) + "] = " +
                            (records[i].pcDevPath != nullptr ? escape_text(records[i].pcDevPath) : "NULL") +
                            ", flag " + std::to_string(records[i].ulFlag));
    }
    static void describe(const Param &param, Quantities &quantities)
    {
        for (size_t i = 0; i < 3; ++i) {
            quantities.push_back({param.name + "[" + std::to_string(i) + "].path", Kind::Text});
            quantities.push_back({param.name + "[" + std::to_string(i) + "].flag", Kind::Integer});
        }
    }
    void measure(const Param &param, Measurements &out) const
    {
        for (size_t i = 0; i < records.size(); ++i) {
            const std::string name = param.name + "[" + std::to_string(i) + "]";
            Measurement path{Quantity{name + ".path", Kind::Text}};
            if (records[i].pcDevPath != nullptr)
                set_value(path, records[i].pcDevPath);
            out.push_back(std::move(path));
            add_measured(out, name + ".flag", Kind::Integer, std::to_string(records[i].ulFlag));
        }
    }
};

template <typename T> struct Unsupported {
    static constexpr bool kSupported = false;
    static constexpr int kWords = 0;
};

template <typename T> constexpr auto rule_for()
{
    using Pointee = std::remove_pointer_t<T>;
    if constexpr (std::is_same_v<T, const char *>)
        return std::type_identity<Text>{};
    else if constexpr (std::is_same_v<T, char *>)
        return std::type_identity<EditableText>{};
    else if constexpr (std::is_same_v<T, struct timeval>)
        return std::type_identity<Timeout>{};
    else if constexpr (std::is_same_v<T, CliSerialPort *>)
        return std::type_identity<SerialPorts>{};
    else if constexpr (std::is_same_v<T, const void *> || std::is_same_v<T, const uint8_t *>)
        return std::type_identity<Bytes<T>>{};
    else if constexpr (std::is_same_v<T, void *> || std::is_same_v<T, uint8_t *>)
        return std::type_identity<Buffer<T>>{};
    else if constexpr (std::is_pointer_v<T> && std::is_integral_v<Pointee> && !std::is_const_v<Pointee> &&
                       !std::is_same_v<Pointee, bool> && sizeof(Pointee) >= 2 && sizeof(Pointee) <= 4)
        return std::type_identity<ResultWord<Pointee>>{};
    else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool> && sizeof(T) <= 4)
        return std::type_identity<Number<T>>{};
    else
        return std::type_identity<Unsupported<T>>{};
}

template <typename T> using Rule = typename decltype(rule_for<T>())::type;

} // namespace shell
