// What every test of a peripheral on the camera's link shares, whatever sits on the line: the
// camera with a peer hung on the link (a scripted device, a hub with its devices, or a
// subsystem's own peer), the capability table set as a platform would set it, and the link's
// traffic read back from the journal. Expected hub frames come from hub_wire.h, apart from the
// library's own builder.
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
#include "peripherals/hub.h"
#include "peripherals/peer.h"
#include "peripherals/scripted_peer.h"
#include "sim_fixture.h"

namespace clitest
{

using Bytes = std::vector<uint8_t>;
using sim::kMillisecond;
using sim::kSecond;

// The peripheral link of the simulated camera.
constexpr const char *kLink = "/dev/ttyC0";

// A byte on the line, written out: ten bits at the rate, counted in whole nanoseconds as a line
// of the simulated camera counts them (10^10 / 9600 = 1,041,666.67; 10^10 / 115200 = 86,805.56).
constexpr sim::Nanos kByteAt9600 = 1'041'666;
constexpr sim::Nanos kByteAt115200 = 86'805;

inline Bytes bytes_of(const std::string &characters)
{
    return Bytes(characters.begin(), characters.end());
}

inline std::string text_of(const Bytes &bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

inline Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// A receive buffer as the callers provide it (1024 bytes) with a guard region after it: nothing
// may ever be written there.
struct GuardedBuffer {
    static constexpr size_t kSize = 1024;
    static constexpr size_t kGuard = 256;
    static constexpr uint8_t kFill = 0xEE;
    uint8_t bytes[kSize + kGuard];

    GuardedBuffer() { memset(bytes, kFill, sizeof bytes); }
    uint8_t *data() { return bytes; }
    Bytes first(size_t n) const { return Bytes(bytes, bytes + n); }
    bool untouched_from(size_t offset) const
    {
        for (size_t i = offset; i < sizeof bytes; ++i)
            if (bytes[i] != kFill)
                return false;
        return true;
    }
    bool guard_intact() const { return untouched_from(kSize); }
};

// The length word callers preset so that "nothing found" can be told from a message.
constexpr uint32_t kUntouchedLength = 0xA5A5A5A5u;

class LinkTest : public SimTest
{
  protected:
    // The capability table with the link's path and one entry per device, as a platform sets it.
    static void declare(uint32_t type, uint32_t present, uint32_t rate)
    {
        gastComCap.pcDevPath = kLink;
        gastComCap.astDev[type].ulSupport = present;
        gastComCap.astDev[type].ulRate = rate;
    }

    // Hangs what `make` builds on the link; the camera starts afresh with it.
    void hang(std::function<std::unique_ptr<sim::Peer>()> make)
    {
        scenario().ports[kLink].make_peer = std::move(make);
        restart();
    }

    // Hangs a scripted peripheral straight on the link.
    void hang_device(std::function<void(sim::ScriptedPeer &)> setup)
    {
        hang([setup] {
            auto peer = std::make_unique<sim::ScriptedPeer>();
            setup(*peer);
            return peer;
        });
    }

    // Hangs a hub on the link; `setup` adds its devices and behaviour.
    void hang_hub(std::function<void(sim::HubPeer &)> setup = nullptr)
    {
        hang([setup] {
            auto hub = std::make_unique<sim::HubPeer>();
            if (setup)
                setup(*hub);
            return hub;
        });
    }

    // The link's port once the product has opened it (null before).
    static sim::Port *line() { return sim::serial_ports().port(kLink); }

    // The hub on the link, once the product has opened it.
    static sim::HubPeer *hub()
    {
        sim::Port *port = line();
        return port != nullptr ? dynamic_cast<sim::HubPeer *>(port->peer()) : nullptr;
    }

    static Bytes written()
    {
        sim::Port *port = line();
        return port != nullptr ? port->written() : Bytes{};
    }

    static unsigned line_baud()
    {
        sim::Port *port = line();
        return port != nullptr ? port->baud() : 0;
    }

    // Opens the link for `type` outside any captured call; the test fails if it does not open.
    static int open_link(uint32_t type)
    {
        int fd = -1;
        EXPECT_EQ(CLI_ComOpen(type, &fd), 0u);
        EXPECT_GE(fd, 0);
        return fd;
    }

    // What the product wrote on the link during `call`, one entry per write.
    static std::vector<Bytes> writes(const Call &call)
    {
        std::vector<Bytes> result;
        for (const sim::Entry &entry : call.of(sim::Kind::SerialWrite, kLink))
            result.push_back(entry.bytes);
        return result;
    }

    // The sleeps of `call`, in order.
    static std::vector<sim::Nanos> sleeps(const Call &call)
    {
        std::vector<sim::Nanos> result;
        for (const sim::Entry &entry : call.of(sim::Kind::Sleep))
            result.push_back(entry.values.at(0));
        return result;
    }
};

} // namespace clitest
