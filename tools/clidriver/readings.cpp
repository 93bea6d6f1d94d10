#include "readings.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace shell
{
namespace
{

// The longest result line a reading is taken from: the library's longest is a receiver block
// printed whole (1024 bytes).
constexpr size_t kLongestResultLine = 4096;

struct Row {
    const char *command;
    const char *format;
    const char *names;
};

const Row kRows[] = {
#define CLI_READING(name, format, readings) {#name, format, readings},
#include "clidriver/readings.def"
};

struct Include {
    const char *command;
    const char *other;
};

const Include kIncludes[] = {
#define CLI_READINGS_OF(name, other) {#name, #other},
#include "clidriver/readings.def"
};

std::string regex_escape(char c)
{
    static const std::string kSpecial = "\\^$.|?*+()[]{}";
    return kSpecial.find(c) != std::string::npos ? std::string("\\") + c : std::string(1, c);
}

// One printf conversion at `format[i]` (just past the '%'): the pattern of what it prints, the
// kind of value it is, whether it prints hexadecimal. `i` ends past the conversion.
bool conversion(std::string_view format, size_t &i, std::string &pattern, Kind &kind, bool &hex)
{
    bool alternate = false;
    while (i < format.size() && std::string_view("-+ #0").find(format[i]) != std::string_view::npos)
        alternate = alternate || format[i++] == '#';
    while (i < format.size() && (std::isdigit(static_cast<unsigned char>(format[i])) || format[i] == '.'))
        ++i;
    while (i < format.size() && std::string_view("hlLqjzt").find(format[i]) != std::string_view::npos)
        ++i;
    if (i >= format.size())
        return false;
    hex = false;
    switch (format[i++]) {
    case 'd':
    case 'i':
        pattern = "(-?[0-9]+)";
        kind = Kind::Integer;
        return true;
    case 'u':
        pattern = "([0-9]+)";
        kind = Kind::Integer;
        return true;
    case 'x':
    case 'X':
        pattern = alternate ? "(0[xX][0-9a-fA-F]+|0)" : "([0-9a-fA-F]+)";
        kind = Kind::Integer;
        hex = true;
        return true;
    case 'f':
    case 'F':
    case 'e':
    case 'g':
        pattern = "(-?[0-9]+(?:\\.[0-9]*)?(?:[eE][-+]?[0-9]+)?|-?inf|-?nan)";
        kind = Kind::Real;
        return true;
    case 'c':
        pattern = "(.)";
        kind = Kind::Text;
        return true;
    case 's':
        pattern = "(.*)";
        kind = Kind::Text;
        return true;
    default:
        return false;
    }
}

bool valid_name(std::string_view name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::islower(c) || std::isdigit(c) || c == '_';
    });
}

// "voltage[V]", "longitude:real", "tag_ids*".
bool read_name(std::string word, Kind printed, Quantity &quantity, std::string &error)
{
    quantity = Quantity{};
    quantity.kind = printed;
    if (!word.empty() && word.back() == '*') {
        quantity.list = true;
        quantity.kind = Kind::Text;
        word.pop_back();
    }
    if (const size_t open = word.find('['); open != std::string::npos) {
        if (word.back() != ']') {
            error = "'" + word + "': a unit is written [UNIT] at the end";
            return false;
        }
        quantity.unit = word.substr(open + 1, word.size() - open - 2);
        word.resize(open);
    }
    if (const size_t colon = word.find(':'); colon != std::string::npos) {
        const std::string kind = word.substr(colon + 1);
        word.resize(colon);
        if (kind == "integer")
            quantity.kind = Kind::Integer;
        else if (kind == "real")
            quantity.kind = Kind::Real;
        else if (kind == "text")
            quantity.kind = Kind::Text;
        else {
            error = "'" + kind + "' is not a kind (integer, real or text)";
            return false;
        }
    }
    if (!valid_name(word)) {
        error = "'" + word + "' is not a reading name (lower-case letters, digits and _)";
        return false;
    }
    quantity.name = word;
    return true;
}

} // namespace

ReadingRule make_rule(std::string_view command, std::string_view format, std::string_view names,
                      std::string &error)
{
    ReadingRule rule;
    rule.command = command;
    rule.format = format;
    std::vector<Kind> kinds;
    std::string pattern = "^";
    for (size_t i = 0; i < format.size();) {
        const char c = format[i++];
        if (c == '\n') {
            rule.lines.emplace_back(pattern + "$");
            pattern = "^";
            continue;
        }
        if (c != '%') {
            pattern += regex_escape(c);
            continue;
        }
        if (i < format.size() && format[i] == '%') {
            pattern += "%";
            ++i;
            continue;
        }
        std::string group;
        Kind kind = Kind::Text;
        bool hex = false;
        if (!conversion(format, i, group, kind, hex)) {
            error = "a conversion the shell cannot read in \"" + std::string(format) + "\"";
            return rule;
        }
        pattern += group;
        kinds.push_back(kind);
        rule.hex.push_back(hex);
    }
    rule.lines.emplace_back(pattern + "$");

    std::vector<std::string> words;
    for (size_t i = 0; i < names.size();) {
        const size_t end = std::min(names.find(' ', i), names.size());
        if (end > i)
            words.emplace_back(names.substr(i, end - i));
        i = end + 1;
    }
    if (words.size() != kinds.size()) {
        error = std::to_string(kinds.size()) + " conversions in \"" + std::string(format) + "\" but " +
                std::to_string(words.size()) + " names";
        return rule;
    }
    for (size_t k = 0; k < words.size(); ++k) {
        Quantity quantity;
        if (!read_name(words[k], kinds[k], quantity, error))
            return rule;
        rule.fields.push_back(quantity);
    }
    return rule;
}

namespace
{

struct Rules {
    std::vector<ReadingRule> rules;
    std::vector<std::string> errors;
};

const Rules &all_rules()
{
    static const Rules rules = [] {
        Rules made;
        for (const Row &row : kRows) {
            std::string error;
            ReadingRule rule = make_rule(row.command, row.format, row.names, error);
            if (error.empty())
                made.rules.push_back(std::move(rule));
            else
                made.errors.push_back(std::string(row.command) + ": " + error);
        }
        return made;
    }();
    return rules;
}

// `command` and every name whose lines it prints, itself first.
std::vector<std::string> printers(std::string_view command)
{
    std::vector<std::string> names{std::string(command)};
    for (size_t i = 0; i < names.size() && i < 32; ++i)
        for (const Include &include : kIncludes)
            if (names[i] == include.command &&
                std::find(names.begin(), names.end(), include.other) == names.end())
                names.emplace_back(include.other);
    return names;
}

} // namespace

const std::vector<ReadingRule> &reading_rules()
{
    return all_rules().rules;
}

std::vector<std::string> reading_rule_errors()
{
    return all_rules().errors;
}

std::vector<Quantity> readings_of(std::string_view command)
{
    std::vector<Quantity> quantities;
    for (const std::string &name : printers(command))
        for (const ReadingRule &rule : reading_rules())
            if (rule.command == name)
                for (const Quantity &field : rule.fields)
                    if (std::none_of(quantities.begin(), quantities.end(),
                                     [&](const Quantity &known) { return known.name == field.name; }))
                        quantities.push_back(field);
    return quantities;
}

std::vector<Measurement> take_readings(std::string_view command, std::string_view out)
{
    std::vector<Measurement> measurements;
    for (const Quantity &quantity : readings_of(command))
        measurements.push_back(Measurement{quantity});
    if (measurements.empty())
        return measurements;
    std::vector<std::string> lines;
    for (size_t i = 0; i <= out.size();) {
        size_t end = out.find('\n', i);
        if (end == std::string_view::npos)
            end = out.size();
        // A line longer than any result line the library prints carries no reading; matching it
        // would only cost the pattern matcher (which recurses per character) its stack.
        if (end - i > kLongestResultLine) {
            lines.emplace_back();
            i = end + 1;
            continue;
        }
        std::string line(out.substr(i, end - i));
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(std::move(line));
        i = end + 1;
    }
    const std::vector<std::string> names = printers(command);
    for (const ReadingRule &rule : reading_rules()) {
        if (std::find(names.begin(), names.end(), rule.command) == names.end())
            continue;
        for (size_t first = 0; first + rule.lines.size() <= lines.size(); ++first) {
            std::vector<std::string> values;
            bool matched = true;
            for (size_t k = 0; k < rule.lines.size() && matched; ++k) {
                std::smatch match;
                matched = std::regex_match(lines[first + k], match, rule.lines[k]);
                for (size_t g = 1; matched && g < match.size(); ++g)
                    values.push_back(match[g].str());
            }
            if (!matched)
                continue;
            for (size_t f = 0; f < rule.fields.size() && f < values.size(); ++f) {
                for (Measurement &measurement : measurements) {
                    if (measurement.quantity.name != rule.fields[f].name)
                        continue;
                    if (!measurement.present || measurement.quantity.list)
                        set_value(measurement, values[f],
                                  rule.hex[f] && measurement.quantity.kind != Kind::Text);
                }
            }
        }
    }
    return measurements;
}

} // namespace shell
