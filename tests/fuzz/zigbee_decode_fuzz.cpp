// What a ZigBee coordinator relays is outside input: whatever bytes it hands over, both decoders
// must end, read nothing past the bytes they may examine (handed over in a heap buffer of exactly
// that size, so a read past it shows under ASan), write nothing past the record (allocated alone,
// exactly its size), keep the version text terminated, and do exactly what the reading rules say,
// checked against the tests' own model of them (tests/support/zigbee_model.h): result, count,
// every field of the record, and every line printed.
//
// Built once per layout (ZIGBEE_LAYOUT): 0 the coordinator's stuffed frames through
// CLI_ZigBeeDataDealNew, the input being the bytes and their number the size; 1 the older layout
// through CLI_ZigBeeDataDeal, the input being the frame, whose count byte is set to the input's
// length when it starts AA F0, since the line only ever delivers such a frame whole.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "message_sink.h"
#include "zigbee_model.h"

#ifndef ZIGBEE_LAYOUT
#error "ZIGBEE_LAYOUT selects the decoder: 0 the coordinator's frames, 1 the older layout"
#endif

namespace
{

using clitest::ZbModelRecord;
using clitest::ZbOutcome;

[[noreturn]] void broken(const char *what, const std::string &expected, const std::string &seen)
{
    fprintf(stderr, "zigbee_decode_fuzz: %s\n  expected [%s]\n  seen     [%s]\n", what, expected.c_str(),
            seen.c_str());
    abort();
}

std::string number(long long value)
{
    return std::to_string(value);
}

// The record every call starts from: each field something a decoder would not write by chance.
ZbModelRecord marked()
{
    ZbModelRecord record;
    record.state = -7;
    record.temperature = 11;
    record.humidity = 22;
    record.particulate = 33;
    record.version = "old";
    return record;
}

void check(const ZbOutcome &want, uint32_t result, const CliZigbeeSensorRecord &record, uint32_t count)
{
    if (result != want.result)
        broken("result", number(want.result), number(result));
    if (count != 5 + want.counted)
        broken("count", number(5 + want.counted), number(count));
    if (record.lState != want.record.state)
        broken("state", number(want.record.state), number(record.lState));
    if (record.ulTemperature != want.record.temperature)
        broken("temperature", number(want.record.temperature), number(record.ulTemperature));
    if (record.ulHumidity != want.record.humidity)
        broken("humidity", number(want.record.humidity), number(record.ulHumidity));
    if (record.ulParticulate != want.record.particulate)
        broken("particulate", number(want.record.particulate), number(record.ulParticulate));
    if (memchr(record.acVersion, 0, sizeof record.acVersion) == nullptr)
        broken("version text terminated", "a zero within 32 bytes", "none");
    if (std::string(record.acVersion) != want.record.version)
        broken("version", want.record.version, record.acVersion);
    const std::vector<std::string> &seen = fuzz_messages();
    if (seen.size() != want.lines.size())
        broken("number of lines", number(static_cast<long long>(want.lines.size())),
               number(static_cast<long long>(seen.size())));
    for (size_t i = 0; i < seen.size(); ++i) {
        // The sink keeps what follows the level field, with the line's final newline.
        const std::string text = want.lines[i].substr(6) + "\n";
        if (seen[i] != text)
            broken("line", text, seen[i]);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> input(data, data + size);
    if (ZIGBEE_LAYOUT == 1 && size >= 1 && input[0] == 0xAA) {
        if (size < 4)
            return 0; // not a frame the line delivers: AA, a byte, K and one byte more at least
        if (input[1] == 0xF0) {
            input.resize(std::min<size_t>(size, 255 + 4));
            input[2] = static_cast<uint8_t>(input.size() - 4);
        }
    }
    // Exactly the bytes the decoder may examine; malloc(0) for none, which no read may touch.
    uint8_t *held = static_cast<uint8_t *>(malloc(input.size()));
    if (held == nullptr && !input.empty())
        abort();
    if (!input.empty())
        memcpy(held, input.data(), input.size());

    const ZbModelRecord before = marked();
    auto *record = static_cast<CliZigbeeSensorRecord *>(malloc(sizeof(CliZigbeeSensorRecord)));
    memset(record, 0x5A, sizeof *record); // the version area beyond "old" is not zero
    record->lState = before.state;
    record->ulTemperature = before.temperature;
    record->ulHumidity = before.humidity;
    record->ulParticulate = before.particulate;
    memcpy(record->acVersion, "old", 4);
    uint32_t count = 5;
    fuzz_messages().clear();

    uint32_t result;
    ZbOutcome want;
    if (ZIGBEE_LAYOUT == 0) {
        result = CLI_ZigBeeDataDealNew(held, static_cast<uint32_t>(input.size()), record, &count);
        want = clitest::zb_model_new(input.data(), input.size(), before);
    } else {
        if (input.empty()) { // the older decoder reads its first byte whatever: give it one
            free(held);
            free(record);
            return 0;
        }
        result = CLI_ZigBeeDataDeal(held, record, &count);
        want = clitest::zb_model_old(input.data(), input.size(), before);
    }
    check(want, result, *record, count);
    free(record);
    free(held);
    return 0;
}
