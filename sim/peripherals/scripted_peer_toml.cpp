#include "peripherals/scripted_peer_toml.h"

#include "peripherals/misbehaviour_toml.h"
#include "peripherals/scripted_peer.h"

namespace sim
{

MakePeer load_script_peer(const Section &port)
{
    const Misbehaviour how = read_misbehaviour(port, ScriptedPeer::kFraming, {"rule", "announce"});
    std::vector<ScriptedPeer::Rule> rules;
    for (const Section &rule : port.tables("rule")) {
        rule.only({"when", "when_text", "answer", "answer_text", "delay_ms", "once"});
        ScriptedPeer::Rule parsed;
        auto when = rule.bytes_or_text("when");
        if (!when || when->empty())
            rule.fail("when", "a rule needs the bytes it answers (when or when_text)");
        parsed.when = *when;
        parsed.answer = rule.bytes_or_text("answer").value_or(std::vector<uint8_t>{});
        parsed.delay = rule.milliseconds("delay_ms").value_or(0);
        parsed.once = rule.boolean("once").value_or(false);
        rules.push_back(parsed);
    }
    std::vector<std::pair<Nanos, std::vector<uint8_t>>> announcements;
    for (const Section &announce : port.tables("announce")) {
        announce.only({"at_ms", "bytes", "bytes_text"});
        auto bytes = announce.bytes_or_text("bytes");
        if (!bytes)
            announce.fail("bytes", "an announcement needs its bytes (bytes or bytes_text)");
        announcements.emplace_back(announce.milliseconds("at_ms").value_or(0), *bytes);
    }
    return [=]() -> std::unique_ptr<Peer> {
        auto peer = std::make_unique<ScriptedPeer>();
        peer->misbehave(how);
        for (const auto &rule : rules)
            peer->add_rule(rule);
        for (const auto &[when, bytes] : announcements)
            peer->announce(when, bytes);
        return peer;
    };
}

} // namespace sim
