// What the serial and peripheral-link tests share: the camera with a peripheral on the link,
// the capability table set as a platform would set it, and expected hub frames built here, apart
// from the library's own builder, byte by byte.
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
#include "fault_injection.h"
#include "hub_wire.h"
#include "peripherals/hub.h"
#include "peripherals/scripted_peer.h"
#include "sim_fixture.h"

namespace serialtest
{

using Bytes = std::vector<uint8_t>;
using sim::kMillisecond;
using sim::kSecond;

constexpr const char *kLink = "/dev/ttyC0";

// Where each link type sits behind the hub.
constexpr uint16_t kPortOf[COM_TYPE_COUNT] = {0x0005, 0x005D, 0x005B, 0x005C};

// The time `bytes` bytes take on the line at `baud` (ten bits a byte, whole nanoseconds a byte).
constexpr sim::Nanos line_time(size_t bytes, unsigned baud)
{
    return static_cast<sim::Nanos>(bytes) * (10 * kSecond / baud);
}

inline Bytes text(const std::string &characters)
{
    return Bytes(characters.begin(), characters.end());
}

inline Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

using clitest::hub_frame;

using clitest::big_endian_rate;

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

class LinkTest : public clitest::SimTest
{
  protected:
    // The capability table with the link's path and one entry per device, as a platform sets it.
    static void declare(uint32_t type, uint32_t present, uint32_t rate)
    {
        gastComCap.pcDevPath = kLink;
        gastComCap.astDev[type].ulSupport = present;
        gastComCap.astDev[type].ulRate = rate;
    }

    // Hangs a scripted peripheral straight on the link.
    void hang_device(std::function<void(sim::ScriptedPeer &)> setup)
    {
        scenario().ports[kLink].make_peer = [setup] {
            auto peer = std::make_unique<sim::ScriptedPeer>();
            setup(*peer);
            return peer;
        };
        restart();
    }

    // Hangs a hub on the link; `setup` adds its devices and behaviour.
    void hang_hub(std::function<void(sim::HubPeer &)> setup = nullptr)
    {
        scenario().ports[kLink].make_peer = [setup] {
            auto hub = std::make_unique<sim::HubPeer>();
            if (setup)
                setup(*hub);
            return hub;
        };
        restart();
    }

    // The hub on the link, once the product has opened it.
    static sim::HubPeer *hub()
    {
        sim::Port *port = sim::serial_ports().port(kLink);
        return port != nullptr ? dynamic_cast<sim::HubPeer *>(port->peer()) : nullptr;
    }

    static Bytes written()
    {
        sim::Port *port = sim::serial_ports().port(kLink);
        return port != nullptr ? port->written() : Bytes{};
    }

    static unsigned line_baud()
    {
        sim::Port *port = sim::serial_ports().port(kLink);
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

    static std::vector<Bytes> writes(const clitest::Call &call)
    {
        std::vector<Bytes> result;
        for (const sim::Entry &entry : call.of(sim::Kind::SerialWrite, kLink))
            result.push_back(entry.bytes);
        return result;
    }
};

} // namespace serialtest
