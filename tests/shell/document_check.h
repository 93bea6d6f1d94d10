// Small strict readers for the shell's reports, so that a test can say "well-formed" and then
// count what is inside: an XML 1.0 reader (elements, attributes, text, references, comments, the
// declaration; no DTD) and a JSON reader. Both refuse invalid UTF-8 and stray control characters.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace shelltest
{

struct XmlNode {
    std::string name;
    std::map<std::string, std::string> attributes; // values with references resolved
    std::vector<XmlNode> children;
    std::string text; // character data directly inside, references resolved

    std::vector<const XmlNode *> all(const std::string &child_name) const;
    const XmlNode *first(const std::string &child_name) const;
};

// The root element, or nothing with `error` saying where the document goes wrong.
std::optional<XmlNode> read_xml(std::string_view document, std::string &error);

struct Json {
    enum class Type { Null, Bool, Number, String, Array, Object } type = Type::Null;
    bool boolean = false;
    double number = 0;
    std::string string;
    std::vector<Json> array;
    std::vector<std::pair<std::string, Json>> object;

    const Json *get(const std::string &key) const;
};

std::optional<Json> read_json(std::string_view document, std::string &error);

} // namespace shelltest
