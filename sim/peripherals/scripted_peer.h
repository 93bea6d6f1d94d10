// A generic peripheral: "when these bytes arrive, answer those", and bytes sent unasked at given
// times, with a byte-exact record of everything the product wrote (the port keeps it). Its
// messages are whatever the rules say, so it has no check or length field of its own to spoil:
// a wrong answer is written wrong in its rule. Misbehaviour comes from the layer (MessagePeer).
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "peripherals/message_peer.h"

namespace sim
{

class ScriptedPeer : public MessagePeer
{
  public:
    static const Framing kFraming;

    struct Rule {
        std::vector<uint8_t> when;   // answer once these bytes have arrived (in one piece)
        std::vector<uint8_t> answer; // with these
        Nanos delay = 0;             // this long after the request was complete
        bool once = false;           // then forget the rule
    };

    ScriptedPeer() : MessagePeer(kFraming) {}

    void add_rule(Rule rule) { rules_.push_back(std::move(rule)); }
    // Bytes sent on their own, starting at `when`, at line speed: one message.
    void announce(Nanos when, std::vector<uint8_t> bytes) { announcements_.emplace(when, std::move(bytes)); }

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_action() override;
    void act(Nanos now) override;

  private:
    std::vector<Rule> rules_;
    std::vector<uint8_t> heard_;                               // not yet matched
    std::multimap<Nanos, std::vector<uint8_t>> announcements_; // not yet handed over, by time
};

} // namespace sim
