// One command bound to its C function pointer: the shell learns from the pointer's type which
// words the operator types, what it lends, and whether a status word comes back.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "arguments.h"
#include "signature.h"

namespace shell
{

// A call with every argument parsed and every buffer lent, ready to run once.
class PreparedCall
{
  public:
    virtual ~PreparedCall() = default;
    // Runs the command; its status word, or nothing for a command that returns nothing.
    virtual std::optional<int64_t> invoke() = 0;
    // The lines printed after the call: result words, buffers, serial records, edited strings.
    virtual Lines outputs() const = 0;
    // What the command handed back through what the shell lent, as measurements.
    virtual Measurements measured() const = 0;
};

class Callable
{
  public:
    virtual ~Callable() = default;
    virtual bool thread_body() const = 0; // void *(void *): started on a thread by the library
    virtual bool return_supported() const = 0;
    virtual int unsupported_param() const = 0; // index of the first parameter the shell cannot supply, or -1
    virtual bool returns_status() const = 0;
    virtual int64_t status_lowest() const = 0;
    virtual uint64_t status_highest() const = 0;
    virtual size_t words() const = 0; // how many words the operator types
    // Per parameter: true when the operator types it, false when the shell lends it.
    virtual std::vector<bool> typed() const = 0;
    // The measurements of what the shell lends, named after the parameters.
    virtual Quantities lent_measurements(const std::vector<Param> &params) const = 0;
    // Parses `words` and lends buffers. On a refusal: null, and `error` says why.
    virtual std::unique_ptr<PreparedCall> prepare(const std::vector<Param> &params,
                                                  const std::vector<std::string> &words,
                                                  std::string &error) const = 0;
};

template <typename R, typename... A> class Bound final : public Callable
{
  public:
    using Function = R (*)(A...);
    explicit Bound(Function function) : function_(function) {}

    static constexpr bool kThreadBody =
        std::is_same_v<R, void *> && sizeof...(A) == 1 && (std::is_same_v<A, void *> && ...);
    static constexpr bool kReturnSupported = [] {
        if constexpr (std::is_void_v<R>)
            return true;
        else
            return std::is_integral_v<R> && !std::is_same_v<R, bool> && sizeof(R) <= 4;
    }();
    static constexpr bool kArgsSupported = (Rule<A>::kSupported && ...);
    static constexpr bool kCallable = !kThreadBody && kReturnSupported && kArgsSupported;

    bool thread_body() const override { return kThreadBody; }
    bool return_supported() const override { return kReturnSupported; }
    int unsupported_param() const override
    {
        int index = 0;
        int found = -1;
        ((found < 0 && !Rule<A>::kSupported ? found = index : 0, ++index), ...);
        return found;
    }
    bool returns_status() const override { return !std::is_void_v<R>; }
    int64_t status_lowest() const override
    {
        if constexpr (kReturnSupported && !std::is_void_v<R>)
            return std::numeric_limits<R>::min();
        return std::numeric_limits<int64_t>::min();
    }
    uint64_t status_highest() const override
    {
        if constexpr (kReturnSupported && !std::is_void_v<R>)
            return static_cast<uint64_t>(std::numeric_limits<R>::max());
        return std::numeric_limits<int64_t>::max();
    }
    size_t words() const override { return (static_cast<size_t>(Rule<A>::kWords) + ... + 0); }
    std::vector<bool> typed() const override { return {(Rule<A>::kWords == 1)...}; }
    Quantities lent_measurements(const std::vector<Param> &params) const override
    {
        Quantities quantities;
        if constexpr (kCallable)
            describe_all(params, quantities, std::index_sequence_for<A...>{});
        return quantities;
    }

    std::unique_ptr<PreparedCall> prepare(const std::vector<Param> &params,
                                          const std::vector<std::string> &words,
                                          std::string &error) const override
    {
        if (words.size() != this->words()) {
            error = "takes " + std::to_string(this->words()) + " words, " + std::to_string(words.size()) +
                    " given";
            return nullptr;
        }
        if constexpr (kCallable) {
            auto call = std::make_unique<Prepared>(function_, params);
            error = call->parse(words);
            if (!error.empty())
                return nullptr;
            return call;
        } else {
            error = "cannot be called from the shell";
            return nullptr;
        }
    }

  private:
    class Prepared final : public PreparedCall
    {
      public:
        Prepared(Function function, const std::vector<Param> &params) : function_(function), params_(params)
        {
        }

        std::string parse(const std::vector<std::string> &words)
        {
            return parse_all(words, std::index_sequence_for<A...>{});
        }

        std::optional<int64_t> invoke() override
        {
            return std::apply(
                [this](auto &...rules) -> std::optional<int64_t> {
                    if constexpr (std::is_void_v<R>) {
                        function_(rules.get()...);
                        return std::nullopt;
                    } else {
                        return static_cast<int64_t>(function_(rules.get()...));
                    }
                },
                rules_);
        }

        Lines outputs() const override
        {
            Lines lines;
            report_all(lines, std::index_sequence_for<A...>{});
            return lines;
        }

        Measurements measured() const override
        {
            Measurements measurements;
            measure_all(measurements, std::index_sequence_for<A...>{});
            return measurements;
        }

      private:
        template <size_t... I>
        std::string parse_all(const std::vector<std::string> &words, std::index_sequence<I...>)
        {
            ParseContext context;
            [[maybe_unused]] size_t next = 0;
            std::string error;
            // Every word first, so that buffers are lent knowing every number typed.
            (
                [&] {
                    auto &rule = std::get<I>(rules_);
                    if (!error.empty() || rule.kWords == 0)
                        return;
                    error = rule.parse(words.at(next++), params_[I], context);
                    if (!error.empty())
                        error = params_[I].name + ": " + error;
                }(),
                ...);
            (
                [&] {
                    if (error.empty())
                        error = std::get<I>(rules_).lend(context, params_[I]);
                }(),
                ...);
            return error;
        }

        template <size_t... I> void report_all(Lines &lines, std::index_sequence<I...>) const
        {
            (std::get<I>(rules_).report(params_[I], lines), ...);
        }

        template <size_t... I> void measure_all(Measurements &out, std::index_sequence<I...>) const
        {
            (std::get<I>(rules_).measure(params_[I], out), ...);
        }

        Function function_;
        std::vector<Param> params_;
        std::tuple<Rule<A>...> rules_;
    };

    template <size_t... I>
    static void describe_all(const std::vector<Param> &params, Quantities &quantities,
                             std::index_sequence<I...>)
    {
        if (params.size() == sizeof...(A))
            (Rule<A>::describe(params[I], quantities), ...);
    }

    Function function_;
};

template <typename R, typename... A> std::unique_ptr<Callable> bind(R (*function)(A...))
{
    return std::make_unique<Bound<R, A...>>(function);
}

} // namespace shell
