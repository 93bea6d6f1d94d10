// What the ZigBee tests share: a sensor record with guard bytes after it, a frame handed to a
// decoder in a heap buffer of exactly its size (so that a read past it shows under the
// sanitizers), the camera with the simulated coordinator behind the hub's port 0x005D or straight
// on the link, and the times a join takes, worked out by hand from the line rates.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "hub_wire.h"
#include "link_fixture.h"
#include "peripherals/hub.h"
#include "peripherals/zigbee.h"
#include "sim_fixture.h"
#include "zigbee_wire.h"

namespace zbtest
{

using clitest::Bytes;
using clitest::Call;
using clitest::hub_frame;
using clitest::kLink;
using clitest::ZbBytes;
using sim::kMillisecond;
using sim::kSecond;
using Lines = std::vector<std::string>;

constexpr const char *kSource = "src/cli_libfun.cpp";

inline std::string console(const std::string &function, const std::string &text)
{
    return "[ERROR]:" + text + "\t@[" + kSource + " " + function + "]\r\n";
}

inline std::string call_failed(const std::string &function, const std::string &callee)
{
    return std::string("[") + kSource + " " + function + "]: " + callee + " call failed\r\n";
}

// A sensor record as a caller holds it, with bytes after it that nothing may touch.
struct GuardedRecord {
    static constexpr size_t kGuard = 64;
    static constexpr uint8_t kFill = 0xEE;
    CliZigbeeSensorRecord record;
    uint8_t guard[kGuard];

    GuardedRecord() { memset(guard, kFill, sizeof guard); }
    // A record that shows which fields a decoder wrote: every field set to something else first.
    static GuardedRecord marked()
    {
        GuardedRecord held;
        held.record.lState = -7;
        held.record.ulTemperature = 11;
        held.record.ulHumidity = 22;
        held.record.ulParticulate = 33;
        memset(held.record.acVersion, 0, sizeof held.record.acVersion);
        strcpy(held.record.acVersion, "old");
        return held;
    }
    bool guard_intact() const
    {
        for (const uint8_t byte : guard)
            if (byte != kFill)
                return false;
        return true;
    }
    std::string version() const { return std::string(record.acVersion, strnlen(record.acVersion, 32)); }
    bool version_terminated() const
    {
        return memchr(record.acVersion, 0, sizeof record.acVersion) != nullptr;
    }
};

// A frame in a heap buffer of exactly its size.
class ExactBuffer
{
  public:
    explicit ExactBuffer(const ZbBytes &bytes) : size_(bytes.size())
    {
        data_ = static_cast<uint8_t *>(malloc(size_ == 0 ? 1 : size_));
        if (size_ != 0)
            memcpy(data_, bytes.data(), size_);
    }
    ~ExactBuffer() { free(data_); }
    ExactBuffer(const ExactBuffer &) = delete;
    ExactBuffer &operator=(const ExactBuffer &) = delete;
    const uint8_t *data() const { return data_; }
    uint32_t size() const { return static_cast<uint32_t>(size_); }

  private:
    uint8_t *data_;
    size_t size_;
};

// The rates of a traffic camera's link: the hub's line and the coordinator's channel.
constexpr uint32_t kHubRate = 115200;
constexpr uint32_t kZigbeeRate = 115200;

// One byte at 115200 baud, ten bits, in whole nanoseconds (10^10 / 115200 = 86,805.56).
constexpr sim::Nanos kByte = clitest::kByteAt115200;

class ZigbeeTest : public clitest::LinkTest
{
  protected:
    // The link table as the shell's start-up and a platform with a hub leave it: the line, the
    // GPS receiver at 9600 (CLI_RsInit), the hub and the coordinator declared.
    static void traffic_camera_link()
    {
        CliSerialPort ports[3] = {};
        ASSERT_EQ(CLI_RsInit(ports), 0u);
        declare(COM_TYPE_HUB, 1, kHubRate);
        declare(COM_TYPE_ZIGBEE, 1, kZigbeeRate);
    }

    // A hub on the link with the coordinator behind port 0x005D.
    void hang_coordinator(const sim::ZigbeeSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang_hub([setup, how](sim::HubPeer &hub) { hub.add_device(sim::kHubPortZigbee, make(setup, how)); });
        traffic_camera_link();
    }

    // The coordinator straight on the link, and nothing else there.
    void hang_coordinator_on_the_line(const sim::ZigbeeSetup &setup)
    {
        hang([setup] { return make(setup, {}); });
        declare(COM_TYPE_ZIGBEE, 1, kZigbeeRate);
    }

    static std::unique_ptr<sim::ZigbeePeer> make(const sim::ZigbeeSetup &setup, const sim::Misbehaviour &how)
    {
        auto peer = std::make_unique<sim::ZigbeePeer>(setup);
        peer->misbehave(how);
        return peer;
    }

    // The coordinator, once the product has opened the link.
    static sim::ZigbeePeer *coordinator()
    {
        sim::Port *port = line();
        if (port == nullptr)
            return nullptr;
        if (auto *direct = dynamic_cast<sim::ZigbeePeer *>(port->peer()))
            return direct;
        if (auto *behind = hub())
            return dynamic_cast<sim::ZigbeePeer *>(behind->device(sim::kHubPortZigbee));
        return nullptr;
    }
};

} // namespace zbtest
