#include "signature.h"

#include <cctype>

namespace shell
{
namespace
{

std::string_view trim(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

bool identifier_char(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

} // namespace

std::vector<Param> split_params(std::string_view params)
{
    params = trim(params);
    if (params.size() >= 2 && params.front() == '(' && params.back() == ')')
        params = trim(params.substr(1, params.size() - 2));
    std::vector<Param> result;
    if (params.empty() || params == "void")
        return result;
    while (!params.empty()) {
        const size_t comma = params.find(',');
        const std::string_view one = trim(params.substr(0, comma));
        size_t start = one.size();
        while (start > 0 && identifier_char(one[start - 1]))
            --start;
        result.push_back(Param{std::string(trim(one.substr(0, start))), std::string(one.substr(start))});
        if (comma == std::string_view::npos)
            break;
        params.remove_prefix(comma + 1);
    }
    return result;
}

} // namespace shell
