// A serial port's log from a recording: text a camera wrote and anyone may have edited since. Any
// text is read without crashing; what is accepted holds together (every write and read carries
// bytes, times never go back) and reads back the same once written out again.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "peripherals/port_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const sim::PortLog log = sim::read_port_log(text);
    if (!log.error.empty()) {
        if (!log.events.empty() || log.error.rfind("line ", 0) != 0)
            abort(); // a refusal keeps nothing and names its line
        return 0;
    }
    std::string written;
    int64_t last = 0;
    for (const sim::PortEvent &event : log.events) {
        const bool carries =
            event.kind == sim::PortEvent::Kind::Wrote || event.kind == sim::PortEvent::Kind::Read;
        if (carries == event.bytes.empty() || event.time < last)
            abort();
        last = event.time;
        written += sim::port_log_line(event) + "\n";
    }
    const sim::PortLog again = sim::read_port_log(written);
    if (!again.error.empty() || again.events.size() != log.events.size())
        abort();
    for (size_t i = 0; i < log.events.size(); ++i)
        if (again.events[i].kind != log.events[i].kind || again.events[i].time != log.events[i].time ||
            again.events[i].bytes != log.events[i].bytes)
            abort();
    return 0;
}
