#include "devices/serial.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/real.h"
#include "core/replay.h"

namespace sim
{

const char *const kCameraPorts[] = {"/dev/ttyAMBA1", "/dev/ttyS1", "/dev/ttyS2", "/dev/ttyC0", nullptr};

namespace
{

// How long real time may pass while the kernel moves bytes between the two ends of a pty.
constexpr int kPtyLatencyMs = 2000;

unsigned speed_to_baud(speed_t speed)
{
    switch (speed) {
    case B1200:
        return 1200;
    case B2400:
        return 2400;
    case B4800:
        return 4800;
    case B9600:
        return 9600;
    case B19200:
        return 19200;
    case B38400:
        return 38400;
    case B57600:
        return 57600;
    case B115200:
        return 115200;
    default:
        return 0;
    }
}

int pending_input(int fd)
{
    int count = 0;
    return real::ioctl(fd, FIONREAD, &count) == 0 ? count : -1;
}

// What the test in charge lets each write to a port take; none: everything.
std::atomic<WriteLimit> write_limit{nullptr};

// What the test in charge makes fail on the ports itself, beside the fault point.
std::atomic<bool (*)(int)> hook_empty_read{nullptr};
std::atomic<bool (*)(int)> hook_fail_getattr{nullptr};
std::atomic<bool (*)(int)> hook_fail_setattr{nullptr};

} // namespace

void set_port_hooks(const PortHooks &hooks)
{
    hook_empty_read.store(hooks.empty_read);
    hook_fail_getattr.store(hooks.fail_getattr);
    hook_fail_setattr.store(hooks.fail_setattr);
}

PortHooks port_hooks()
{
    return PortHooks{hook_empty_read.load(), hook_fail_getattr.load(), hook_fail_setattr.load()};
}

void set_serial_write_limit(WriteLimit limit)
{
    write_limit.store(limit);
}

WriteLimit serial_write_limit()
{
    return write_limit.load();
}

SerialPorts &serial_ports()
{
    static SerialPorts *instance = new SerialPorts;
    return *instance;
}

Port::Port(std::string path, std::unique_ptr<Peer> peer) : path_(std::move(path)), peer_(std::move(peer))
{
    if (peer_)
        peer_->attach(this);
    create_pty();
    clock().add_source(this);
}

Port::~Port()
{
    clock().remove_source(this);
    for (int fd : {master_, keep_}) {
        if (fd >= 0) {
            descriptors().unmark_internal(fd);
            real::close(fd);
        }
    }
}

bool Port::create_pty()
{
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0)
        return false;
    char name[128] = {};
    if (ptsname_r(master_, name, sizeof name) != 0)
        return false;
    slave_name_ = name;
    keep_ = real::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    descriptors().mark_internal(master_);
    descriptors().mark_internal(keep_);
    return keep_ >= 0;
}

int Port::open_for_product(int flags)
{
    if (hung_up_) {
        errno = EIO;
        return -1;
    }
    const int fd = real::open(slave_name_.c_str(), flags | O_NOCTTY);
    if (fd < 0)
        return -1;
    clock().locked([&] {
        const bool first = product_fds_.empty();
        product_fds_.insert(fd);
        if (first && peer_)
            peer_->product_opened(clock().now());
        return 0;
    });
    return fd;
}

std::vector<uint8_t> Port::drain_master(size_t at_least)
{
    std::vector<uint8_t> bytes;
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPtyLatencyMs);
    for (;;) {
        uint8_t buffer[4096];
        const ssize_t n = real::read(master_, buffer, sizeof buffer);
        if (n > 0) {
            bytes.insert(bytes.end(), buffer, buffer + n);
            continue;
        }
        if (bytes.size() >= at_least || std::chrono::steady_clock::now() >= give_up)
            return bytes;
        pollfd wait_for{master_, POLLIN, 0};
        poll(&wait_for, 1, 5);
    }
}

void Port::product_wrote(size_t count)
{
    std::vector<uint8_t> bytes = clock().locked([&] {
        std::vector<uint8_t> drained;
        if (master_ < 0 || hung_up_)
            return drained;
        drained = drain_master(count);
        written_.insert(written_.end(), drained.begin(), drained.end());
        if (peer_ && !drained.empty()) {
            peer_->receive(drained, clock().now());
            if (peer_->hung_up())
                hang_up();
        }
        return drained;
    });
    if (bytes.empty())
        return;
    Entry entry;
    entry.kind = Kind::SerialWrite;
    entry.name = path_;
    entry.bytes = bytes;
    entry.text = "serial " + path_ + " <- " + hex_bytes(bytes);
    journal().add(entry);
}

void Port::product_closed(int fd)
{
    clock().locked([&] {
        product_fds_.erase(fd);
        if (product_fds_.empty()) {
            // A UART that nobody holds open drops what arrives; so does its buffer on the last close.
            if (keep_ >= 0)
                tcflush(keep_, TCIOFLUSH);
            if (master_ >= 0) {
                uint8_t sink[4096];
                while (real::read(master_, sink, sizeof sink) > 0) {
                }
            }
            if (peer_)
                peer_->product_closed(clock().now());
        }
        return 0;
    });
}

bool Port::readable(int fd) const
{
    pollfd probe{fd, POLLIN, 0};
    return poll(&probe, 1, 0) > 0;
}

std::vector<uint8_t> Port::written() const
{
    return clock().locked([&] { return written_; });
}

bool Port::line_settings(struct termios *settings) const
{
    return keep_ >= 0 && tcgetattr(keep_, settings) == 0;
}

unsigned Port::baud() const
{
    struct termios settings {
    };
    return line_settings(&settings) ? speed_to_baud(cfgetospeed(&settings)) : 0;
}

Nanos Port::next_event()
{
    return peer_ && !hung_up_ ? peer_->next_send() : kNever;
}

void Port::fire(Nanos now)
{
    std::vector<uint8_t> bytes = peer_->take(now);
    if (!bytes.empty() && !product_fds_.empty()) {
        switch (fault_point().peer_message(path_)) {
        case FaultPoint::Message::Deliver:
            break;
        case FaultPoint::Message::Lose:
            bytes.clear(); // the peripheral said nothing after all
            break;
        case FaultPoint::Message::Garble:
            for (uint8_t &byte : bytes)
                byte = static_cast<uint8_t>(~byte);
            break;
        }
    }
    if (!bytes.empty() && !product_fds_.empty()) {
        const int before = pending_input(keep_);
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n = real::write(master_, bytes.data() + sent, bytes.size() - sent);
            if (n <= 0)
                break;
            sent += static_cast<size_t>(n);
        }
        // The kernel hands bytes from master to slave a moment later; the product must see them
        // before anyone decides the port is quiet. In canonical mode only whole lines count, so
        // there is nothing exact to wait for.
        struct termios settings {
        };
        if (sent > 0 && before >= 0 && line_settings(&settings) && !(settings.c_lflag & ICANON)) {
            const auto give_up = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPtyLatencyMs);
            while (pending_input(keep_) < before + static_cast<int>(sent) &&
                   std::chrono::steady_clock::now() < give_up)
                real::usleep(50); // real time: the simulated clock is held still meanwhile
        }
        Entry entry;
        entry.kind = Kind::SerialSend;
        entry.name = path_;
        entry.bytes.assign(bytes.begin(), bytes.begin() + static_cast<long>(sent));
        entry.text = "serial " + path_ + " -> " + hex_bytes(entry.bytes);
        journal().add(entry);
        if (sent < bytes.size() && !overrun_) { // noted once per overrun, not for every byte lost
            overrun_ = true;
            Entry lost;
            lost.kind = Kind::Note;
            lost.name = path_;
            lost.text = "overrun on " + path_ + ": the product is not reading; bytes lost";
            journal().add(lost);
        } else if (sent == bytes.size()) {
            overrun_ = false;
        }
    }
    if (peer_->hung_up() && !hung_up_)
        hang_up();
}

void Port::hang_up()
{
    hung_up_ = true;
    descriptors().unmark_internal(master_);
    real::close(master_);
    master_ = -1;
    Entry entry;
    entry.kind = Kind::Note;
    entry.name = path_;
    entry.text = "hang-up on " + path_;
    journal().add(entry);
}

void SerialPorts::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    ports_.clear();
    by_fd_.clear();
    scripts_.clear();
    for (const char *const *path = kCameraPorts; *path != nullptr; ++path)
        scripts_[*path] = PortScript{};
}

PortScript &SerialPorts::script(const std::string &path)
{
    std::lock_guard<std::mutex> hold(mutex_);
    return scripts_[path];
}

bool SerialPorts::simulated(const std::string &path) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return scripts_.count(path) != 0;
}

int SerialPorts::open(const std::string &path, int flags)
{
    Port *port = nullptr;
    int err = 0;
    bool unrecorded = false;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        PortScript &script = scripts_.at(path);
        err = !script.present ? ENOENT : script.open_errno;
        if (!script.opens.empty()) {
            err = script.opens.front();
            script.opens.pop_front();
        }
        unrecorded = replay().active() && !script.listed;
        if (unrecorded)
            err = EIO;
        if (err == 0 && fault_point().fails(Fault::Open, [&] { return "open " + path; }))
            err = EIO; // the UART's driver refuses the line
        if (err == 0) {
            auto &slot = ports_[path];
            if (!slot)
                slot = std::make_unique<Port>(path, script.make_peer ? script.make_peer() : nullptr);
            port = slot.get();
        }
    }
    if (unrecorded)
        replay().depart(path, "the library opens it; the recording has no such port opened");
    int fd = -1;
    if (port != nullptr) {
        fd = port->open_for_product(flags);
        if (fd < 0) {
            err = errno;
        } else {
            std::lock_guard<std::mutex> hold(mutex_);
            by_fd_[fd] = port;
            descriptors().track(fd, FdKind::Port, path);
        }
    }
    return journal_open(path, flags, fd, err);
}

Port *SerialPorts::port_of_fd(int fd)
{
    std::lock_guard<std::mutex> hold(mutex_);
    auto found = by_fd_.find(fd);
    return found == by_fd_.end() ? nullptr : found->second;
}

Port *SerialPorts::port(const std::string &path)
{
    std::lock_guard<std::mutex> hold(mutex_);
    auto found = ports_.find(path);
    return found == ports_.end() ? nullptr : found->second.get();
}

void SerialPorts::forget_fd(int fd)
{
    std::lock_guard<std::mutex> hold(mutex_);
    by_fd_.erase(fd);
}

} // namespace sim
