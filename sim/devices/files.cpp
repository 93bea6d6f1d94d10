#include "devices/files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/real.h"
#include "core/replay.h"

namespace sim
{

const char *const kCameraFiles[] = {"/program/factory/version", "/tmp/epon_dev_info", nullptr};
const char *const kCameraCommands[] = {"lsusb", "cat /proc/driver/sensortype", nullptr};

Files &files()
{
    static Files *instance = new Files;
    return *instance;
}

int memory_file(const std::string &name, const std::string &content)
{
    const int fd = memfd_create(name.c_str(), MFD_CLOEXEC);
    if (fd < 0)
        return -1;
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = real::write(fd, content.data() + done, content.size() - done);
        if (n <= 0) {
            real::close(fd);
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    lseek(fd, 0, SEEK_SET);
    return fd;
}

void Files::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    files_.clear();
    commands_.clear();
    for (const char *const *path = kCameraFiles; *path != nullptr; ++path)
        files_[*path] = FileScript{};
    for (const char *const *command = kCameraCommands; *command != nullptr; ++command)
        commands_[*command] = CommandScript{"", 127, 0}; // not installed until a scenario says so
}

FileScript &Files::file(const std::string &path)
{
    std::lock_guard<std::mutex> hold(mutex_);
    return files_[path];
}

CommandScript &Files::command(const std::string &command)
{
    std::lock_guard<std::mutex> hold(mutex_);
    return commands_[command];
}

bool Files::simulated_file(const std::string &path) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return files_.count(path) != 0;
}

bool Files::simulated_command(const std::string &command) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return commands_.count(command) != 0;
}

int Files::open(const std::string &path, int flags)
{
    FileScript script;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        FileScript &held = files_.at(path);
        script = held;
        if (!held.opens.empty())
            held.opens.pop_front();
    }
    if (!script.opens.empty()) // this open's own outcome: the content stays the file's
        script.open_errno = script.opens.front();
    if (replay().active() && !script.listed)
        replay().depart(path, "the library opens it; the recording has no such file opened");
    // The camera's factory files are read-only, and nothing can be created beside them.
    int err = script.open_errno;
    if (err == 0 && !script.content)
        err = (flags & O_CREAT) != 0 ? EROFS : ENOENT;
    if (err == 0 && (flags & O_ACCMODE) != O_RDONLY)
        err = EROFS;
    if (err == 0 && fault_point().fails(Fault::Open, [&] { return "open " + path; }))
        err = EIO; // the flash would not give the file up
    int fd = -1;
    if (err == 0) {
        fd = memory_file(path, *script.content);
        if (fd < 0)
            err = errno;
        else
            descriptors().track(fd, FdKind::File, path);
    }
    return journal_open(path, flags, fd, err);
}

FILE *Files::fopen(const std::string &path, const char *mode)
{
    if (mode == nullptr || mode[0] == '\0' || strchr("rwa", mode[0]) == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    // The flags fopen would open with, so that a write is refused (and journaled) as open's is.
    int flags = strchr(mode, '+') != nullptr ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    if (mode[0] != 'r')
        flags |= O_CREAT | (mode[0] == 'w' ? O_TRUNC : O_APPEND);
    const int fd = open(path, flags);
    if (fd < 0)
        return nullptr;
    FILE *stream = fdopen(fd, "r");
    if (stream == nullptr) {
        const int err = errno;
        descriptors().forget(fd);
        real::close(fd);
        errno = err;
    }
    return stream;
}

FILE *Files::popen(const std::string &command, const char *mode)
{
    CommandScript script;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        script = commands_.at(command);
    }
    int err = script.popen_errno;
    if (replay().active() && !script.listed) {
        replay().depart(command, "the library runs it; the recording has no such command run");
        err = EIO;
    }
    if (err == 0 && (mode == nullptr || mode[0] != 'r'))
        err = EINVAL;
    if (err == 0 && fault_point().fails(Fault::Pipe, [&] { return "popen " + command; }))
        err = EMFILE; // no descriptor left for the pipe
    FILE *stream = nullptr;
    if (err == 0) {
        const int fd = memory_file(command, script.output);
        stream = fd >= 0 ? fdopen(fd, "r") : nullptr;
        if (stream == nullptr) {
            err = errno;
            if (fd >= 0)
                real::close(fd);
        } else {
            descriptors().track(fd, FdKind::Pipe, command);
            std::lock_guard<std::mutex> hold(mutex_);
            pipes_[stream] = command;
        }
    }
    Entry entry;
    entry.kind = Kind::Popen;
    entry.name = command;
    entry.result = stream != nullptr ? 0 : -1;
    entry.err = err;
    entry.text = "popen \"" + command + "\"" + (stream != nullptr ? "" : " -> " + std::string(strerror(err)));
    journal().add(entry);
    if (stream == nullptr)
        errno = err;
    return stream;
}

void Files::forget_stream(FILE *stream)
{
    std::lock_guard<std::mutex> hold(mutex_);
    pipes_.erase(stream);
}

std::optional<int> Files::pclose(FILE *stream)
{
    std::string command;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        auto found = pipes_.find(stream);
        if (found == pipes_.end())
            return std::nullopt;
        command = found->second;
        pipes_.erase(found);
    }
    int status = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        status = (commands_[command].exit_status & 0xFF) << 8;
    }
    descriptors().forget(fileno(stream));
    fclose(stream);
    Entry entry;
    entry.kind = Kind::Pclose;
    entry.name = command;
    entry.result = status;
    entry.text = "pclose \"" + command + "\" -> " + std::to_string(status);
    journal().add(entry);
    return status;
}

} // namespace sim
