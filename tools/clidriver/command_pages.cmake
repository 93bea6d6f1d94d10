# Writes OUTPUT, a C++ source holding each page docs/commands/NAME.md as a string beside its name,
# for command_pages.h. Run at configure time; the pages are configure dependencies, so editing one
# rewrites the source.
file(GLOB pages LIST_DIRECTORIES false "${PAGES}/*.md")
list(SORT pages)
set(entries "")
foreach(page IN LISTS pages)
    get_filename_component(name "${page}" NAME_WE)
    file(READ "${page}" text)
    if(text MATCHES "\\)page\"")
        message(FATAL_ERROR "${page} holds the text that ends the string it is built into: )page\"")
    endif()
    string(APPEND entries "    {\"${name}\", R\"page(${text})page\"},\n")
endforeach()
file(CONFIGURE OUTPUT "${OUTPUT}" CONTENT [=[// Generated from docs/commands/*.md by tools/clidriver/command_pages.cmake; edit the pages instead.
#include "command_pages.h"

#include <algorithm>
#include <iterator>

namespace shell
{
namespace
{

struct Page {
    std::string_view name;
    std::string_view text;
};

constexpr Page kPages[] = {
@entries@};

} // namespace

std::string_view command_page(std::string_view name)
{
    const auto page = std::find_if(std::begin(kPages), std::end(kPages), [&](const Page &p) { return p.name == name; });
    return page == std::end(kPages) ? std::string_view() : page->text;
}

} // namespace shell
]=] @ONLY)
