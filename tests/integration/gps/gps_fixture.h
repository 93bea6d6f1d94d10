// What the GPS tests share: the camera with a receiver on the peripheral link (straight on the
// line or behind the hub), the link table filled as the shell's start-up does, blocks of designed
// sentences with the blocks and times each try reads, worked out by hand from the line rate and
// the block size, and a reading of the journal that says which bytes each try of a query could
// read: the receiver's pieces after the try's flush (position) or after the link was reopened
// (satellites). Nothing here uses the library's own code to work out an expected answer.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/time.h"
#include "devices/serial.h"
#include "hub_wire.h"
#include "link_fixture.h"
#include "peripherals/gps.h"
#include "peripherals/hub.h"
#include "sim_fixture.h"

namespace gpstest
{

using clitest::Bytes;
using clitest::bytes_of;
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
using clitest::text_of;
using sim::kMillisecond;
using sim::kSecond;
using Lines = std::vector<std::string>;

constexpr const char *kSource = "src/cli_libfun.cpp";

// What CLI_ComRecv reads from a receiver straight on the line, and the bytes that must follow a
// sentence in it.
constexpr size_t kBlock = 1024;
constexpr size_t kTail = 128;

// A designed receiver's 1024-byte block on the line at 9600 baud: 1024 x 1,041,666 ns =
// 1,066,665,984 ns. The receiver is hung at boot, so block n is whole n blocks after it.
constexpr sim::Nanos kBlockAt9600 = 1024 * kByteAt9600;

// The sleeps of a query before its first try: 2 s before the reopen, 1 s after each of the two
// receiver sentences. A miss costs 2 s of mode setting and 2 s before the reopen.
constexpr sim::Nanos kBeforeFirstTry = 4 * kSecond;
constexpr sim::Nanos kAfterMiss = 4 * kSecond;

// The tries of a query against a designed receiver at 9600 baud: which block each reads (counted
// from 1 after boot; block i of a receiver's list of n is played as blocks i + 1, i + 1 + n, ...)
// and when its read ends.
//   Position: the first try flushes at 4 s, within block 4 (3.75 blocks), and reads block 4,
//   whole at 4 x 1,066,665,984 ns. A miss sleeps 4 s more, 3.75 blocks, so try k flushes within
//   block 4k and reads it, ending at 4k blocks.
//   Satellites: no flush. The first try reopened the link at 2 s, within block 2 (1.875 blocks),
//   and reads block 2, which waits in the line: it ends at 4 s, when the try starts. Try 2
//   reopens at 8 s (7.5 blocks) and reads block 8, ending at 8 blocks; from then on try k reads
//   block 4k as the position query does.
constexpr int kPositionBlock[6] = {4, 8, 12, 16, 20, 24};
constexpr sim::Nanos kPositionEnd[6] = {4 * kBlockAt9600,  8 * kBlockAt9600,  12 * kBlockAt9600,
                                        16 * kBlockAt9600, 20 * kBlockAt9600, 24 * kBlockAt9600};
constexpr int kSatelliteBlock[6] = {2, 8, 12, 16, 20, 24};
constexpr sim::Nanos kSatelliteEnd[6] = {4 * kSecond,       8 * kBlockAt9600,  12 * kBlockAt9600,
                                         16 * kBlockAt9600, 20 * kBlockAt9600, 24 * kBlockAt9600};

// The search-mode command each mode sends, written out by hand.
inline const char *mode_command(uint32_t mode)
{
    static const char *const commands[] = {"$PMTK353,1,0,0,0,0*2A\r\n", "$PMTK353,0,0,0,0,1*2A\r\n",
                                           "$PMTK353,1,0,0,0,1*2B\r\n"};
    return commands[mode];
}

inline std::string cmd_line(uint32_t mode)
{
    return std::string(" INFO CLI_SetGpsMode: Cmd:") + mode_command(mode);
}

// A text as C reads it: up to its first zero byte.
inline std::string c_text(const std::string &bytes)
{
    return std::string(bytes.c_str());
}

inline std::string console(const std::string &function, const std::string &text)
{
    return "[ERROR]:" + text + "\t@[" + kSource + " " + function + "]\r\n";
}

// `sentences`, each ended with CR LF, then filler sentences that carry none of the sentence types
// the queries look for, up to exactly `size` bytes. The filler is a proprietary sentence of the
// right length, so the block is whole sentences throughout.
inline std::string designed_block(const Lines &sentences, size_t size = kBlock, bool at_end = false)
{
    std::string given;
    for (const std::string &sentence : sentences)
        given += sentence + "\r\n";
    std::string fill;
    const std::string filler = "$PFILL,0000000000000000000000000000000000000000000000000000000000*00\r\n";
    while (given.size() + fill.size() + filler.size() + 10 <= size)
        fill += filler;
    const size_t left = size - given.size() - fill.size();
    EXPECT_GE(left, 9u) << "the designed sentences leave no room for the last filler";
    fill += "$PEND," + std::string(left - 8, '0') + "\r\n";
    const std::string block = at_end ? fill + given : given + fill;
    EXPECT_EQ(block.size(), size);
    return block;
}

// A designed block as the receiver's sentences (its lines without their CR LF).
inline Lines as_sentences(const std::string &block)
{
    Lines lines;
    size_t start = 0;
    while (start < block.size()) {
        const size_t end = block.find("\r\n", start);
        lines.push_back(block.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

// A receiver that hands over each designed block whole and plays them in turn: block i of the
// list is piece n of its stream whenever (n - 1) % blocks == i (pieces counted from 1 after boot).
// It keeps its talkers and does not acknowledge, so every piece is exactly a block.
inline sim::GpsSetup designed_receiver(const std::vector<std::string> &blocks)
{
    sim::GpsSetup setup;
    for (const std::string &block : blocks)
        for (const std::string &sentence : as_sentences(block))
            setup.sentences.push_back(sentence);
    setup.chunk = blocks.empty() ? kBlock : blocks.front().size();
    setup.follow_mode = false;
    setup.acknowledge = false;
    return setup;
}

// What a query's tries could read, worked out from the journal: the pieces the receiver put on
// the line (journaled when the product's port received them) after the link was last opened and,
// for the position query, after the try's flush, which comes when the product returns from the
// sleep before the try (the 3rd, 6th, 9th... sleep of the call).
inline std::vector<std::string> blocks_on_the_line(const Call &call, bool flush, size_t tries)
{
    std::vector<sim::Nanos> starts;
    int sleeps = 0;
    for (const sim::Entry &entry : call.journal)
        if (entry.kind == sim::Kind::Sleep && ++sleeps % 3 == 0)
            starts.push_back(entry.time + entry.values.at(0));
    std::vector<std::string> blocks;
    for (size_t k = 0; k < tries && k < starts.size(); ++k) {
        uint64_t opened = 0;
        for (const sim::Entry &entry : call.journal)
            if (entry.kind == sim::Kind::Open && entry.name == kLink && entry.time <= starts[k])
                opened = entry.seq;
        std::string block;
        for (const sim::Entry &entry : call.journal) {
            if (entry.kind != sim::Kind::SerialSend || entry.name != kLink || entry.seq < opened)
                continue;
            if (flush && entry.time <= starts[k])
                continue;
            block += text_of(entry.bytes);
            if (block.size() >= kBlock)
                break;
        }
        blocks.push_back(block.substr(0, std::min(block.size(), kBlock)));
    }
    return blocks;
}

class GpsTest : public clitest::LinkTest
{
  protected:
    // A receiver straight on the link, misbehaving as `how` says.
    void hang_receiver(const sim::GpsSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang([setup, how] { return receiver_of(setup, how); });
    }

    // A hub on the link with the receiver behind its GPS port.
    void hang_hub_with_receiver(const sim::GpsSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang_hub([setup, how](sim::HubPeer &hub) { hub.add_device(kHubPortGps, receiver_of(setup, how)); });
    }

    static std::unique_ptr<sim::GpsPeer> receiver_of(const sim::GpsSetup &setup, const sim::Misbehaviour &how)
    {
        auto gps = std::make_unique<sim::GpsPeer>(setup);
        gps->misbehave(how);
        return gps;
    }

    // What the camera's shell does at start-up: its serial port list and the link table.
    static void rs_init()
    {
        CliSerialPort ports[3] = {};
        ASSERT_EQ(CLI_RsInit(ports), 0u);
    }

    // A platform that fits the hub declares it, at the hub's rate.
    static void declare_hub(uint32_t rate)
    {
        gastComCap.astDev[COM_TYPE_HUB].ulSupport = 1;
        gastComCap.astDev[COM_TYPE_HUB].ulRate = rate;
    }

    static sim::GpsPeer *receiver()
    {
        sim::Port *port = line();
        if (port == nullptr)
            return nullptr;
        if (auto *gps = dynamic_cast<sim::GpsPeer *>(port->peer()))
            return gps;
        if (auto *behind = hub())
            return dynamic_cast<sim::GpsPeer *>(behind->device(kHubPortGps));
        return nullptr;
    }
};

} // namespace gpstest
