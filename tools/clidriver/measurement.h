// A measurement: one named, typed value a command produced, either printed on one of its result
// lines (a reading, include/clidriver/readings.def) or handed back through an output argument the
// shell lent (*pulIn). Stations set limits on them; reports carry them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace shell
{

enum class Kind { Integer, Real, Text };

const char *kind_name(Kind kind); // "integer", "real", "text"

// What a command can measure: known before anything runs, so a script's limits are checked
// against it.
struct Quantity {
    Quantity() = default;
    Quantity(std::string name_, Kind kind_, std::string unit_ = {}, bool list_ = false)
        : name(std::move(name_)), kind(kind_), unit(std::move(unit_)), list(list_)
    {
    }
    std::string name;
    Kind kind = Kind::Text;
    std::string unit;  // "V", or empty
    bool list = false; // every matching line adds a value
};

struct Measurement {
    Measurement() = default;
    explicit Measurement(Quantity quantity_) : quantity(std::move(quantity_)) {}
    Quantity quantity;
    bool present = false;           // false: the command printed no such line
    std::string text;               // the value as printed ("012", "44.041305", "HI3516A")
    std::optional<double> number;   // integer and real values, when the text is a number
    std::optional<int64_t> integer; // integer values
    std::vector<std::string> items; // a list's values
};

// The value as the shell shows it: text in quotes, numbers as printed, with the unit.
std::string show(const Measurement &measurement);

// Reads `text` as the quantity's kind into `measurement` (present, text, number, integer). `hex`
// reads an integer in base 16.
void set_value(Measurement &measurement, const std::string &text, bool hex = false);

} // namespace shell
