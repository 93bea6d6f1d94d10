// A GPS receiver is outside our control: whatever sentence it sends, CLI_InfoAnalyse must end,
// stay inside its field table and the sentence (handed over in a buffer of exactly its size, its
// terminating zero included, so a read past it shows under ASan), leave the sentence as it was,
// and say exactly what the reading rules say, checked against the tests' own model of them
// (tests/support/nmea_model.h): fields split at commas up to '*' or the end, 31 characters each,
// nothing after the 32nd field; a number read as the camera's atoi reads it; angles shown with
// the point two places left.
//
// Input: byte 0 chooses the mode (even: position, odd: a number), byte 1 the field (240 and above
// stand for indexes near the top of the 32-bit range), the rest is the sentence from its address
// on. Standard output, where the position and "Coordinate Info illegal" are echoed, is read back.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "message_sink.h"
#include "nmea_model.h"

namespace
{

using clitest::kNmeaFields;

int g_out = -1;      // standard output while the parser runs, read back after each input
int g_real_out = -1; // the harness's own standard output, back after each input

[[noreturn]] void broken(const char *what, const std::string &expected, const std::string &seen)
{
    fprintf(stderr, "nmea_analyse_fuzz: %s\n  expected %zu bytes: [%s]\n  seen %zu bytes:     [%s]\n", what,
            expected.size(), expected.c_str(), seen.size(), seen.c_str());
    abort();
}

// The angle as shown, or empty with the refusal's own line.
std::string model_angle(const std::string &angle, std::vector<std::string> &messages)
{
    std::string shown;
    if (!clitest::nmea_shown_angle(angle, shown))
        messages.push_back("error date " + angle + "\n");
    return shown;
}

std::string read_back()
{
    fflush(stdout);
    std::string shown;
    char buffer[4096];
    ssize_t got = 0;
    for (off_t at = 0; (got = pread(g_out, buffer, sizeof buffer, at)) > 0; at += got)
        shown.append(buffer, static_cast<size_t>(got));
    return shown;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fflush(stdout);
    g_real_out = dup(STDOUT_FILENO);
    g_out = memfd_create("nmea-analyse-out", MFD_CLOEXEC);
    if (g_real_out < 0 || g_out < 0)
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const bool number_mode = (data[0] & 1) != 0;
    const uint32_t field = data[1] < 0xF0 ? data[1] : 0xFFFFFF00u | data[1];
    // The sentence in a buffer of exactly its bytes and a terminating zero.
    const size_t length = size - 2;
    char *sentence = static_cast<char *>(malloc(length + 1));
    if (length != 0)
        memcpy(sentence, data + 2, length);
    sentence[length] = '\0';
    const std::string before(sentence, length + 1);
    const std::vector<std::string> fields = clitest::nmea_fields(sentence);

    fuzz_messages().clear();
    fflush(stdout);
    if (ftruncate(g_out, 0) != 0 || lseek(g_out, 0, SEEK_SET) != 0 || dup2(g_out, STDOUT_FILENO) < 0)
        abort();
    uint32_t number = 0xA5A5A5A5u;
    const uint32_t result = CLI_InfoAnalyse(sentence, field, number_mode ? &number : nullptr);
    const std::string out = read_back();
    dup2(g_real_out, STDOUT_FILENO);
    if (std::string(sentence, length + 1) != before)
        broken("the sentence was changed", before, std::string(sentence, length + 1));
    free(sentence);

    std::vector<std::string> messages;
    std::string echoed;
    uint32_t expected_result = 0;
    if (number_mode) {
        const uint32_t expected = field < kNmeaFields ? clitest::nmea_number(fields[field]) : 0;
        if (number != expected)
            broken("another number", std::to_string(expected), std::to_string(number));
    } else {
        bool legal = field <= kNmeaFields - 4;
        for (size_t i = 1; i <= 9; ++i)
            legal = legal && !fields[i].empty();
        if (!legal) {
            messages.push_back("Coordinate Info illegal\n");
            echoed = "Coordinate Info illegal\r\n";
            expected_result = 1;
        } else {
            const std::string latitude = model_angle(fields[field], messages);
            const std::string longitude = model_angle(fields[field + 2], messages);
            std::string shown = "Longitude:";
            shown += fields[field + 3].empty() ? '\0' : fields[field + 3][0];
            shown += " " + longitude + "\nLatitude:";
            shown += fields[field + 1].empty() ? '\0' : fields[field + 1][0];
            shown += " " + latitude;
            messages.push_back(shown + "\n");
            echoed = shown + "\r\n";
        }
    }
    if (result != expected_result)
        broken("another result", std::to_string(expected_result), std::to_string(result));
    if (out != echoed)
        broken("another echo", echoed, out);
    if (fuzz_messages() != messages) {
        std::string expected_lines, seen_lines;
        for (const std::string &line : messages)
            expected_lines += line;
        for (const std::string &line : fuzz_messages())
            seen_lines += line;
        broken("other diagnostic lines", expected_lines, seen_lines);
    }
    return 0;
}
