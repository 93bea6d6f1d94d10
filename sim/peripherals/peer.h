// Peripherals on the far end of a simulated serial port.
//
// A peer sees what the product writes, at the simulated time it was written, and decides what to
// send back and when. Everything it sends goes out at simulated times the peer chooses; the port
// delivers it only while the product has the port open (a closed UART drops what arrives).
// Simulated peripherals build on MessagePeer (message_peer.h), which gives them the shared
// misbehaviour.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/time.h"

namespace sim
{

// What a peer can see of its line.
class PortLine
{
  public:
    virtual ~PortLine() = default;
    virtual const std::string &path() const = 0;
    virtual unsigned baud() const = 0;        // the speed the product set (termios), e.g. 9600
    virtual bool open_by_product() const = 0; // whether anything would receive bytes now
};

class Peer
{
  public:
    virtual ~Peer() = default;
    void attach(PortLine *line) { line_ = line; }

    // The product wrote `bytes`; `now` is the simulated time the write completed.
    virtual void receive(const std::vector<uint8_t> &bytes, Nanos now) = 0;
    // When this peer next has bytes to send (kNever: nothing pending).
    virtual Nanos next_send() = 0;
    // The bytes due at `now` (called once next_send() <= now).
    virtual std::vector<uint8_t> take(Nanos now) = 0;
    // The same, in the pieces they were sent in: a peer that hands over whole frames keeps each
    // one piece, so that the hub can pass the peripheral box's frames on one by one.
    virtual std::vector<std::vector<uint8_t>> take_pieces(Nanos now) { return {take(now)}; }

    virtual void product_opened(Nanos now) { (void)now; }
    virtual void product_closed(Nanos now) { (void)now; }
    // True once the peer has hung up the line.
    virtual bool hung_up() const { return false; }

  protected:
    PortLine *line_ = nullptr;
};

} // namespace sim
