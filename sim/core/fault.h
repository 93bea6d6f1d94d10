// One fault point for the whole simulated camera: "the Nth operation of these kinds fails".
//
// Every simulated operation the product can see fail asks the fault point first: an open of a
// camera path, a driver request, a read or write or select on a serial port, a popen, a read of a
// camera file or pipe, a status-returning driver or image-library operation, a thread start, the
// termios calls on a port, the capture calls on wlan0, and each message a serial peer sends.
// Armed with a count of 0 it only counts, so one healthy run of a command tells how many
// operations it makes; armed with N it fails the Nth, the way the kernel or the driver would
// (-1 with an errno, NULL from popen, an error number from pthread_create), and a peer's Nth
// message is lost with every later one (the peripheral fell silent) or turns to garbage.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sim
{

enum class Fault : unsigned {
    Open = 1u << 0,     // open or fopen of a camera path, the Wi-Fi socket: -1 (ENXIO, ENOENT, EMFILE)
    Request = 1u << 1,  // ioctl on a character device, the channel request on wlan0: -1 EIO
    Read = 1u << 2,     // read of a serial port (-1 EIO), fread or fgets of a camera file or pipe (nothing)
    Write = 1u << 3,    // write to a serial port: -1 EIO
    Select = 1u << 4,   // select on a serial port: -1 EINTR
    Pipe = 1u << 5,     // popen of a camera command: NULL, EMFILE
    Platform = 1u << 6, // a driver or image-library operation that returns a status: -1
    Thread = 1u << 7,   // pthread_create: EAGAIN
    Line = 1u << 8,     // tcgetattr or tcsetattr on a serial port: -1 EIO
    Capture = 1u << 9,  // pcap_open_live (NULL), pcap_compile, pcap_setfilter, pcap_dispatch (-1)
    Peer = 1u << 10,    // a message a serial peer sends, as the peer mode says
};

// Every kind the camera's kernel, drivers and libraries can fail: all but the peers.
constexpr unsigned kSystemFaults = (1u << 10) - 1;

constexpr unsigned operator|(Fault a, Fault b)
{
    return static_cast<unsigned>(a) | static_cast<unsigned>(b);
}

// What becomes of the peer's message that the fault point picks.
enum class PeerMode {
    Silent,  // it and everything after it on that line is lost: the peripheral stopped talking
    Garbage, // it arrives with every byte inverted, same length, same time
};

// One operation the fault point saw: its kind and a short readable name
// ("open /dev/cpld_drv", "ioctl /dev/cpld_drv 0x1950", "DRV_SetIRCut", "read /dev/ttyC0").
struct FaultOp {
    Fault kind;
    std::string what;
};

class FaultPoint
{
  public:
    // Disarmed and empty; sim::start calls it.
    void reset();
    // From now on, count the operations of `kinds`; the `nth` of them (1 = the first) fails, none
    // when 0. The peer mode says what a failed peer message becomes.
    void arm(unsigned kinds, int nth, PeerMode mode = PeerMode::Silent);
    void disarm();

    // Asked by the simulator at each operation: whether this one must fail. `describe` names the
    // operation; it is called only while that kind is counted, so a disarmed point costs one load.
    template <typename Describe> bool fails(Fault kind, Describe &&describe)
    {
        if ((kinds_.load(std::memory_order_acquire) & static_cast<unsigned>(kind)) == 0)
            return false;
        return count(kind, describe());
    }
    // For the peers: whether a message to the product on `port` goes out, is lost, or is garbled.
    enum class Message { Deliver, Lose, Garble };
    Message peer_message(const std::string &port);

    bool armed() const;
    std::vector<FaultOp> seen() const;     // every counted operation, in order
    std::optional<FaultOp> failed() const; // the one that failed, if one did

  private:
    bool count(Fault kind, std::string what);

    mutable std::mutex mutex_;
    std::atomic<unsigned> kinds_{0};
    int nth_ = 0;
    PeerMode mode_ = PeerMode::Silent;
    std::vector<FaultOp> seen_;
    std::optional<FaultOp> failed_;
    std::set<std::string> silent_ports_;
};

FaultPoint &fault_point();

} // namespace sim
