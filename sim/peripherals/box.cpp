#include "peripherals/box.h"

#include <algorithm>

namespace sim
{

const Framing BoxPeer::kFraming = {"the peripheral box", spoil_hub_checksum, claim_hub_oversize};

BoxPeer::BoxPeer(BoxSetup setup) : MessagePeer(kFraming), setup_(std::move(setup)) {}

void BoxPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    for (const HeardFrame &frame : reader_.read(bytes, now))
        if (frame.kind_ok && frame.checksum_ok && frame.port == kHubPortBox)
            obey(frame, now);
}

void BoxPeer::obey(const HeardFrame &frame, Nanos now)
{
    const auto refusal = std::find_if(setup_.refusals.begin(), setup_.refusals.end(),
                                      [&](const BoxRefusal &r) { return r.command == frame.command; });
    commands_.push_back(BoxCommand{now, frame.command, frame.payload, refusal != setup_.refusals.end()});
    if (refusal != setup_.refusals.end()) {
        if (refusal->reply)
            answer(now, *refusal->reply);
        return;
    }
    switch (frame.command) {
    case kBoxSwitchHeater:
        if (frame.payload.size() == 1 && frame.payload[0] == kBoxHeaterOn)
            heater_on_ = true;
        else if (frame.payload.size() == 1 && frame.payload[0] == kBoxHeaterOff)
            heater_on_ = false;
        break;
    case kBoxAskTemperature:
        if (setup_.temperature) {
            HubFrame reply = HubFrame::of(kHubPortBox, kBoxAskTemperature, {*setup_.temperature});
            reply.payload.insert(reply.payload.end(), setup_.extra_bytes.begin(), setup_.extra_bytes.end());
            answer(now, reply);
        }
        break;
    default:
        break;
    }
}

// One answer frame, handed over whole, so that behind the hub it stays one frame.
void BoxPeer::answer(Nanos now, const HubFrame &frame)
{
    std::vector<uint8_t> bytes = frame.bytes();
    const size_t whole = bytes.size();
    send_message(now + setup_.answer_delay, std::move(bytes), whole);
}

} // namespace sim
