// The control board's version text, whatever the board library wrote: the PCB and MCU scans stay
// inside their areas and the version area, and agree with the C library's own scanner running the
// command's two scans with field widths that fit the areas ("%*[^A-Z]%<n>s" and
// "%<n>[^.].%<n-1>[^A-Z]" with the second field one byte in), on a terminated copy of the text.
//
// The first byte picks the areas' size (3..8 bytes); the rest is the version area, read with its
// own length (not terminated), as the board's 8-byte area may be.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sib_version.h"

namespace
{

[[noreturn]] void broken(const char *what, const std::string &text)
{
    fprintf(stderr, "sib_version_fuzz: %s (text of %zu bytes)\n", what, text.size());
    abort();
}

constexpr size_t kGuard = 8;
constexpr char kGuardByte = 'g';

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t capacity = 3 + data[0] % 6;
    const std::string area(reinterpret_cast<const char *>(data + 1), size - 1);

    // Exactly the area's bytes on the heap, so reading one byte past them is caught.
    char *version = static_cast<char *>(malloc(area.size()));
    if (version == nullptr && !area.empty())
        abort();
    if (!area.empty())
        memcpy(version, area.data(), area.size());

    char pcb[kSibVersionSize + kGuard];
    char mcu[kSibVersionSize + kGuard];
    memset(pcb, 0, capacity);
    memset(mcu, 0, capacity);
    memset(pcb + capacity, kGuardByte, sizeof pcb - capacity);
    memset(mcu + capacity, kGuardByte, sizeof mcu - capacity);
    cli_sib_pcb_text(version, area.size(), pcb, capacity);
    cli_sib_mcu_text(version, area.size(), mcu, capacity);
    for (size_t i = capacity; i < sizeof pcb; ++i)
        if (pcb[i] != kGuardByte || mcu[i] != kGuardByte)
            broken("a scan wrote past its area", area);
    if (memchr(pcb, '\0', capacity) == nullptr || memchr(mcu, '\0', capacity) == nullptr)
        broken("an area is left without a terminator", area);

    free(version);

    // The reference: the same scans by the C library, on a terminated copy (the text ends at its
    // first zero byte either way).
    const char *terminated = area.c_str();
    char pcb_format[32];
    char mcu_format[32];
    snprintf(pcb_format, sizeof pcb_format, "%%*[^A-Z]%%%zus", capacity - 1);
    snprintf(mcu_format, sizeof mcu_format, "%%%zu[^.].%%%zu[^A-Z]", capacity - 1, capacity - 2);
    char pcb_reference[kSibVersionSize] = {};
    char mcu_reference[kSibVersionSize] = {};
    (void)sscanf(terminated, pcb_format, pcb_reference);
    (void)sscanf(terminated, mcu_format, mcu_reference, mcu_reference + 1);
    if (memcmp(pcb, pcb_reference, capacity) != 0)
        broken("the PCB text differs from the C library's scan", area);
    if (memcmp(mcu, mcu_reference, capacity) != 0)
        broken("the MCU text differs from the C library's scan", area);
    return 0;
}
