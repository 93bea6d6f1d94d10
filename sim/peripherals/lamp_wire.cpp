#include "peripherals/lamp_wire.h"

#include <algorithm>

#include "lamp_frame.h"

namespace sim
{

std::vector<HeardLampFrame> LampFrameReader::read(const std::vector<uint8_t> &bytes, Nanos now)
{
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    std::vector<HeardLampFrame> frames;
    for (;;) {
        const auto sync = std::find(pending_.begin(), pending_.end(), kLampSync);
        skipped_ += static_cast<size_t>(sync - pending_.begin());
        pending_.erase(pending_.begin(), sync);
        if (pending_.size() < kLampFrameSize)
            return frames;
        HeardLampFrame frame;
        frame.time = now;
        frame.bytes.assign(pending_.begin(), pending_.begin() + kLampFrameSize);
        const CliLampVerdict verdict = cli_lamp_frame_check(pending_.data(), kLampFrameSize);
        frame.check_ok = verdict == CLI_LAMP_FRAME_OK;
        if (frame.check_ok) {
            pending_.erase(pending_.begin(), pending_.begin() + kLampFrameSize);
        } else {
            ++skipped_; // its sync byte; a frame may start within the rest
            pending_.erase(pending_.begin());
        }
        frames.push_back(std::move(frame));
    }
}

std::vector<uint8_t> lamp_frame(uint8_t address, uint8_t command, uint16_t data)
{
    std::vector<uint8_t> frame(kLampFrameSize);
    cli_lamp_frame_build(frame.data(), static_cast<uint32_t>(frame.size()), address, command, data);
    return frame;
}

void spoil_lamp_check(std::vector<uint8_t> &frame)
{
    if (frame.size() == kLampFrameSize)
        frame[kLampOffCheck] = static_cast<uint8_t>(frame[kLampOffCheck] + 1);
}

} // namespace sim
