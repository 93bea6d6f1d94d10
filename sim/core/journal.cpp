#include "core/journal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/clock.h"

namespace sim
{

const char *kind_name(Kind kind)
{
    switch (kind) {
    case Kind::Print:
        return "print";
    case Kind::Platform:
        return "platform";
    case Kind::Open:
        return "open";
    case Kind::Close:
        return "close";
    case Kind::Ioctl:
        return "ioctl";
    case Kind::Popen:
        return "popen";
    case Kind::Pclose:
        return "pclose";
    case Kind::SerialWrite:
        return "serial-write";
    case Kind::SerialSend:
        return "serial-send";
    case Kind::Sleep:
        return "sleep";
    case Kind::Alarm:
        return "alarm";
    case Kind::SocketIoctl:
        return "socket-ioctl";
    case Kind::Capture:
        return "capture";
    case Kind::Thread:
        return "thread";
    case Kind::Note:
        return "note";
    }
    return "?";
}

Journal &journal()
{
    static Journal *instance = new Journal; // outlives detached product threads at exit
    return *instance;
}

uint64_t Journal::add(Entry entry)
{
    entry.time = clock().now();
    std::function<void(const Entry &)> listener;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        entry.seq = next_++;
        entries_.push_back(entry);
        listener = listener_;
    }
    if (listener)
        listener(entry);
    return entry.seq;
}

std::vector<Entry> Journal::all() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return entries_;
}

std::vector<Entry> Journal::since(uint64_t seq) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    std::vector<Entry> result;
    for (const Entry &entry : entries_)
        if (entry.seq >= seq)
            result.push_back(entry);
    return result;
}

std::vector<Entry> Journal::select(Kind kind, const std::string &name) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    std::vector<Entry> result;
    for (const Entry &entry : entries_)
        if (entry.kind == kind && (name.empty() || entry.name == name))
            result.push_back(entry);
    return result;
}

uint64_t Journal::next_seq() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return next_;
}

void Journal::clear()
{
    std::lock_guard<std::mutex> hold(mutex_);
    entries_.clear();
}

void Journal::set_listener(std::function<void(const Entry &)> listener)
{
    std::lock_guard<std::mutex> hold(mutex_);
    listener_ = std::move(listener);
}

int journal_open(const std::string &path, int flags, int fd, int err)
{
    Entry entry;
    entry.kind = Kind::Open;
    entry.name = path;
    entry.values = {flags};
    entry.result = fd;
    entry.err = err;
    entry.text =
        "open " + path + (fd >= 0 ? " -> fd " + std::to_string(fd) : " -> " + std::string(strerror(err)));
    journal().add(entry);
    if (fd < 0)
        errno = err;
    return fd;
}

std::string hex(uint64_t value)
{
    char text[24];
    snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string hex_bytes(const std::vector<uint8_t> &bytes)
{
    std::string text;
    char part[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        snprintf(part, sizeof part, i == 0 ? "%02X" : " %02X", bytes[i]);
        text += part;
    }
    return text;
}

} // namespace sim
