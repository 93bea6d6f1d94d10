// The misbehaviour layer between a simulated peripheral and its line.
//
// A peer decides what to say and when; it hands every whole message it sends (a scripted
// answer, an NMEA sentence, a hub frame) to this layer, which puts it on the line at the peer's
// speed, or does with it what the scenario's misbehaviour keys ask: drops it (silent), replaces
// the whole stream with seeded noise (garbage), sends it one byte at a time (trickle), spoils the
// check or the length field of the n-th message through the peer's Framing hooks, and hangs up
// after so many bytes heard or at a time. Every peer gets the same keys this way and none
// re-implements them.
//
// Writing a peer (the RFID reader, the ZigBee coordinator, the lamp unit...):
//   - derive from MessagePeer and declare `static const Framing kFraming` (its hooks, or null);
//   - implement on_receive(): what it does with the product's bytes (never called after a
//     hang-up);
//   - send each whole message with send_message(start, bytes), at line speed from `start`;
//   - for messages it sends on its own at given times, keep them and override next_action() (when
//     the next is due) and act(now) (hand over what is due), so that the misbehaviour applies
//     whatever order a test configured things in;
//   - its loader calls read_misbehaviour() (misbehaviour_toml.h) and misbehave() on the peer.
// A peer that paces a stream itself (the GPS receiver's fixed pieces) uses pass_message() and
// send_bytes() instead of send_message(); bytes that must go out exactly as scripted, whatever the
// misbehaviour (the hub's wrong frames), use send_raw().
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "core/random.h"
#include "peripherals/misbehaviour.h"
#include "peripherals/peer.h"

namespace sim
{

class MessagePeer : public Peer
{
  public:
    using Mode = Misbehaviour::Mode;

    // Bytes a UART's receive interrupt hands over at once, unless a peer says otherwise.
    static constexpr size_t kUartChunk = 16;
    // The speed a peer assumes until its line says otherwise.
    static constexpr unsigned kDefaultBaud = 9600;

    explicit MessagePeer(const Framing &framing);

    // What it does wrong from now on (replacing what it was told before). Garbage starts when
    // the peer was made.
    void misbehave(const Misbehaviour &how);
    const Misbehaviour &misbehaviour() const { return how_; }
    const Framing &framing() const { return framing_; }
    // Messages handed to the layer so far, the dropped ones included.
    size_t messages() const { return messages_; }

    // Peer, with the layer in between.
    void receive(const std::vector<uint8_t> &bytes, Nanos now) final;
    Nanos next_send() final;
    std::vector<uint8_t> take(Nanos now) final;
    std::vector<std::vector<uint8_t>> take_pieces(Nanos now) final;
    bool hung_up() const final { return hung_up_; }

    // Time one byte takes on the line at `baud` (8N1: ten bits; 0 baud: no time).
    static Nanos byte_time(unsigned baud);

  protected:
    // What the peer does with bytes the product wrote; `now` is when the write completed.
    virtual void on_receive(const std::vector<uint8_t> &bytes, Nanos now) = 0;
    // When the peer next has something of its own to hand over (kNever: nothing), and handing
    // over what is due at `now`. act() is called on every take(), due or not.
    virtual Nanos next_action() { return kNever; }
    virtual void act(Nanos now) { (void)now; }
    // What the product's side makes of the bytes arriving now (a UART at another speed).
    virtual void on_the_wire(std::vector<uint8_t> &bytes) { (void)bytes; }
    // The speed of the peer's own UART: its line's, or kDefaultBaud before it has one.
    virtual unsigned uart_baud() const;

    // A whole message, sent from `start` at line speed in pieces of `chunk` bytes. Returns when
    // its last byte is out (`start` when the layer dropped it).
    Nanos send_message(Nanos start, std::vector<uint8_t> message, size_t chunk = kUartChunk);
    // For a peer that paces its own stream: the message as the layer lets it go (numbered,
    // spoiled as asked), empty when dropped ...
    std::vector<uint8_t> pass_message(std::vector<uint8_t> message);
    // ... and bytes of its stream at `when` (a byte at a time in a trickle; none when silent).
    void send_bytes(Nanos when, std::vector<uint8_t> bytes);
    // Bytes exactly as given, from `start` at line speed, whatever the misbehaviour but a
    // hang-up. Returns when the last byte is out.
    Nanos send_raw(Nanos start, const std::vector<uint8_t> &bytes, size_t chunk = kUartChunk);

  private:
    struct Pending {
        Nanos when;
        std::vector<uint8_t> bytes;
    };

    bool drops_messages() const;
    void queue(Nanos when, std::vector<uint8_t> bytes);
    Nanos queue_at_line_rate(Nanos start, const std::vector<uint8_t> &bytes, size_t chunk);
    Nanos trickle(Nanos start, const std::vector<uint8_t> &bytes);
    Nanos noise_interval() const;
    void hang_up();

    const Framing &framing_;
    Misbehaviour how_;
    const Nanos made_;
    std::deque<Pending> queue_; // kept in time order
    SeededRandom noise_;
    Nanos next_noise_;
    Nanos trickle_free_ = 0; // when the last trickled byte goes out
    size_t heard_ = 0;       // bytes heard, for hang_up_after
    size_t messages_ = 0;
    bool hung_up_ = false;
};

} // namespace sim
