#include "peripherals/light_sensor.h"

#include <algorithm>

#include "lamp_frame.h"

namespace sim
{

const Framing LightSensorPeer::kFraming = {"the light sensor", spoil_lamp_check, nullptr};

LightSensorPeer::LightSensorPeer(LightSensorSetup setup) : MessagePeer(kFraming), setup_(std::move(setup)) {}

bool LightSensorPeer::is_query(const HeardLampFrame &frame) const
{
    return frame.check_ok && frame.address() == setup_.address &&
           frame.bytes[kLampOffCommand1] == kLampCommand1 && frame.command() == kLampCmdLightQuery;
}

// Each reply goes out whole, seven bytes at 9600 baud after the delay.
void LightSensorPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    for (HeardLampFrame &frame : reader_.read(bytes, now)) {
        const bool query = is_query(frame);
        heard_.push_back(std::move(frame));
        if (!query)
            continue;
        const size_t number = ++replies_;
        const bool wrong = std::find(setup_.wrong_replies.begin(), setup_.wrong_replies.end(), number) !=
                           setup_.wrong_replies.end();
        const uint8_t command = wrong ? kWrongReplyCommand : kLampCmdLightReply;
        send_message(now + setup_.answer_delay, lamp_frame(setup_.address, command, setup_.level));
    }
}

} // namespace sim
