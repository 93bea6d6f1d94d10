// CLI_StringConvert rewrites whatever a receiver sent in a coordinate field. Whatever the text, it
// must write nothing outside a destination of exactly strlen(source) + 1 zeroed bytes (allocated
// to that size, so ASan sees a write past it), read nothing past the source's terminating zero,
// and give exactly what a plain model of the rule says: the first point before index 3 refuses
// the text (its "error date" line, the destination untouched), otherwise every point is dropped
// and one placed two places left of where the first stood.
//
// Input: the source text (up to its first zero byte, if any).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "message_sink.h"
#include "nmea_model.h"

namespace
{

[[noreturn]] void broken(const char *what, const std::string &expected, const std::string &seen)
{
    fprintf(stderr, "nmea_convert_fuzz: %s\n  expected %zu bytes: [%s]\n  seen %zu bytes:     [%s]\n", what,
            expected.size(), expected.c_str(), seen.size(), seen.c_str());
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 2048)
        return 0; // the diagnostic line of a refusal must fit the sink's buffer to be compared
    char *source = static_cast<char *>(malloc(size + 1));
    if (size != 0)
        memcpy(source, data, size);
    source[size] = '\0';
    const std::string text(source);
    char *destination = static_cast<char *>(calloc(text.size() + 1, 1));

    fuzz_messages().clear();
    const uint32_t result = CLI_StringConvert(destination, source);
    const std::string shown(destination, text.size() + 1);
    if (std::string(source) != text)
        broken("the source was changed", text, source);
    free(source);
    free(destination);

    std::string expected(text.size() + 1, '\0');
    std::vector<std::string> messages;
    uint32_t expected_result = 0;
    std::string digits;
    if (!clitest::nmea_shown_angle(text, digits)) {
        expected_result = 1;
        messages.push_back("error date " + text + "\n");
    } else {
        expected.replace(0, digits.size(), digits);
    }
    if (result != expected_result)
        broken("another result", std::to_string(expected_result), std::to_string(result));
    if (shown != expected)
        broken("another text", expected, shown);
    if (fuzz_messages() != messages)
        broken("other diagnostic lines", messages.empty() ? "" : messages[0],
               fuzz_messages().empty() ? "" : fuzz_messages()[0]);
    return 0;
}
