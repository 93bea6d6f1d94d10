// Captured frames are outside input: whatever libpcap hands the sniffer's packet handler (any
// bytes, any captured length, any length on the air, any number of frames), ulink_recv must read
// nothing past each frame's captured bytes, write nothing past the record area or the caller's
// 256 bytes, and hand back exactly the records the tests' own reading of the rules gives
// (probe_model.h), printing "wifi subtype %d wrong" for exactly the frames it says. The record
// extraction (src/probe_record.cpp, compiled in) is held to the same reading frame by frame.
//
// This target's pcap_dispatch replaces libpcap's for the library (an executable's own symbols
// come first): it delivers the input's frames, each in storage of exactly its captured length.
//
// Input: byte 0 is the count handed to ulink_recv (signed; below -2 the dispatch fails with it);
// then frames, each a 16-bit little-endian length on the air, a byte with the captured length,
// and that many bytes (fewer if the input ends).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "probe_model.h"
#include "probe_record.h"

namespace
{

struct Frame {
    uint32_t on_air;
    std::vector<uint8_t> captured;
};

std::vector<Frame> g_frames;
int g_dispatch_result = 0; // a negative result to fail with, or 0
size_t g_delivered = 0;

// Where the library's standard output goes while a frame batch is handled.
char g_printed[1 << 20];
FILE *g_capture = nullptr;

[[noreturn]] void broken(const char *what)
{
    fprintf(stderr, "probe_handler_fuzz: %s\n", what);
    abort();
}

} // namespace

extern "C" int pcap_dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user)
{
    if (handle == nullptr)
        broken("dispatch without a handle");
    if (g_dispatch_result < 0)
        return g_dispatch_result;
    g_delivered = 0;
    for (const Frame &frame : g_frames) {
        if (count > 0 && g_delivered == static_cast<size_t>(count))
            break;
        // Exactly the captured bytes: a read past them is a heap overflow the sanitizer reports.
        const size_t size = frame.captured.size();
        std::unique_ptr<u_char[]> bytes(new u_char[size > 0 ? size : 1]);
        if (size > 0)
            memcpy(bytes.get(), frame.captured.data(), size);
        pcap_pkthdr header{};
        header.caplen = static_cast<bpf_u_int32>(size);
        header.len = frame.on_air;
        callback(user, &header, size > 0 ? bytes.get() : nullptr);
        ++g_delivered;
    }
    return static_cast<int>(g_delivered);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const int32_t count = static_cast<int8_t>(data[0]);
    g_dispatch_result = count < -2 ? count : 0;
    g_frames.clear();
    for (size_t at = 1; at + 3 <= size;) {
        Frame frame;
        frame.on_air = static_cast<uint32_t>(data[at] | data[at + 1] << 8);
        size_t captured = data[at + 2];
        at += 3;
        if (captured > size - at)
            captured = size - at;
        frame.captured.assign(data + at, data + at + captured);
        at += captured;
        g_frames.push_back(frame);
    }

    // The record extraction alone, frame by frame, against the model.
    for (const Frame &frame : g_frames) {
        const size_t n = frame.captured.size();
        std::unique_ptr<uint8_t[]> bytes(new uint8_t[n > 0 ? n : 1]);
        if (n > 0)
            memcpy(bytes.get(), frame.captured.data(), n);
        const clitest::ProbeOutcome want = clitest::probe_model(bytes.get(), n, frame.on_air);
        probe_record record;
        uint32_t subtype = 0;
        const CliProbeVerdict verdict =
            cli_probe_take(bytes.get(), static_cast<uint32_t>(n), frame.on_air, &record, &subtype);
        if ((verdict == CLI_PROBE_RECORDED) != want.recorded)
            broken("cli_probe_take keeps a frame the rules drop, or drops one they keep");
        if ((verdict == CLI_PROBE_SUBTYPE) != want.named ||
            (want.named && subtype != static_cast<uint32_t>(want.subtype)))
            broken("cli_probe_take names another subtype than the rules");
        if (want.recorded && memcmp(&record, want.record.data(), sizeof record) != 0)
            broken("cli_probe_take's record differs from the rules'");
    }

    // The whole receive through the library.
    if (g_capture == nullptr) {
        g_capture = fmemopen(g_printed, sizeof g_printed, "w");
        if (g_capture == nullptr)
            broken("no memory stream for standard output");
    }
    rewind(g_capture);
    FILE *const console = stdout;
    stdout = g_capture;

    int handle_storage = 0;
    ulink_capture capture{};
    capture.pstHandle = reinterpret_cast<pcap_t *>(&handle_storage);
    std::unique_ptr<uint8_t[]> out(new uint8_t[256]);
    memset(out.get(), 0xEE, 256);
    uint32_t out_len = 0xDEADBEEF;
    const int32_t result = ulink_recv(count, out.get(), &out_len, &capture);

    fflush(g_capture);
    const long printed_length = ftell(g_capture);
    stdout = console;
    const std::string printed(g_printed, static_cast<size_t>(printed_length > 0 ? printed_length : 0));

    if (g_dispatch_result < 0) {
        if (result != g_dispatch_result || out_len != 0xDEADBEEF || !printed.empty())
            broken("a failed dispatch must be passed up with the output untouched");
        for (size_t i = 0; i < 256; ++i)
            if (out[i] != 0xEE)
                broken("a failed dispatch wrote records");
        return 0;
    }
    if (result != 0)
        broken("a dispatch that worked must give 0");

    std::vector<uint8_t> records;
    std::string named;
    size_t kept = 0;
    for (size_t i = 0; i < g_delivered; ++i) {
        const Frame &frame = g_frames[i];
        const clitest::ProbeOutcome want =
            clitest::probe_model(frame.captured.data(), frame.captured.size(), frame.on_air);
        if (want.named)
            named += "wifi subtype " + std::to_string(want.subtype) + " wrong \r\n";
        if (want.recorded && kept < 17) { // the area holds 17 whole records
            records.insert(records.end(), want.record.begin(), want.record.end());
            ++kept;
        }
    }
    if (out_len != records.size())
        broken("the byte count differs from the records the rules keep");
    if (!records.empty() && memcmp(out.get(), records.data(), records.size()) != 0)
        broken("the records differ from the rules'");
    for (size_t i = records.size(); i < 256; ++i)
        if (out[i] != 0xEE)
            broken("bytes written past the records");
    if (printed != named)
        broken("the subtype lines differ from the frames the rules name");
    return 0;
}
