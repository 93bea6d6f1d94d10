#include "peripherals/scripted_peer.h"

#include <algorithm>

namespace sim
{

const Framing ScriptedPeer::kFraming = {"a scripted peer"};

void ScriptedPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    heard_.insert(heard_.end(), bytes.begin(), bytes.end());
    for (auto rule = rules_.begin(); rule != rules_.end();) {
        auto found = std::search(heard_.begin(), heard_.end(), rule->when.begin(), rule->when.end());
        if (rule->when.empty() || found == heard_.end()) {
            ++rule;
            continue;
        }
        heard_.erase(heard_.begin(), found + static_cast<long>(rule->when.size()));
        send_message(now + rule->delay, rule->answer);
        if (rule->once)
            rules_.erase(rule);
        rule = rules_.begin(); // the rest of what was heard may hold another request
    }
}

Nanos ScriptedPeer::next_action()
{
    return announcements_.empty() ? kNever : announcements_.begin()->first;
}

void ScriptedPeer::act(Nanos now)
{
    while (!announcements_.empty() && announcements_.begin()->first <= now) {
        send_message(announcements_.begin()->first, std::move(announcements_.begin()->second));
        announcements_.erase(announcements_.begin());
    }
}

} // namespace sim
