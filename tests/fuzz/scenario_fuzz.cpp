// Scenario files are outside input to the operator shell: whatever a file holds, loading it must
// end in a scenario or a ScenarioError naming file, line and key, never a crash or another error.
#include <cstdint>
#include <string>

#include "scenario/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    try {
        sim::parse_scenario(text, "fuzz.toml", "/nonexistent");
    } catch (const sim::ScenarioError &error) {
        if (std::string(error.what()).rfind("fuzz.toml:", 0) != 0)
            __builtin_trap(); // every refusal names the file first
    }
    return 0;
}
