#include "scenario/section.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

#include "scenario/scenario.h"

namespace sim
{

Section::Section(const toml::table &table, std::string path, std::string file, std::string base_dir)
    : table_(&table), path_(std::move(path)), file_(std::move(file)), base_dir_(std::move(base_dir))
{
}

std::string Section::key_path(std::string_view key) const
{
    if (path_.empty())
        return std::string(key);
    return key.empty() ? path_ : path_ + "." + std::string(key);
}

namespace
{

std::string directory_of(const std::string &path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

} // namespace

// A scenario built on another holds nodes read from both files: each node keeps the file it came
// from, so a message names the file the mistake is in and a relative path is read from there.
const std::string &Section::file_of(const toml::node &node) const
{
    const auto &path = node.source().path;
    return path && !path->empty() ? *path : file_;
}

std::string Section::dir_of(const toml::node &node) const
{
    const auto &path = node.source().path;
    return path && !path->empty() && *path != file_ ? directory_of(*path) : base_dir_;
}

void Section::fail_at(const toml::node &node, std::string_view key, const std::string &message) const
{
    std::ostringstream text;
    text << file_of(node) << ":" << node.source().begin.line << ": " << key_path(key) << ": " << message;
    throw ScenarioError(text.str());
}

void Section::fail(std::string_view key, const std::string &message) const
{
    const toml::node *where = node(key);
    fail_at(where != nullptr ? *where : static_cast<const toml::node &>(*table_), key, message);
}

const toml::node *Section::node(std::string_view key) const
{
    return table_->get(key);
}

void Section::only(const std::vector<std::string_view> &allowed) const
{
    for (const auto &[key, value] : *table_) {
        bool known = false;
        for (std::string_view name : allowed)
            known = known || key.str() == name;
        if (!known) {
            std::string list;
            for (std::string_view name : allowed)
                list += (list.empty() ? "" : ", ") + std::string(name);
            fail_at(value, key.str(), "unknown key (expected one of: " + list + ")");
        }
    }
}

template <typename T>
std::optional<T> Section::scalar(std::string_view key, bool (toml::node::*is)() const noexcept,
                                 const char *expected) const
{
    const toml::node *value = node(key);
    if (value == nullptr)
        return std::nullopt;
    if (!(value->*is)())
        fail_at(*value, key, expected);
    return value->value<T>();
}

std::optional<int64_t> Section::integer(std::string_view key) const
{
    return scalar<int64_t>(key, &toml::node::is_integer, "expected an integer");
}

std::optional<double> Section::number(std::string_view key) const
{
    return scalar<double>(key, &toml::node::is_number, "expected a number");
}

std::optional<std::string> Section::string(std::string_view key) const
{
    return scalar<std::string>(key, &toml::node::is_string, "expected a string");
}

std::optional<bool> Section::boolean(std::string_view key) const
{
    return scalar<bool>(key, &toml::node::is_boolean, "expected true or false");
}

std::optional<std::vector<int64_t>> Section::integers(std::string_view key) const
{
    const toml::node *value = node(key);
    if (value == nullptr)
        return std::nullopt;
    const toml::array *array = value->as_array();
    if (array == nullptr)
        fail_at(*value, key, "expected an array of integers");
    std::vector<int64_t> result;
    for (const toml::node &item : *array) {
        if (!item.is_integer())
            fail_at(item, key, "expected an array of integers");
        result.push_back(*item.value<int64_t>());
    }
    return result;
}

std::optional<std::vector<uint8_t>> Section::bytes(std::string_view key) const
{
    const toml::node *value = node(key);
    if (value == nullptr)
        return std::nullopt;
    std::vector<uint8_t> result;
    if (const toml::array *array = value->as_array()) {
        for (const toml::node &item : *array) {
            const auto byte = item.value<int64_t>();
            if (!item.is_integer() || *byte < 0 || *byte > 255)
                fail_at(item, key, "expected bytes 0..255");
            result.push_back(static_cast<uint8_t>(*byte));
        }
        return result;
    }
    if (!value->is_string())
        fail_at(*value, key, "expected hexadecimal bytes (\"FE 00 04\") or an array of bytes");
    std::istringstream text(*value->value<std::string>());
    std::string pair;
    while (text >> pair) {
        // One or two hex digits and nothing else: stoul alone would also take a sign ("-1").
        const bool hex = pair.size() <= 2 && std::all_of(pair.begin(), pair.end(), [](unsigned char c) {
                             return std::isxdigit(c) != 0;
                         });
        if (!hex)
            fail_at(*value, key, "\"" + pair + "\" is not a hexadecimal byte");
        result.push_back(static_cast<uint8_t>(std::stoul(pair, nullptr, 16)));
    }
    return result;
}

std::optional<std::vector<uint8_t>> Section::bytes_or_text(std::string_view key) const
{
    const std::string text_key = std::string(key) + "_text";
    auto bytes = this->bytes(key);
    auto text = string(text_key);
    if (bytes && text)
        fail(text_key, "give " + std::string(key) + " or " + text_key + ", not both");
    if (text)
        return std::vector<uint8_t>(text->begin(), text->end());
    return bytes;
}

std::optional<int64_t> Section::integer_in(std::string_view key, int64_t low, int64_t high) const
{
    const auto value = integer(key);
    if (value && (*value < low || *value > high))
        fail(key, "expected " + std::to_string(low) + ".." + std::to_string(high));
    return value;
}

std::optional<std::vector<int64_t>> Section::integers_in(std::string_view key, int64_t low,
                                                         int64_t high) const
{
    const auto values = integers(key);
    if (values)
        for (const toml::node &item : *node(key)->as_array())
            if (const int64_t value = *item.value<int64_t>(); value < low || value > high)
                fail_at(item, key, "expected values " + std::to_string(low) + ".." + std::to_string(high));
    return values;
}

std::optional<Nanos> Section::milliseconds(std::string_view key) const
{
    const auto value = number(key);
    if (!value)
        return std::nullopt;
    // Beyond a year of simulated time a number of milliseconds is a slip of the keyboard.
    constexpr double kLongestMs = 365.0 * 24 * 3600 * 1000;
    if (*value < 0 || *value > kLongestMs)
        fail(key, "expected a time in milliseconds, 0 or more");
    return static_cast<Nanos>(*value * kMillisecond);
}

std::optional<int> Section::error_number(std::string_view key) const
{
    const toml::node *value = node(key);
    if (value == nullptr)
        return std::nullopt;
    if (value->is_integer())
        return static_cast<int>(*value->value<int64_t>());
    if (value->is_string()) {
        if (auto number = errno_from_name(*value->value<std::string>()))
            return number;
        fail_at(*value, key, "unknown errno name \"" + *value->value<std::string>() + "\"");
    }
    fail_at(*value, key, "expected an errno name such as \"EIO\" or a number");
}

std::optional<Section> Section::table(std::string_view key) const
{
    const toml::node *value = node(key);
    if (value == nullptr)
        return std::nullopt;
    if (!value->is_table())
        fail_at(*value, key, "expected a table");
    return Section(*value->as_table(), key_path(key), file_, base_dir_);
}

std::vector<Section> Section::tables(std::string_view key) const
{
    const toml::node *value = node(key);
    if (value == nullptr)
        return {};
    const toml::array *array = value->as_array();
    if (array == nullptr)
        fail_at(*value, key, "expected an array of tables ([[" + key_path(key) + "]])");
    std::vector<Section> result;
    size_t index = 0;
    for (const toml::node &item : *array) {
        if (!item.is_table())
            fail_at(item, key, "expected an array of tables");
        result.emplace_back(*item.as_table(), key_path(key) + "[" + std::to_string(index++) + "]", file_,
                            base_dir_);
    }
    return result;
}

std::optional<std::string> Section::file_path(std::string_view key) const
{
    auto relative = string(key);
    if (!relative || relative->empty() || (*relative)[0] == '/')
        return relative;
    return dir_of(*node(key)) + "/" + *relative;
}

namespace
{

// Whether `path` can be read as a file: a folder opens fine as a stream, then reads as empty.
bool readable(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode) && std::ifstream(path).good();
}

} // namespace

std::optional<std::string> Section::readable_file(std::string_view key) const
{
    auto path = file_path(key);
    if (path && !readable(*path))
        fail(key, "cannot read " + *path);
    return path;
}

std::optional<std::string> Section::text_or_file(std::string_view key, std::string_view file_key) const
{
    if (node(key) != nullptr && node(file_key) != nullptr)
        fail(file_key, "give " + std::string(key) + " or " + std::string(file_key) + ", not both");
    auto file = file_text(file_key);
    return file ? file : string(key);
}

std::optional<std::string> Section::file_text(std::string_view key) const
{
    auto path = readable_file(key);
    if (!path)
        return std::nullopt;
    auto text = read_file(*path);
    if (!text)
        fail(key, "cannot read " + *path);
    return text;
}

std::optional<std::string> read_file(const std::string &path)
{
    if (!readable(path))
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    if (file.bad())
        return std::nullopt;
    return text.str();
}

std::optional<int> errno_from_name(std::string_view name)
{
    static const std::pair<std::string_view, int> names[] = {
        {"EPERM", EPERM},         {"ENOENT", ENOENT}, {"EIO", EIO},
        {"ENXIO", ENXIO},         {"EBADF", EBADF},   {"EAGAIN", EAGAIN},
        {"ENOMEM", ENOMEM},       {"EACCES", EACCES}, {"EBUSY", EBUSY},
        {"ENODEV", ENODEV},       {"EINVAL", EINVAL}, {"ENFILE", ENFILE},
        {"EMFILE", EMFILE},       {"ENOTTY", ENOTTY}, {"ENOSPC", ENOSPC},
        {"EROFS", EROFS},         {"EPIPE", EPIPE},   {"ENOSYS", ENOSYS},
        {"ETIMEDOUT", ETIMEDOUT}, {"EINTR", EINTR},   {"ENETDOWN", ENETDOWN},
    };
    for (const auto &[known, number] : names)
        if (known == name)
            return number;
    return std::nullopt;
}

} // namespace sim
