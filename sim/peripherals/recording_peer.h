// What hung on a serial port of a recorded camera, played back from the port's log: each piece
// the library read is sent at the time it was there on the camera, once everything the library
// wrote before it on the camera has been written again byte for byte. A write that differs, or
// one the recording does not have, is a departure: the replay says so and the line goes silent.
#pragma once

#include <string>

#include "peripherals/peer.h"
#include "peripherals/port_log.h"

namespace sim
{

class RecordingPeer : public Peer
{
  public:
    RecordingPeer(std::string path, PortLog log);

    void receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_send() override;
    std::vector<uint8_t> take(Nanos now) override;

  private:
    // Steps over the log's opens and closes: the port's own state follows the library's calls.
    void skip_markers();
    void depart(const std::string &what);

    std::string path_;
    std::vector<PortEvent> events_;
    size_t next_ = 0;        // the event the line waits for
    size_t written_ = 0;     // bytes of a write event already matched
    size_t writes_seen_ = 0; // writes of the library so far, for the departure line
    bool silent_ = false;
};

} // namespace sim
