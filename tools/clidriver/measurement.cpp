#include "measurement.h"

#include <cerrno>
#include <cstdlib>

#include "number.h"

namespace shell
{

const char *kind_name(Kind kind)
{
    switch (kind) {
    case Kind::Integer:
        return "integer";
    case Kind::Real:
        return "real";
    case Kind::Text:
        break;
    }
    return "text";
}

std::string show(const Measurement &measurement)
{
    if (!measurement.present)
        return "(not printed)";
    std::string value;
    if (measurement.quantity.list) {
        for (const std::string &item : measurement.items)
            value += (value.empty() ? "" : ", ") + escape_text(item);
        value = "[" + value + "]";
    } else if (measurement.quantity.kind == Kind::Text) {
        value = escape_text(measurement.text);
    } else {
        value = measurement.text;
    }
    if (!measurement.quantity.unit.empty())
        value += " " + measurement.quantity.unit;
    return value;
}

void set_value(Measurement &measurement, const std::string &text, bool hex)
{
    measurement.present = true;
    if (measurement.quantity.list) {
        measurement.items.push_back(text);
        measurement.text = measurement.text.empty() ? text : measurement.text + ", " + text;
        return;
    }
    measurement.text = text;
    if (measurement.quantity.kind == Kind::Text || text.empty())
        return;
    const char *begin = text.c_str();
    char *end = nullptr;
    errno = 0;
    if (measurement.quantity.kind == Kind::Integer) {
        const long long value = strtoll(begin, &end, hex ? 16 : 10);
        if (errno == 0 && end != begin && *end == '\0') {
            measurement.integer = value;
            measurement.number = static_cast<double>(value);
        }
        return;
    }
    const double value = strtod(begin, &end);
    if (errno == 0 && end != begin && *end == '\0')
        measurement.number = value;
}

} // namespace shell
