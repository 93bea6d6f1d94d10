#include "peripherals/ir_lamp.h"

#include "lamp_frame.h"

namespace sim
{

const Framing IrLampPeer::kFraming = {"the IR lamp unit"};

IrLampPeer::IrLampPeer(uint8_t address) : MessagePeer(kFraming), address_(address) {}

void IrLampPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    for (HeardLampFrame &frame : reader_.read(bytes, now)) {
        const LampVerdict verdict = obey(frame);
        requests_.push_back(LampRequest{std::move(frame), verdict});
    }
}

LampVerdict IrLampPeer::obey(const HeardLampFrame &frame)
{
    if (!frame.check_ok)
        return LampVerdict::BadCheck;
    if (frame.address() != address_)
        return LampVerdict::OtherAddress;
    if (frame.bytes[kLampOffCommand1] != kLampCommand1 || frame.command() != kLampCmdIrLamp)
        return LampVerdict::OtherCommand;
    switch (frame.data()) {
    case kIrLampDataOnPort0:
        on_[0] = true;
        return LampVerdict::Obeyed;
    case kIrLampDataOnPort1:
        on_[1] = true;
        return LampVerdict::Obeyed;
    case kIrLampDataOff:
        on_[0] = on_[1] = false;
        return LampVerdict::Obeyed;
    default:
        return LampVerdict::UnknownSwitch;
    }
}

} // namespace sim
