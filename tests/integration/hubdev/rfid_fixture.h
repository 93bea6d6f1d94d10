// What the RFID search tests share: the camera with a reader on the peripheral link (straight on
// the line or behind the hub's port 0x005C), the link table declared as a platform that fits the
// reader declares it, and calls that keep the search thread's work inside what they capture.
//
// The search runs on a thread of its own that takes part in simulated time: time moves only while
// both it and the test wait. Whatever the thread does before it first waits (its open, its hub
// frames, a failure to open) happens in real time right after the start returns, so a start is
// captured together with a little simulated time after it, in one call. Every test ends with the
// search stopped and its thread gone; TearDown says so when one does not.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/journal.h"
#include "hub_wire.h"
#include "link_fixture.h"
#include "peripherals/hub.h"
#include "peripherals/rfid.h"

namespace rfidtest
{

using clitest::Bytes;
using clitest::Call;
using clitest::hub_frame;
using clitest::kByteAt115200;
using clitest::kByteAt9600;
using clitest::kHubClose;
using clitest::kHubOpen;
using clitest::kHubPass;
using clitest::kHubPortGps;
using clitest::kHubPortRfid;
using clitest::kHubPortZigbee;
using clitest::kHubSetRate;
using clitest::kLink;
using sim::kMillisecond;
using sim::kSecond;
using Lines = std::vector<std::string>;

constexpr uint32_t kHubRate = 115200;
constexpr uint32_t kReaderRate = 9600;
constexpr const char *kSource = "src/cli_libfun.cpp";

// The start of inventory as the camera sends it to a reader behind the hub.
const Bytes kStartInventory = {0xFF, 0x0A, 0x00, 0x07, 0x10, 0xB9, 0xA2};

// A tag report from the reader straight on the line at 9600 baud: twelve bytes.
constexpr sim::Nanos kReportOnLine = 12 * kByteAt9600;
// The same behind the hub: twelve bytes on the reader's channel at 9600 baud, then a hub frame of
// 21 bytes at 115200.
constexpr sim::Nanos kReportBehindHub = 12 * kByteAt9600 + 21 * kByteAt115200;

inline sim::RfidTag tag(std::array<uint8_t, 4> id, sim::Nanos at, size_t repeat = 1,
                        sim::Nanos every = 100 * kMillisecond)
{
    return sim::RfidTag{id, at, repeat, every};
}

inline std::string search_line(const std::string &id)
{
    return " INFO CLI_RfidDataDeal: search ID : " + id;
}

inline std::string console(const std::string &function, const std::string &text)
{
    return "[ERROR]:" + text + "\t@[" + kSource + " " + function + "]\r\n";
}

inline std::string call_failed(const std::string &function, const std::string &what)
{
    return std::string("[") + kSource + " " + function + "]: " + what + " call failed\r\n";
}

// The lines and output of a list: each ID, then the total.
inline Lines list_lines(const std::vector<std::string> &ids)
{
    Lines lines;
    for (const std::string &id : ids)
        lines.push_back(" INFO CLI_GetRfidIDInfo: ID : " + id);
    lines.push_back(" INFO CLI_GetRfidIDInfo: Total Number: " + std::to_string(ids.size()));
    return lines;
}

inline std::string list_out(const std::vector<std::string> &ids)
{
    std::string out;
    for (const std::string &id : ids)
        out += "ID : " + id + "\r\n";
    return out + "Total Number: " + std::to_string(ids.size()) + "\r\n";
}

class RfidTest : public clitest::LinkTest
{
  protected:
    void TearDown() override
    {
        EXPECT_EQ(gulCliRfidSearch, 0) << "the test left the search on";
        EXPECT_FALSE(line_held()) << "the test left the search thread holding the line";
        LinkTest::TearDown();
    }

    // The reader straight on the link; the platform declares only the reader, at 9600 baud.
    void hang_reader(const sim::RfidSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang([setup, how] { return reader_of(setup, how); });
        declare(COM_TYPE_RFID, 1, kReaderRate);
    }

    // A hub on the link with the reader behind port 0x005C; the platform declares the hub and the
    // reader.
    void hang_reader_behind_hub(const sim::RfidSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang_hub([setup, how](sim::HubPeer &hub) { hub.add_device(kHubPortRfid, reader_of(setup, how)); });
        declare(COM_TYPE_HUB, 1, kHubRate);
        declare(COM_TYPE_RFID, 1, kReaderRate);
    }

    static std::unique_ptr<sim::RfidPeer> reader_of(const sim::RfidSetup &setup, const sim::Misbehaviour &how)
    {
        auto reader = std::make_unique<sim::RfidPeer>(setup);
        reader->misbehave(how);
        return reader;
    }

    // The start, and `then` of simulated time after it, in one capture.
    Call start(sim::Nanos then = kMillisecond)
    {
        return run([then] {
            const uint32_t status = CLI_GetRfidIDInfo(0);
            sim::clock().advance(then);
            return status;
        });
    }

    Call wait(sim::Nanos duration)
    {
        return run([duration] { sim::clock().advance(duration); });
    }

    Call list()
    {
        return run([] { return CLI_GetRfidIDInfo(1); });
    }

    Call stop()
    {
        return run([] { return CLI_GetRfidIDInfo(2); });
    }

    // Whether a descriptor the product opened on the link is still open.
    static bool line_held()
    {
        int held = 0;
        for (const sim::Entry &entry : sim::journal().all()) {
            if (entry.name != kLink)
                continue;
            if (entry.kind == sim::Kind::Open && entry.result >= 0)
                ++held;
            else if (entry.kind == sim::Kind::Close)
                --held;
        }
        return held > 0;
    }

    // Lets simulated time pass until the search thread has closed the line (at most `limit`),
    // then a moment more: time cannot move on while the thread still runs, so after it the thread
    // has let go of the reader and ended.
    Call until_the_line_is_let_go(sim::Nanos limit = 30 * kSecond)
    {
        return run([limit] {
            for (sim::Nanos waited = 0; line_held() && waited < limit; waited += 10 * kMillisecond)
                sim::clock().advance(10 * kMillisecond);
            sim::clock().advance(kMillisecond);
        });
    }

    // Stops the search and waits for its thread to end.
    void end_search()
    {
        EXPECT_EQ(stop().status, 0);
        until_the_line_is_let_go();
    }

    static sim::RfidPeer *reader()
    {
        sim::Port *port = line();
        if (port == nullptr)
            return nullptr;
        if (auto *direct = dynamic_cast<sim::RfidPeer *>(port->peer()))
            return direct;
        auto *behind = hub();
        return behind != nullptr ? dynamic_cast<sim::RfidPeer *>(behind->device(kHubPortRfid)) : nullptr;
    }

    // Simulated time at which `call`'s journal shows the first entry of `kind` on the link.
    static sim::Nanos first_time(const Call &call, sim::Kind kind)
    {
        for (const sim::Entry &entry : call.journal)
            if (entry.kind == kind && entry.name == kLink)
                return entry.time;
        return -1;
    }
};

} // namespace rfidtest
