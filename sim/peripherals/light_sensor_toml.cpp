#include "peripherals/light_sensor_toml.h"

#include "peripherals/light_sensor.h"
#include "peripherals/misbehaviour_toml.h"

namespace sim
{

MakePeer load_light_sensor_peer(const Section &port)
{
    const Misbehaviour how = read_misbehaviour(port, LightSensorPeer::kFraming,
                                               {"address", "level", "answer_delay_ms", "wrong_replies"});
    LightSensorSetup setup;
    setup.address = static_cast<uint8_t>(port.integer_in("address", 0, 255).value_or(setup.address));
    setup.level = static_cast<uint8_t>(port.integer_in("level", 0, 255).value_or(setup.level));
    setup.answer_delay = port.milliseconds("answer_delay_ms").value_or(0);
    for (const int64_t number : port.integers("wrong_replies").value_or(std::vector<int64_t>{})) {
        if (number < 1)
            port.fail("wrong_replies", "expected the numbers of replies, from 1 ([1, 3])");
        setup.wrong_replies.push_back(static_cast<size_t>(number));
    }
    return [setup, how]() -> std::unique_ptr<Peer> {
        auto peer = std::make_unique<LightSensorPeer>(setup);
        peer->misbehave(how);
        return peer;
    };
}

} // namespace sim
