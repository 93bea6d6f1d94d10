#include "peripherals/box_toml.h"

#include "peripherals/box.h"
#include "peripherals/misbehaviour_toml.h"

namespace sim
{
namespace
{

BoxRefusal read_refusal(const Section &refuse)
{
    refuse.only({"command", "reply_command", "reply", "reply_text"});
    const auto command = refuse.integer_in("command", 0, 255);
    if (!command)
        refuse.fail("command", "a refusal needs the command it refuses");
    BoxRefusal refusal{static_cast<uint8_t>(*command), std::nullopt};
    const auto reply_command = refuse.integer_in("reply_command", 0, 255);
    const auto reply = refuse.bytes_or_text("reply");
    if (reply_command || reply)
        refusal.reply = HubFrame::of(kHubPortBox, static_cast<uint8_t>(reply_command.value_or(*command)),
                                     reply.value_or(std::vector<uint8_t>{}));
    return refusal;
}

} // namespace

MakePeer load_box_peer(const Section &box)
{
    const Misbehaviour how = read_misbehaviour(box, BoxPeer::kFraming,
                                               {"temperature", "extra_bytes", "answer_delay_ms", "refuse"});
    BoxSetup setup;
    if (auto temperature = box.integer_in("temperature", 0, 255))
        setup.temperature = static_cast<uint8_t>(*temperature);
    setup.extra_bytes = box.bytes("extra_bytes").value_or(std::vector<uint8_t>{});
    if (!setup.extra_bytes.empty() && !setup.temperature)
        box.fail("extra_bytes", "a box without a temperature sends no answer to make longer");
    setup.answer_delay = box.milliseconds("answer_delay_ms").value_or(0);
    for (const Section &refuse : box.tables("refuse")) {
        const BoxRefusal refusal = read_refusal(refuse);
        for (const BoxRefusal &earlier : setup.refusals)
            if (earlier.command == refusal.command)
                refuse.fail("command", "the box refuses this command already");
        setup.refusals.push_back(refusal);
    }
    return [setup, how]() -> std::unique_ptr<Peer> {
        auto peer = std::make_unique<BoxPeer>(setup);
        peer->misbehave(how);
        return peer;
    };
}

} // namespace sim
