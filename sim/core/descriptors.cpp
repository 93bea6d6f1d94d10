#include "core/descriptors.h"

namespace sim
{

Descriptors &descriptors()
{
    static Descriptors *instance = new Descriptors;
    return *instance;
}

void Descriptors::track(int fd, FdKind kind, std::string what)
{
    std::lock_guard<std::mutex> hold(mutex_);
    owners_[fd] = FdOwner{kind, std::move(what)};
    if (fd >= 0 && fd < kTracked)
        kinds_[fd].store(static_cast<uint8_t>(kind), std::memory_order_release);
}

std::optional<FdOwner> Descriptors::forget(int fd)
{
    std::lock_guard<std::mutex> hold(mutex_);
    if (fd >= 0 && fd < kTracked)
        kinds_[fd].store(static_cast<uint8_t>(FdKind::None), std::memory_order_release);
    auto found = owners_.find(fd);
    if (found == owners_.end())
        return std::nullopt;
    FdOwner owner = found->second;
    owners_.erase(found);
    return owner;
}

std::optional<FdOwner> Descriptors::owner(int fd) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    auto found = owners_.find(fd);
    if (found == owners_.end())
        return std::nullopt;
    return found->second;
}

std::vector<std::pair<int, FdOwner>> Descriptors::product_owned() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return {owners_.begin(), owners_.end()};
}

void Descriptors::mark_internal(int fd)
{
    std::lock_guard<std::mutex> hold(mutex_);
    internal_.insert(fd);
}

void Descriptors::unmark_internal(int fd)
{
    std::lock_guard<std::mutex> hold(mutex_);
    internal_.erase(fd);
}

bool Descriptors::internal(int fd) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return internal_.count(fd) != 0;
}

void Descriptors::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    for (auto &kind : kinds_)
        kind.store(0, std::memory_order_relaxed);
    owners_.clear();
    internal_.clear();
}

} // namespace sim
