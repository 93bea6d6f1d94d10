// Which descriptors belong to the simulated camera, and to whom.
//
// Every descriptor the simulator hands to the product (a character device, a serial port, a
// command's pipe, a socket) is a real one, so close, dup and leak checks behave as on the camera.
// The table says what each stands for; a lock-free kind lookup keeps the interposed read, write,
// close and ioctl cheap for the many descriptors that are not simulated.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace sim
{

enum class FdKind : uint8_t { None, Device, Port, Pipe, Socket, File };

struct FdOwner {
    FdKind kind = FdKind::None;
    std::string what; // device or port path, command, "socket"
};

class Descriptors
{
  public:
    static constexpr int kTracked = 4096;

    FdKind kind(int fd) const
    {
        return fd >= 0 && fd < kTracked ? static_cast<FdKind>(kinds_[fd].load(std::memory_order_acquire))
                                        : FdKind::None;
    }
    void track(int fd, FdKind kind, std::string what);
    std::optional<FdOwner> forget(int fd); // the owner it had, if any
    std::optional<FdOwner> owner(int fd) const;
    std::vector<std::pair<int, FdOwner>> product_owned() const;

    // Descriptors the simulator keeps for itself (pty masters and the like): never a leak.
    void mark_internal(int fd);
    void unmark_internal(int fd);
    bool internal(int fd) const;

    void reset();

  private:
    std::atomic<uint8_t> kinds_[kTracked] = {};
    mutable std::mutex mutex_;
    std::unordered_map<int, FdOwner> owners_;
    std::set<int> internal_;
};

Descriptors &descriptors();

} // namespace sim
