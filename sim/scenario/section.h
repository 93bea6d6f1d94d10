// Reading one table of a scenario file, with errors that name the file, the line and the key.
#pragma once

// toml++ is compiled once, in toml_library.cpp; every other file sees only its declarations,
// which keeps each scenario loader's compile short.
#define TOML_HEADER_ONLY  0
// toml++ 3.3 asserts, on entering its key parser, the very character that the same function then
// reports as a syntax error: a malformed table header ("[=", "[[") would abort a debug build of
// the shell instead of being refused with its file and line. Its own error report is the one
// wanted, so its internal assertions are left out of every build.
#define TOML_ASSERT(expr) static_cast<void>(0)
#include <toml++/toml.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/time.h"

namespace sim
{

class Peer;

class Section
{
  public:
    Section(const toml::table &table, std::string path, std::string file, std::string base_dir);

    // Refuses keys other than `allowed` (a misspelt key is a mistake, not a default).
    void only(const std::vector<std::string_view> &allowed) const;

    std::optional<int64_t> integer(std::string_view key) const;
    std::optional<std::string> string(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    std::optional<double> number(std::string_view key) const; // integer or float
    std::optional<std::vector<int64_t>> integers(std::string_view key) const;
    std::optional<std::vector<uint8_t>> bytes(std::string_view key) const; // "FE 00 04" or [0xFE, 0, 4]
    // Bytes given as `KEY` (hexadecimal or an array) or as `KEY_text` (the characters as they
    // stand), never both.
    std::optional<std::vector<uint8_t>> bytes_or_text(std::string_view key) const;
    // An integer that must lie in low..high ("expected low..high").
    std::optional<int64_t> integer_in(std::string_view key, int64_t low, int64_t high) const;
    // An array of integers, each in low..high.
    std::optional<std::vector<int64_t>> integers_in(std::string_view key, int64_t low, int64_t high) const;
    // A time given in milliseconds (`KEY` ends in _ms), integer or not, 0 or more.
    std::optional<Nanos> milliseconds(std::string_view key) const;
    std::optional<int> error_number(std::string_view key) const; // "EIO" or 5
    std::optional<Section> table(std::string_view key) const;
    std::vector<Section> tables(std::string_view key) const; // an array of tables
    // A path relative to the scenario file.
    std::optional<std::string> file_path(std::string_view key) const;
    // The path of a file the scenario names, checked readable ("cannot read PATH").
    std::optional<std::string> readable_file(std::string_view key) const;
    // The whole content of a file the scenario names (`from`, `log`), read as it stands.
    std::optional<std::string> file_text(std::string_view key) const;
    // A text given as it stands (`key`) or read from a file (`file_key`), never both.
    std::optional<std::string> text_or_file(std::string_view key, std::string_view file_key) const;

    [[noreturn]] void fail(std::string_view key, const std::string &message) const;
    [[noreturn]] void fail_at(const toml::node &node, std::string_view key, const std::string &message) const;

    const toml::table &raw() const { return *table_; }
    const std::string &path() const { return path_; }
    std::string key_path(std::string_view key) const;
    const std::string &base_dir() const { return base_dir_; }

  private:
    const toml::node *node(std::string_view key) const;
    const std::string &file_of(const toml::node &node) const;
    std::string dir_of(const toml::node &node) const;
    template <typename T>
    std::optional<T> scalar(std::string_view key, bool (toml::node::*is)() const noexcept,
                            const char *expected) const;

    const toml::table *table_;
    std::string path_;
    std::string file_;
    std::string base_dir_;
};

// Reads a `peer = "NAME"` port table into something that makes the peer on demand.
using MakePeer = std::function<std::unique_ptr<Peer>()>;
using PeerLoader = MakePeer (*)(const Section &port);

// The peripherals a scenario can hang on a port, by name.
PeerLoader find_peer_loader(std::string_view name);
std::vector<std::string> peer_loader_names();

// The whole content of a file; nullopt when it cannot be read (a folder, a missing file).
std::optional<std::string> read_file(const std::string &path);

// Turns "EIO" (or a number) into an errno value; nullopt when unknown.
std::optional<int> errno_from_name(std::string_view name);

} // namespace sim
