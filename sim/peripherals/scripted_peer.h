// A generic peripheral: "when these bytes arrive, answer those", with a byte-exact record of
// everything the product wrote (the port keeps it), and misbehaviour on demand.
#pragma once

#include <cstdint>
#include <vector>

#include "peripherals/peer.h"

namespace sim
{

class ScriptedPeer : public QueuedPeer
{
  public:
    enum class Mode {
        Normal,
        Silent,  // hears everything, answers nothing
        Garbage, // answers nothing sensible: sends pseudo-random bytes without pause
        Trickle, // answers, one byte every `trickle_gap`
    };

    struct Rule {
        std::vector<uint8_t> when;   // answer once these bytes have arrived (in one piece)
        std::vector<uint8_t> answer; // with these
        Nanos delay = 0;             // this long after the request was complete
        bool once = false;           // then forget the rule
    };

    void add_rule(Rule rule) { rules_.push_back(std::move(rule)); }
    // Bytes sent on their own, starting at `when`, at line rate.
    void announce(Nanos when, std::vector<uint8_t> bytes);
    void set_mode(Mode mode) { mode_ = mode; }
    void set_trickle_gap(Nanos gap) { trickle_gap_ = gap; }
    void set_garbage(Nanos every, size_t chunk, uint32_t seed);
    // Hangs up once this many bytes have arrived from the product (0: never).
    void hang_up_after(size_t bytes) { hang_up_after_ = bytes; }
    // Hangs up at a simulated time.
    void hang_up_at(Nanos when) { hang_up_at_ = when; }

    void receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_send() override;
    std::vector<uint8_t> take(Nanos now) override;
    bool hung_up() const override { return hung_up_; }

  private:
    std::vector<Rule> rules_;
    std::vector<uint8_t> heard_; // not yet matched
    size_t received_total_ = 0;
    Mode mode_ = Mode::Normal;
    Nanos trickle_gap_ = 100 * kMillisecond;
    Nanos garbage_every_ = 10 * kMillisecond;
    size_t garbage_chunk_ = 16;
    uint32_t garbage_state_ = 1;
    Nanos next_garbage_ = 0;
    size_t hang_up_after_ = 0;
    Nanos hang_up_at_ = kNever;
    bool hung_up_ = false;
};

} // namespace sim
