// What the tests of the lights, climate and sensor commands share: a table row that also names
// the platform calls a command must make, the calls and the order of everything a command did,
// read back from the journal, and the camera's accessory line with a peer of the test's choosing.
// Expected values are written out in the rows; nothing here works them out with the library's code.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "command_case.h"
#include "core/journal.h"
#include "devices/serial.h"
#include "peripherals/peer.h"
#include "sim_fixture.h"

namespace lightstest
{

using Lines = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

constexpr const char *kSource = "src/cli_libfun.cpp";

// The console error line of `function` with `text`.
inline std::string console(const std::string &function, const std::string &text)
{
    return "[ERROR]:" + text + "\t@[" + kSource + " " + function + "]\r\n";
}

// The second line of the call-failure pair.
inline std::string call_failed(const std::string &function, const std::string &what)
{
    return std::string("[") + kSource + " " + function + "]: " + what + " call failed\r\n";
}

// "DRV_SetIRCut(0, 2) -> 0": every platform operation the call made, in order, as the simulated
// platform journals it (records as their 32-bit words after the call).
inline Lines platform_calls(const clitest::Call &call)
{
    Lines calls;
    for (const sim::Entry &entry : call.of(sim::Kind::Platform))
        calls.push_back(entry.text);
    return calls;
}

// Everything the call did, in order: diagnostic lines as "LEVEL function: text", device opens,
// requests and closes as the camera trace shows them, and platform calls.
inline Lines story(const clitest::Call &call)
{
    Lines told;
    size_t line = 0;
    const Lines messages = call.messages();
    for (const sim::Entry &entry : call.journal) {
        clitest::Call one;
        one.journal = {entry};
        switch (entry.kind) {
        case sim::Kind::Print:
            told.push_back(line < messages.size() ? messages[line++] : "?");
            break;
        case sim::Kind::Platform:
            told.push_back(entry.text);
            break;
        default:
            for (const std::string &step : clitest::camera_trace(one))
                told.push_back(step);
            break;
        }
    }
    return told;
}

// A row of a command table: the camera (nullptr: the healthy one), the call, what it must show,
// and the platform calls it must make.
struct LightsCase {
    const char *name;
    std::function<void(sim::Scenario &)> camera;
    std::function<long long()> command;
    clitest::Expected want;
    Lines platform;
};

inline void PrintTo(const LightsCase &row, std::ostream *os)
{
    *os << row.name;
}

inline std::string case_name(const ::testing::TestParamInfo<LightsCase> &info)
{
    return info.param.name;
}

class LightsTable : public clitest::SimTest, public ::testing::WithParamInterface<LightsCase>
{
  protected:
    void run_row()
    {
        const LightsCase &row = GetParam();
        if (row.camera) {
            row.camera(scenario());
            restart();
        }
        const clitest::Call call = run(row.command);
        clitest::expect_call(call, row.want);
        EXPECT_EQ(platform_calls(call), row.platform);
    }
};

// ---- The accessory on the console UART ----------------------------------------------------------

constexpr const char *kAccessory = "/dev/ttyAMBA1";

// A byte at 9600 baud, ten bits, in whole nanoseconds as a line of the simulated camera counts it
// (10^10 / 9600 = 1,041,666.67), and a seven-byte frame.
constexpr sim::Nanos kByteAt9600 = 1'041'666;
constexpr sim::Nanos kFrameAt9600 = 7 * kByteAt9600;

class AccessoryTest : public clitest::SimTest
{
  protected:
    // Hangs what `make` builds on the accessory line; the camera starts afresh with it.
    void hang(std::function<std::unique_ptr<sim::Peer>()> make)
    {
        scenario().ports[kAccessory].make_peer = std::move(make);
        restart();
    }

    // The peer on the line, as its type, once the product has opened the line.
    template <typename PeerType> static PeerType *peer()
    {
        sim::Port *port = sim::serial_ports().port(kAccessory);
        return port != nullptr ? dynamic_cast<PeerType *>(port->peer()) : nullptr;
    }

    // What the product wrote on the line during `call`, one entry per write.
    static std::vector<Bytes> writes(const clitest::Call &call)
    {
        std::vector<Bytes> result;
        for (const sim::Entry &entry : call.of(sim::Kind::SerialWrite, kAccessory))
            result.push_back(entry.bytes);
        return result;
    }

    // What the peer sent during `call`, all of it.
    static Bytes received(const clitest::Call &call)
    {
        Bytes all;
        for (const sim::Entry &entry : call.of(sim::Kind::SerialSend, kAccessory))
            all.insert(all.end(), entry.bytes.begin(), entry.bytes.end());
        return all;
    }

    // The line's speed as the product left it.
    static unsigned line_baud()
    {
        sim::Port *port = sim::serial_ports().port(kAccessory);
        return port != nullptr ? port->baud() : 0;
    }
};

} // namespace lightstest
