#include "peripherals/ir_lamp_toml.h"

#include "peripherals/ir_lamp.h"
#include "peripherals/misbehaviour_toml.h"

namespace sim
{
namespace
{

// The address the camera's frames carry.
constexpr int64_t kDefaultLampAddress = 0x01;

} // namespace

MakePeer load_ir_lamp_peer(const Section &port)
{
    const Misbehaviour how = read_misbehaviour(port, IrLampPeer::kFraming, {"address"});
    const auto address =
        static_cast<uint8_t>(port.integer_in("address", 0, 255).value_or(kDefaultLampAddress));
    return [address, how]() -> std::unique_ptr<Peer> {
        auto peer = std::make_unique<IrLampPeer>(address);
        peer->misbehave(how);
        return peer;
    };
}

} // namespace sim
