// Hub frames and rates as the wire carries them, built for tests apart from the library and the
// simulated hub, so that a test's expected bytes do not lean on the code they check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "clidriver/clidriver.h"

namespace clitest
{

// The ports of the devices behind the hub, as its frames carry them.
constexpr uint16_t kHubPortBox = 0x0005;    // the hub itself and its peripheral box
constexpr uint16_t kHubPortZigbee = 0x005D; // the ZigBee coordinator
constexpr uint16_t kHubPortGps = 0x005B;    // the GPS receiver
constexpr uint16_t kHubPortRfid = 0x005C;   // the RFID reader

// The port behind the hub of each link type, indexed by COM_TYPE_*.
constexpr uint16_t kHubPortOf[COM_TYPE_COUNT] = {kHubPortBox, kHubPortZigbee, kHubPortGps, kHubPortRfid};
static_assert(kHubPortOf[COM_TYPE_GPS] == kHubPortGps && kHubPortOf[COM_TYPE_RFID] == kHubPortRfid);

// The hub's commands in the camera's frames.
constexpr uint8_t kHubPass = 3;    // the payload goes to the device on the port
constexpr uint8_t kHubOpen = 4;    // open the device's channel
constexpr uint8_t kHubClose = 5;   // close the device's channel
constexpr uint8_t kHubSetRate = 6; // the device's rate, four bytes high first

// FE, L = n + 4 (two bytes, high first), 01, port (two bytes), command, the n payload bytes, and
// the low 16 bits of the sum of the L bytes from the 01 on (high first).
inline std::vector<uint8_t> hub_frame(uint16_t port, uint8_t command,
                                      const std::vector<uint8_t> &payload = {})
{
    const size_t length = payload.size() + 4;
    std::vector<uint8_t> frame;
    for (const uint8_t byte :
         {uint8_t{0xFE}, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), uint8_t{0x01},
          static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port), command})
        frame.push_back(byte);
    for (const uint8_t byte : payload) // one by one: GCC 12 misjudges an insert of an empty range
        frame.push_back(byte);
    unsigned sum = 0;
    for (size_t i = 3; i < frame.size(); ++i)
        sum += frame[i];
    frame.push_back(static_cast<uint8_t>(sum >> 8));
    frame.push_back(static_cast<uint8_t>(sum));
    return frame;
}

// A rate as the rate frame carries it: four bytes, high first.
inline std::vector<uint8_t> big_endian_rate(uint32_t rate)
{
    return {static_cast<uint8_t>(rate >> 24), static_cast<uint8_t>(rate >> 16),
            static_cast<uint8_t>(rate >> 8), static_cast<uint8_t>(rate)};
}

} // namespace clitest
