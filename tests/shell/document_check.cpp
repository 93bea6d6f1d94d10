#include "document_check.h"

#include <cstdint>
#include <cstdlib>

namespace shelltest
{
namespace
{

// Decodes one UTF-8 sequence at `at`; false when it is not a valid one.
bool decode(std::string_view text, size_t &at, uint32_t &code)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    size_t length = 1;
    if (lead < 0x80) {
        code = lead;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2;
        code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        code = lead & 0x07;
    } else {
        return false;
    }
    if (at + length > text.size())
        return false;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return false;
        code = (code << 6) | (byte(at + i) & 0x3F);
    }
    static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return false;
    at += length;
    return true;
}

void encode(uint32_t code, std::string &out)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

bool xml_char(uint32_t code)
{
    return code == 0x9 || code == 0xA || code == 0xD || (code >= 0x20 && code <= 0xD7FF) ||
           (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
}

class XmlReader
{
  public:
    explicit XmlReader(std::string_view text) : text_(text) {}

    std::optional<XmlNode> document(std::string &error)
    {
        // Every character first: the rest of the reader can then work on bytes.
        for (size_t at = 0; at < text_.size();) {
            uint32_t code = 0;
            if (!decode(text_, at, code))
                return fail(error, "invalid UTF-8");
            if (!xml_char(code))
                return fail(error, "a character XML cannot carry");
        }
        if (text_.starts_with("<?xml")) {
            const size_t end = text_.find("?>");
            if (end == std::string_view::npos)
                return fail(error, "unterminated declaration");
            at_ = end + 2;
        }
        skip_misc();
        XmlNode root;
        if (!element(root))
            return fail(error, problem_);
        skip_misc();
        if (at_ != text_.size())
            return fail(error, "content after the root element");
        return root;
    }

  private:
    std::optional<XmlNode> fail(std::string &error, const std::string &what)
    {
        error = what + " near byte " + std::to_string(at_);
        return std::nullopt;
    }
    bool problem(const std::string &what)
    {
        if (problem_.empty())
            problem_ = what;
        return false;
    }
    bool space(char c) const { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    void skip_space()
    {
        while (at_ < text_.size() && space(text_[at_]))
            ++at_;
    }
    void skip_misc()
    {
        for (;;) {
            skip_space();
            if (!text_.substr(at_).starts_with("<!--"))
                return;
            const size_t end = text_.find("-->", at_ + 4);
            if (end == std::string_view::npos)
                return;
            at_ = end + 3;
        }
    }
    bool name(std::string &out)
    {
        const auto start_char = [](char c) {
            return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
        };
        const auto name_char = [&](char c) {
            return start_char(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
        };
        if (at_ >= text_.size() || !start_char(text_[at_]))
            return problem("a name expected");
        const size_t start = at_;
        while (at_ < text_.size() && name_char(text_[at_]))
            ++at_;
        out = std::string(text_.substr(start, at_ - start));
        return true;
    }
    bool reference(std::string &out)
    {
        const size_t end = text_.find(';', at_);
        if (end == std::string_view::npos)
            return problem("unterminated reference");
        const std::string_view ref = text_.substr(at_ + 1, end - at_ - 1);
        at_ = end + 1;
        static const std::map<std::string_view, char> kNamed = {
            {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
        if (auto found = kNamed.find(ref); found != kNamed.end()) {
            out += found->second;
            return true;
        }
        if (ref.size() < 2 || ref[0] != '#')
            return problem("unknown entity &" + std::string(ref) + ";");
        const bool hex = ref[1] == 'x';
        const std::string digits(ref.substr(hex ? 2 : 1));
        if (digits.empty() ||
            digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
            return problem("bad character reference");
        const unsigned long code = strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
        if (!xml_char(static_cast<uint32_t>(code)))
            return problem("character reference to a character XML cannot carry");
        encode(static_cast<uint32_t>(code), out);
        return true;
    }
    bool element(XmlNode &node)
    {
        if (at_ >= text_.size() || text_[at_] != '<')
            return problem("an element expected");
        ++at_;
        if (!name(node.name))
            return false;
        for (;;) {
            const size_t before = at_;
            skip_space();
            if (at_ >= text_.size())
                return problem("unterminated start tag");
            if (text_.substr(at_).starts_with("/>")) {
                at_ += 2;
                return true;
            }
            if (text_[at_] == '>') {
                ++at_;
                break;
            }
            if (at_ == before)
                return problem("attributes must be separated by blanks");
            std::string key, value;
            if (!name(key))
                return false;
            skip_space();
            if (at_ >= text_.size() || text_[at_] != '=')
                return problem("'=' expected after attribute " + key);
            ++at_;
            skip_space();
            if (at_ >= text_.size() || (text_[at_] != '"' && text_[at_] != '\''))
                return problem("quoted attribute value expected");
            const char quote = text_[at_++];
            while (at_ < text_.size() && text_[at_] != quote) {
                if (text_[at_] == '<')
                    return problem("'<' in an attribute value");
                if (text_[at_] == '&') {
                    if (!reference(value))
                        return false;
                } else {
                    value += text_[at_++];
                }
            }
            if (at_ >= text_.size())
                return problem("unterminated attribute value");
            ++at_;
            if (!node.attributes.emplace(key, value).second)
                return problem("attribute " + key + " given twice");
        }
        // Content up to the matching end tag.
        for (;;) {
            if (at_ >= text_.size())
                return problem("element " + node.name + " is not closed");
            const std::string_view rest = text_.substr(at_);
            if (rest.starts_with("</")) {
                at_ += 2;
                std::string closing;
                if (!name(closing))
                    return false;
                skip_space();
                if (closing != node.name || at_ >= text_.size() || text_[at_] != '>')
                    return problem("end tag " + closing + " does not close " + node.name);
                ++at_;
                return true;
            }
            if (rest.starts_with("<!--")) {
                const size_t end = text_.find("-->", at_ + 4);
                if (end == std::string_view::npos)
                    return problem("unterminated comment");
                at_ = end + 3;
            } else if (rest.starts_with("<")) {
                XmlNode child;
                if (!element(child))
                    return false;
                node.children.push_back(std::move(child));
            } else if (rest.starts_with("&")) {
                if (!reference(node.text))
                    return false;
            } else if (rest.starts_with("]]>")) {
                return problem("']]>' in character data");
            } else {
                node.text += text_[at_++];
            }
        }
    }

    std::string_view text_;
    size_t at_ = 0;
    std::string problem_;
};

class JsonReader
{
  public:
    explicit JsonReader(std::string_view text) : text_(text) {}

    std::optional<Json> document(std::string &error)
    {
        Json value;
        skip_space();
        if (!read(value, 0)) {
            error = problem_ + " near byte " + std::to_string(at_);
            return std::nullopt;
        }
        skip_space();
        if (at_ != text_.size()) {
            error = "content after the value near byte " + std::to_string(at_);
            return std::nullopt;
        }
        return value;
    }

  private:
    bool problem(const std::string &what)
    {
        if (problem_.empty())
            problem_ = what;
        return false;
    }
    void skip_space()
    {
        while (at_ < text_.size() &&
               (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r'))
            ++at_;
    }
    bool literal(std::string_view word)
    {
        if (!text_.substr(at_).starts_with(word))
            return problem("unknown literal");
        at_ += word.size();
        return true;
    }
    bool hex4(uint32_t &code)
    {
        if (at_ + 4 > text_.size())
            return problem("short \\u escape");
        code = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[at_++];
            const int digit = c >= '0' && c <= '9'   ? c - '0'
                              : c >= 'a' && c <= 'f' ? c - 'a' + 10
                              : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                     : -1;
            if (digit < 0)
                return problem("bad \\u escape");
            code = code * 16 + static_cast<uint32_t>(digit);
        }
        return true;
    }
    bool string(std::string &out)
    {
        ++at_; // the opening quote
        for (;;) {
            if (at_ >= text_.size())
                return problem("unterminated string");
            const auto c = static_cast<unsigned char>(text_[at_]);
            if (c == '"') {
                ++at_;
                return true;
            }
            if (c < 0x20)
                return problem("raw control character in a string");
            if (c != '\\') {
                const size_t start = at_;
                uint32_t code = 0;
                if (!decode(text_, at_, code))
                    return problem("invalid UTF-8 in a string");
                out.append(text_.substr(start, at_ - start));
                continue;
            }
            ++at_;
            if (at_ >= text_.size())
                return problem("unterminated escape");
            const char e = text_[at_++];
            switch (e) {
            case '"':
            case '\\':
            case '/':
                out += e;
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                uint32_t code = 0;
                if (!hex4(code))
                    return false;
                if (code >= 0xD800 && code <= 0xDBFF) {
                    uint32_t low = 0;
                    if (!text_.substr(at_).starts_with("\\u"))
                        return problem("lone high surrogate");
                    at_ += 2;
                    if (!hex4(low) || low < 0xDC00 || low > 0xDFFF)
                        return problem("bad low surrogate");
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                } else if (code >= 0xDC00 && code <= 0xDFFF) {
                    return problem("lone low surrogate");
                }
                encode(code, out);
                break;
            }
            default:
                return problem("unknown escape");
            }
        }
    }
    bool number(double &out)
    {
        const size_t start = at_;
        if (at_ < text_.size() && text_[at_] == '-')
            ++at_;
        const auto digits = [&] {
            const size_t from = at_;
            while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9')
                ++at_;
            return at_ - from;
        };
        const size_t first = at_;
        const size_t whole = digits();
        if (whole == 0 || (whole > 1 && text_[first] == '0'))
            return problem("bad number");
        if (at_ < text_.size() && text_[at_] == '.') {
            ++at_;
            if (digits() == 0)
                return problem("bad fraction");
        }
        if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
            ++at_;
            if (at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-'))
                ++at_;
            if (digits() == 0)
                return problem("bad exponent");
        }
        out = strtod(std::string(text_.substr(start, at_ - start)).c_str(), nullptr);
        return true;
    }
    bool read(Json &value, int depth)
    {
        if (depth > 64)
            return problem("nested too deep");
        if (at_ >= text_.size())
            return problem("a value expected");
        const char c = text_[at_];
        if (c == '{') {
            value.type = Json::Type::Object;
            ++at_;
            skip_space();
            if (at_ < text_.size() && text_[at_] == '}') {
                ++at_;
                return true;
            }
            for (;;) {
                skip_space();
                if (at_ >= text_.size() || text_[at_] != '"')
                    return problem("a key expected");
                std::string key;
                if (!string(key))
                    return false;
                skip_space();
                if (at_ >= text_.size() || text_[at_] != ':')
                    return problem("':' expected");
                ++at_;
                skip_space();
                Json member;
                if (!read(member, depth + 1))
                    return false;
                value.object.emplace_back(std::move(key), std::move(member));
                skip_space();
                if (at_ < text_.size() && text_[at_] == ',') {
                    ++at_;
                    continue;
                }
                if (at_ < text_.size() && text_[at_] == '}') {
                    ++at_;
                    return true;
                }
                return problem("',' or '}' expected");
            }
        }
        if (c == '[') {
            value.type = Json::Type::Array;
            ++at_;
            skip_space();
            if (at_ < text_.size() && text_[at_] == ']') {
                ++at_;
                return true;
            }
            for (;;) {
                skip_space();
                Json item;
                if (!read(item, depth + 1))
                    return false;
                value.array.push_back(std::move(item));
                skip_space();
                if (at_ < text_.size() && text_[at_] == ',') {
                    ++at_;
                    continue;
                }
                if (at_ < text_.size() && text_[at_] == ']') {
                    ++at_;
                    return true;
                }
                return problem("',' or ']' expected");
            }
        }
        if (c == '"') {
            value.type = Json::Type::String;
            return string(value.string);
        }
        if (c == 't' || c == 'f') {
            value.type = Json::Type::Bool;
            value.boolean = c == 't';
            return literal(c == 't' ? "true" : "false");
        }
        if (c == 'n') {
            value.type = Json::Type::Null;
            return literal("null");
        }
        value.type = Json::Type::Number;
        return number(value.number);
    }

    std::string_view text_;
    size_t at_ = 0;
    std::string problem_;
};

} // namespace

std::vector<const XmlNode *> XmlNode::all(const std::string &child_name) const
{
    std::vector<const XmlNode *> found;
    for (const XmlNode &child : children)
        if (child.name == child_name)
            found.push_back(&child);
    return found;
}

const XmlNode *XmlNode::first(const std::string &child_name) const
{
    for (const XmlNode &child : children)
        if (child.name == child_name)
            return &child;
    return nullptr;
}

std::optional<XmlNode> read_xml(std::string_view document, std::string &error)
{
    return XmlReader(document).document(error);
}

const Json *Json::get(const std::string &key) const
{
    for (const auto &[name, value] : object)
        if (name == key)
            return &value;
    return nullptr;
}

std::optional<Json> read_json(std::string_view document, std::string &error)
{
    return JsonReader(document).document(error);
}

} // namespace shelltest
