// The camera's serial ports, each a real pty: the product does real termios, select, read,
// write, tcflush and tcdrain on the slave end, and a peer (a simulated peripheral) sits on the
// master end. Select time-outs on these ports run on the simulated clock.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <termios.h>

#include "core/clock.h"
#include "peripherals/peer.h"

namespace sim
{

struct PortScript {
    bool present = true;                              // absent: open fails with ENOENT
    int open_errno = 0;                               // non-zero: open fails with it
    std::function<std::unique_ptr<Peer>()> make_peer; // what hangs on the line (none: silence)
    bool listed = false;                              // named by the scenario (a recorded camera opened it)
    std::deque<int> opens; // the coming opens' outcomes (0 opens), before the standing one
};

class Port final : public TimedSource, public PortLine
{
  public:
    Port(std::string path, std::unique_ptr<Peer> peer);
    ~Port() override;
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    int open_for_product(int flags);
    void product_wrote(size_t count);
    void product_closed(int fd);
    bool readable(int fd) const;
    Peer *peer() { return peer_.get(); }
    // Everything the product has written to this port so far, byte for byte.
    std::vector<uint8_t> written() const;
    // The slave side's termios, as the product left it.
    bool line_settings(struct termios *settings) const;

    // PortLine
    const std::string &path() const override { return path_; }
    unsigned baud() const override;
    bool open_by_product() const override { return !product_fds_.empty(); }

    // TimedSource
    Nanos next_event() override;
    void fire(Nanos now) override;

  private:
    bool create_pty();
    std::vector<uint8_t> drain_master(size_t at_least);
    void hang_up();

    std::string path_;
    std::unique_ptr<Peer> peer_;
    int master_ = -1;
    int keep_ = -1; // the simulator's own slave descriptor: keeps the line's settings and buffer
    std::string slave_name_;
    std::set<int> product_fds_;
    std::vector<uint8_t> written_;
    bool hung_up_ = false;
    bool overrun_ = false;
};

class SerialPorts
{
  public:
    void reset();
    PortScript &script(const std::string &path);
    bool simulated(const std::string &path) const;
    int open(const std::string &path, int flags);
    Port *port_of_fd(int fd);
    Port *port(const std::string &path); // null until the product first opens it

  private:
    mutable std::mutex mutex_;
    std::map<std::string, PortScript> scripts_;
    std::map<std::string, std::unique_ptr<Port>> ports_;
    std::map<int, Port *> by_fd_;
    friend class Port;
    void forget_fd(int fd);
};

SerialPorts &serial_ports();

// A test's hand in the product's writes to the camera's serial ports: given the descriptor and the
// bytes asked for, how many the port takes (a UART whose buffer is full takes fewer, and write
// returns that count). None set: every write goes whole, as a pty with room takes it.
using WriteLimit = size_t (*)(int fd, size_t count);
void set_serial_write_limit(WriteLimit limit);
WriteLimit serial_write_limit();

// A test's own faults on the product's serial ports, asked before the fault point and the kernel:
// a read that finds nothing (returns 0 and consumes nothing), a tcgetattr or tcsetattr that fails
// with EIO. Each is asked once per call on a port; none set: nothing of the kind fails.
struct PortHooks {
    bool (*empty_read)(int fd) = nullptr;
    bool (*fail_getattr)(int fd) = nullptr;
    bool (*fail_setattr)(int fd) = nullptr;
};
void set_port_hooks(const PortHooks &hooks);
PortHooks port_hooks();

extern const char *const kCameraPorts[];

} // namespace sim
