// What the RFID reader sends is outside input, and so is the tag table the decoder is handed (the
// exported table can be written by anyone in the process). Whatever the frame and the table hold,
// CLI_RfidDataDeal must read no more of the frame than a tag report's ten bytes, write nothing
// beyond the table, and do exactly what a plain model of its rules says: a tag report is logged
// and its ID stored once, in the next slot with two zero bytes, while there is room; a full table
// (or a count beyond it) takes nothing; any other frame is refused and the table left alone.
//
// Input: one byte n, a 4-byte count (little-endian), 4n bytes of slots from the first slot on (at
// most the table's 1000), then the frame; a frame shorter than ten bytes is padded with zeros, as
// the search pads what the link delivered.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "clidriver/clidriver.h"
#include "message_sink.h"

namespace
{

constexpr size_t kReport = 10;
constexpr size_t kSlots = CLI_RFID_MAX_IDS * CLI_RFID_ID_SIZE;

[[noreturn]] void broken(const char *what)
{
    fprintf(stderr, "rfid_deal_fuzz: %s\n", what);
    abort();
}

// The model: the ID text of a tag report, or "" for any other frame.
std::string model_id(const uint8_t *frame)
{
    if (frame[0] != 0xFF || frame[1] != 0x0C || frame[4] != 0xF1)
        return "";
    char id[9];
    snprintf(id, sizeof id, "%02X%02X%02X%02X", frame[6], frame[7], frame[8], frame[9]);
    return id;
}

// The model's table after the report of `id`: found among the first min(count, 100) slots by
// strncmp over eight characters, else put in slot `count` while count < 100.
bool model_store(CliRfidTable &table, const std::string &id)
{
    const uint32_t stored = table.ulCount < CLI_RFID_MAX_IDS ? table.ulCount : CLI_RFID_MAX_IDS;
    for (uint32_t i = 0; i < stored; ++i)
        if (strncmp(table.aacId[i], id.c_str(), id.size()) == 0)
            return true;
    if (table.ulCount >= CLI_RFID_MAX_IDS)
        return false;
    memset(table.aacId[table.ulCount], 0, CLI_RFID_ID_SIZE);
    memcpy(table.aacId[table.ulCount], id.data(), id.size());
    ++table.ulCount;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 5)
        return 0;
    size_t slot_bytes = static_cast<size_t>(data[0]) * 4;
    if (slot_bytes > kSlots)
        slot_bytes = kSlots;
    if (slot_bytes > size - 5)
        slot_bytes = size - 5;
    const uint8_t *frame_bytes = data + 5 + slot_bytes;
    const size_t frame_size = size - 5 - slot_bytes;

    // Exactly the table's bytes and exactly the frame's (at least the ten decoded): ASan sees any
    // access beyond either.
    auto *table = static_cast<CliRfidTable *>(malloc(sizeof(CliRfidTable)));
    memset(table, 0, sizeof *table);
    memcpy(&table->ulCount, data + 1, 4);
    memcpy(table->aacId, data + 5, slot_bytes);
    const size_t held = frame_size > kReport ? frame_size : kReport;
    auto *frame = static_cast<uint8_t *>(calloc(held, 1));
    memcpy(frame, frame_bytes, frame_size);

    CliRfidTable expected = *table;
    const std::string id = model_id(frame);
    const bool kept = !id.empty() && model_store(expected, id);

    fuzz_messages().clear();
    const uint32_t result = CLI_RfidDataDeal(frame, table);

    if (id.empty()) {
        if (result != 1 || fuzz_messages().size() != 1 || fuzz_messages()[0] != "unknow or unsupport Cmd\n")
            broken("a frame that is no tag report was not refused as one");
    } else {
        if (result != 0 || fuzz_messages().empty() || fuzz_messages()[0] != "search ID : " + id + "\n")
            broken("a tag report was not logged with its ID");
        const size_t lines = kept ? 1 : 2;
        if (fuzz_messages().size() != lines)
            broken("a stored report said more than its ID, or a refused one did not say the table is full");
    }
    if (memcmp(&expected, table, sizeof expected) != 0)
        broken("the table differs from the model's");
    free(frame);
    free(table);
    return 0;
}
