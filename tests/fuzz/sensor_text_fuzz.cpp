// The sensor driver's text as the encoder start-up reads it (/proc/driver/sensortype through the
// shell): whatever the bytes, the picture chosen is the one a plain reading of the rules gives
// (the first 50 bytes, up to a zero byte, searched for each sensor name in the table's order),
// and nothing outside the bytes handed over is read.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sensor_table.h"

namespace
{

[[noreturn]] void broken(const char *what, const std::string &text)
{
    fprintf(stderr, "sensor_text_fuzz: %s for [%s]\n", what, text.c_str());
    abort();
}

struct Picture {
    uint32_t width;
    uint32_t height;
    bool known;
};

// The rules, written plainly.
Picture model(const uint8_t *data, size_t size, size_t length)
{
    std::string text(reinterpret_cast<const char *>(data), size < length ? size : length);
    text = text.substr(0, text.find('\0'));
    struct Row {
        const char *name;
        uint32_t width;
        uint32_t height;
    };
    static const Row rows[] = {{"IMX123", 2048, 1536},  {"IMX290", 1920, 1080}, {"IMX185", 1920, 1080},
                               {"MN34227", 1920, 1080}, {"IMX224", 1280, 960},  {"IMX225", 1280, 960}};
    for (const Row &row : rows)
        if (text.find(row.name) != std::string::npos)
            return {row.width, row.height, true};
    return {1920, 1080, false};
}

void check(const uint8_t *data, size_t size, size_t length)
{
    CliVideoNorm norm = {0, 0, 0};
    const bool known = cli_sensor_norm(reinterpret_cast<const char *>(data), length, &norm);
    const Picture want = model(data, size, length);
    const std::string shown(reinterpret_cast<const char *>(data), size);
    if (known != want.known)
        broken("known sensor or not", shown);
    if (norm.ulWidth != want.width || norm.ulHeight != want.height || norm.ulFrameRate != 25)
        broken("picture", shown);

    CliVideoEncodeParam param;
    memset(&param, 0xA5, sizeof param);
    cli_encode_param_fill(&param, &norm);
    if (param.aulWord[2] != norm.ulWidth || param.aulWord[3] != norm.ulHeight || param.aulWord[5] != 25 ||
        param.aulWord[15] != 0)
        broken("encoder record", shown);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // An exact copy, so that a look past its end is caught.
    uint8_t *exact = static_cast<uint8_t *>(malloc(size == 0 ? 1 : size));
    if (size != 0)
        memcpy(exact, data, size);
    // As the start-up reads it: at most 50 bytes.
    check(exact, size, size < kSensorTextSize ? size : kSensorTextSize);
    // And the whole text, whatever its length.
    check(exact, size, size);
    free(exact);
    return 0;
}
