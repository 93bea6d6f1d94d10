#include "checks.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "number.h"

namespace shell
{
namespace
{

struct Token {
    std::string text;
    bool quoted = false;
    bool comma = false;
};

std::string tokenize(std::string_view text, std::vector<Token> &tokens)
{
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
            continue;
        }
        if (c == ',') {
            tokens.push_back({",", false, true});
            ++i;
            continue;
        }
        Token token;
        if (c == '"') {
            token.quoted = true;
            ++i;
            bool closed = false;
            while (i < text.size()) {
                const char d = text[i++];
                if (d == '"') {
                    closed = true;
                    break;
                }
                if (d == '\\' && i < text.size() && text[i] == '"')
                    token.text += text[i++];
                else
                    token.text += d;
            }
            if (!closed)
                return "a quote is not closed";
        } else {
            while (i < text.size() && text[i] != ' ' && text[i] != '\t' && text[i] != ',' && text[i] != '\r')
                token.text += text[i++];
        }
        tokens.push_back(std::move(token));
    }
    return {};
}

std::optional<double> as_number(const std::string &text)
{
    if (text.empty())
        return std::nullopt;
    int64_t integer = 0;
    // Decimal or 0x hex, leading zeros decimal ("012" is twelve), as every number the shell reads.
    if (parse_integer(text, INT64_MIN + 1, UINT32_MAX, "a number", integer).empty())
        return static_cast<double>(integer);
    char *end = nullptr;
    errno = 0;
    const double value = strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(value))
        return std::nullopt;
    return value;
}

const std::pair<std::string_view, Limit::Op> kOperators[] = {
    {"=", Limit::Op::Equal},           {"==", Limit::Op::Equal},
    {"!=", Limit::Op::NotEqual},       {"<", Limit::Op::Less},
    {"<=", Limit::Op::LessOrEqual},    {">", Limit::Op::Greater},
    {">=", Limit::Op::GreaterOrEqual}, {"in", Limit::Op::Range},
    {"~", Limit::Op::Pattern},
};

std::string names_of(const std::vector<Quantity> &measured)
{
    std::string names;
    for (const Quantity &quantity : measured)
        names += (names.empty() ? "" : ", ") + quantity.name;
    return names.empty() ? "none" : names;
}

// The characters of the escape at `at` (a backslash): the backslash and the character after it,
// or three for a control escape, "\cX", whose letter X the pattern compiler takes whatever it is,
// a backslash too ("\c\\5" is a control character and a back-reference \5).
size_t escape_length(const std::string &pattern, size_t at)
{
    if (at + 1 >= pattern.size())
        return 1;
    return pattern[at + 1] == 'c' && at + 2 < pattern.size() ? 3 : 2;
}

// How many matcher states a pattern comes to, at most: std::regex copies a group or character
// once per count of a repetition ("x{1,500}" is 500 copies of x, and "(x{100}){100}" ten
// thousand), so counts multiply along a chain of repetitions and down nested groups; '*', '+'
// and '?' only loop. Saturates far above any limit. Groups nested deeper than the compiler should recurse
// come out as too many.
uint64_t pattern_states(const std::string &pattern)
{
    constexpr uint64_t kSaturated = uint64_t{1} << 40;
    constexpr size_t kDeepestGroups = 32;
    struct Group {
        uint64_t alternatives = 0; // the states of the alternatives before the current one
        uint64_t current = 0;      // the states of the current alternative so far
        uint64_t last = 0;         // of those, the last atom's with its repetitions
    };
    const auto cap = [&](uint64_t value) { return std::min(value, kSaturated); };
    std::vector<Group> open(1);
    const auto add_atom = [&](uint64_t states) {
        open.back().last = states;
        open.back().current = cap(open.back().current + states);
    };
    const auto repeat = [&](uint64_t times) {
        Group &group = open.back();
        group.current -= group.last;
        group.last = cap(group.last * times);
        group.current = cap(group.current + group.last);
    };
    const auto loop = [&] {
        Group &group = open.back();
        group.last = cap(group.last + 1);
        group.current = cap(group.current + 1);
    };
    const auto close = [&] {
        const uint64_t states = cap(open.back().alternatives + open.back().current + 2);
        open.pop_back();
        add_atom(states);
    };
    for (size_t i = 0; i < pattern.size(); ++i) {
        const char c = pattern[i];
        if (c == '\\') {
            i += escape_length(pattern, i) - 1; // an escape is one atom
            add_atom(1);
        } else if (c == '[') {
            // A bracket expression is one atom, whatever it lists; a ']' first in it is listed.
            size_t k = i + 1;
            if (k < pattern.size() && pattern[k] == '^')
                ++k;
            if (k < pattern.size() && pattern[k] == ']')
                ++k;
            while (k < pattern.size() && pattern[k] != ']')
                k += pattern[k] == '\\' ? escape_length(pattern, k) : 1;
            i = k;
            add_atom(1);
        } else if (c == '(') {
            if (open.size() > kDeepestGroups)
                return kSaturated;
            open.emplace_back();
            if (i + 2 < pattern.size() && pattern[i + 1] == '?')
                i += 2; // (?: (?= (?!
        } else if (c == ')' && open.size() > 1) {
            close();
        } else if (c == '|') {
            Group &group = open.back();
            group.alternatives = cap(group.alternatives + group.current + 1);
            group.current = 0;
            group.last = 0;
        } else if (c == '*' || c == '+' || c == '?') {
            loop(); // a loop around the atom: no copies
        } else if (c == '{') {
            // {n}, {n,} or {n,m}: as many copies as the larger count (one more for an open end).
            uint64_t counts[2] = {0, 0};
            int which = 0;
            bool open_end = false;
            size_t k = i + 1;
            for (; k < pattern.size() && pattern[k] != '}'; ++k) {
                if (pattern[k] == ',' && which == 0) {
                    which = 1;
                    open_end = true;
                } else if (pattern[k] >= '0' && pattern[k] <= '9') {
                    counts[which] = cap(counts[which] * 10 + static_cast<uint64_t>(pattern[k] - '0'));
                    open_end = false;
                } else {
                    break;
                }
            }
            if (k < pattern.size() && pattern[k] == '}' && k > i + 1) {
                repeat(std::max<uint64_t>(std::max(counts[0], counts[1]) + (open_end ? 1 : 0), 1));
                i = k;
            } else {
                add_atom(1); // a brace that opens no count stands for itself
            }
        } else {
            add_atom(1);
        }
    }
    while (open.size() > 1)
        close();
    return cap(open.back().alternatives + open.back().current);
}

// What std::regex must not be handed: a back-reference (the breadth-first matcher takes none), a
// repetition count too large to hold (libstdc++ reads the digits of "\5555..." and "{99999...}"
// into a long without a bound, which overflows), and repetitions that come to more states than a
// script line's pattern needs: libstdc++ builds up to 100,000 before it gives up, which takes
// seconds on a camera, and its compiler recurses once per nested group. Empty when the pattern
// may go on to be compiled.
std::string pattern_refusal(const std::string &pattern)
{
    constexpr size_t kLongestCount = 4; // counts up to 9999; more would exceed the matcher's states anyway
    constexpr uint64_t kMostStates = 4096;
    if (pattern_states(pattern) > kMostStates)
        return "'" + pattern + "': a pattern takes no back-references and must stay small";
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\' && i + 1 < pattern.size()) {
            if (pattern[i + 1] >= '1' && pattern[i + 1] <= '9')
                return "'" + pattern + "': a pattern takes no back-references and must stay small";
            i += escape_length(pattern, i) - 1; // an escape stands for one character
            continue;
        }
        if (pattern[i] != '{')
            continue;
        size_t digits = 0;
        for (size_t k = i + 1; k < pattern.size() && pattern[k] != '}'; ++k) {
            digits = pattern[k] >= '0' && pattern[k] <= '9' ? digits + 1 : 0;
            if (digits > kLongestCount)
                return "'" + pattern + "': a pattern takes no back-references and must stay small";
        }
    }
    return {};
}

std::string read_limit(const std::vector<Token> &clause, const std::vector<Quantity> &measured, Limit &limit)
{
    if (clause.size() != 3)
        return "'" + clause[0].text + "': a limit is NAME OPERATOR VALUE (such as satellites_in_use >= 4)";
    limit.name = clause[0].text;
    const auto quantity = std::find_if(measured.begin(), measured.end(),
                                       [&](const Quantity &s) { return s.name == limit.name; });
    if (quantity == measured.end())
        return "no measurement '" + limit.name + "' (this command measures: " + names_of(measured) + ")";
    const auto op = std::find_if(std::begin(kOperators), std::end(kOperators),
                                 [&](const auto &known) { return known.first == clause[1].text; });
    if (op == std::end(kOperators) || clause[1].quoted)
        return "'" + clause[1].text + "' is not a limit (=, !=, <, <=, >, >=, in, ~)";
    limit.op = op->second;
    const std::string value = clause[2].text;
    limit.written = clause[1].text + " " + (clause[2].quoted ? "\"" + value + "\"" : value);
    const bool numeric = quantity->kind != Kind::Text;
    if (limit.op == Limit::Op::Pattern) {
        // Matched breadth first (libstdc++'s polynomial mode): a backtracking matcher takes
        // for ever on nested repetition ("a**b", a typo away from "a*b") and would stall the
        // station on a text that does not match. That mode takes no back-references.
        if (std::string refusal = pattern_refusal(value); !refusal.empty())
            return refusal;
        try {
            limit.pattern = std::regex(value, std::regex::ECMAScript | std::regex_constants::__polynomial);
        } catch (const std::regex_error &error) {
            if (error.code() == std::regex_constants::error_complexity ||
                error.code() == std::regex_constants::error_space)
                return "'" + value + "': a pattern takes no back-references and must stay small";
            return "'" + value + "' is not a regular expression";
        }
        limit.values = {value};
        return {};
    }
    if (limit.op == Limit::Op::Range) {
        if (const size_t dots = value.find(".."); dots != std::string::npos && !clause[2].quoted) {
            if (!numeric)
                return limit.name + " is text: a range needs a number";
            limit.values = {value.substr(0, dots), value.substr(dots + 2)};
        } else {
            limit.op = Limit::Op::Set;
            for (size_t i = 0; i <= value.size();) {
                const size_t bar = std::min(value.find('|', i), value.size());
                limit.values.push_back(value.substr(i, bar - i));
                i = bar + 1;
            }
        }
    } else {
        limit.values = {value};
        if (!numeric && limit.op != Limit::Op::Equal && limit.op != Limit::Op::NotEqual)
            return limit.name + " is text: compare it with =, !=, in or ~";
    }
    if (numeric) {
        for (const std::string &text : limit.values) {
            const auto number = as_number(text);
            if (!number)
                return "'" + text + "' is not a number, and " + limit.name + " is " +
                       kind_name(quantity->kind);
            limit.numbers.push_back(*number);
        }
        if (limit.op == Limit::Op::Range && limit.numbers[0] > limit.numbers[1])
            return "the range " + value + " runs backwards";
    }
    return {};
}

std::string read_option(const std::vector<Token> &clause, StepOptions &options)
{
    if (clause.size() != 2 && !(clause.size() == 3 && clause[0].text == "timeout" && clause[2].text == "s"))
        return clause[0].text == "retry" ? "retry takes a count: retry 2"
                                         : "timeout takes seconds: timeout 40";
    if (clause[0].text == "retry") {
        int64_t count = 0;
        if (std::string error = parse_integer(clause[1].text, 0, 100, "a retry count", count); !error.empty())
            return "retry: " + error;
        options.retries = static_cast<int>(count);
        return {};
    }
    const auto seconds = as_number(clause[1].text);
    if (!seconds || *seconds <= 0)
        return "timeout: '" + clause[1].text + "' is not a number of seconds above 0";
    options.timeout_s = *seconds;
    return {};
}

} // namespace

std::string parse_checks(std::string_view text, const std::vector<Quantity> &measured, StepOptions &options)
{
    std::vector<Token> tokens;
    if (std::string error = tokenize(text, tokens); !error.empty())
        return error;
    if (tokens.empty())
        return {};
    if (!tokens.front().comma)
        return "write a comma between the expected status and what follows: => 0, " + tokens.front().text +
               " ...";
    std::vector<std::vector<Token>> clauses(1);
    for (size_t i = 1; i < tokens.size(); ++i) {
        if (tokens[i].comma)
            clauses.emplace_back();
        else
            clauses.back().push_back(tokens[i]);
    }
    for (const std::vector<Token> &clause : clauses) {
        if (clause.empty())
            return "an empty check between two commas";
        if (!clause[0].quoted && (clause[0].text == "retry" || clause[0].text == "timeout")) {
            if (std::string error = read_option(clause, options); !error.empty())
                return error;
            continue;
        }
        Limit limit;
        if (std::string error = read_limit(clause, measured, limit); !error.empty())
            return error;
        options.limits.push_back(std::move(limit));
    }
    return {};
}

bool within(const Limit &limit, const Measurement &measurement, std::string &why)
{
    const std::string measured = limit.name + " = " + show(measurement);
    why = measured + ", limit " + limit.written;
    if (!measurement.present) {
        why = limit.name + " was not printed, limit " + limit.written;
        return false;
    }
    if (limit.op == Limit::Op::Pattern)
        return std::regex_search(measurement.text, limit.pattern);
    const bool numeric = !limit.numbers.empty();
    if (numeric && !measurement.number) {
        why = measured + " is not a number, limit " + limit.written;
        return false;
    }
    const double value = numeric ? *measurement.number : 0;
    const auto equal = [&](size_t i) {
        return numeric ? value == limit.numbers[i] : measurement.text == limit.values[i];
    };
    switch (limit.op) {
    case Limit::Op::Equal:
        return equal(0);
    case Limit::Op::NotEqual:
        return !equal(0);
    case Limit::Op::Less:
        return value < limit.numbers[0];
    case Limit::Op::LessOrEqual:
        return value <= limit.numbers[0];
    case Limit::Op::Greater:
        return value > limit.numbers[0];
    case Limit::Op::GreaterOrEqual:
        return value >= limit.numbers[0];
    case Limit::Op::Range:
        return value >= limit.numbers[0] && value <= limit.numbers[1];
    case Limit::Op::Set:
        for (size_t i = 0; i < limit.values.size(); ++i)
            if (equal(i))
                return true;
        return false;
    case Limit::Op::Pattern:
        break;
    }
    return false;
}

} // namespace shell
