// Whether a call comes from libclidriver itself: the recording layer writes down only what the
// library asked of the camera (not the shell's own files and reports), and the simulated camera
// counts only the library's threads as the camera's and replays only the library's clock reads.
// Header only, so that the recording layer and the simulated camera share it without either
// linking the other.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace clidriver
{

class LibraryCode
{
  public:
    // The library is mapped before any constructor or call can ask, so one look at the process's
    // mappings is enough. It reads them with raw system calls: the functions that ask are the
    // interposed open and read themselves.
    LibraryCode()
    {
        const long fd = syscall(SYS_openat, AT_FDCWD, "/proc/self/maps", O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        char line[512];
        size_t used = 0;
        for (;;) {
            const long got = syscall(SYS_read, fd, line + used, sizeof line - 1 - used);
            if (got <= 0)
                break;
            used += static_cast<size_t>(got);
            line[used] = '\0';
            char *end = nullptr;
            while ((end = strchr(line, '\n')) != nullptr) {
                *end = '\0';
                take(line);
                const size_t rest = used - static_cast<size_t>(end + 1 - line);
                memmove(line, end + 1, rest);
                used = rest;
                line[used] = '\0';
            }
            if (used == sizeof line - 1) // a line longer than any mapping's: not ours
                used = 0;
        }
        syscall(SYS_close, fd);
    }

    // True when the library's code is mapped in this process at all.
    bool loaded() const { return count_ > 0; }

    // True when `address` (a return address) lies in the library's loaded code.
    bool contains(const void *address) const
    {
        const auto at = reinterpret_cast<uintptr_t>(address);
        for (int i = 0; i < count_; ++i)
            if (at >= begin_[i] && at < end_[i])
                return true;
        return false;
    }

  private:
    // One line of /proc/self/maps: "begin-end perms offset dev inode path".
    void take(const char *line)
    {
        const char *path = strchr(line, '/');
        const char *perms = strchr(line, ' ');
        if (path == nullptr || perms == nullptr || perms[3] != 'x' || count_ == kMaxSegments)
            return;
        const char *name = strrchr(path, '/') + 1;
        if (strncmp(name, "libclidriver.so", 15) != 0)
            return;
        char *dash = nullptr;
        const uintptr_t begin = strtoull(line, &dash, 16);
        if (dash == nullptr || *dash != '-')
            return;
        begin_[count_] = begin;
        end_[count_] = strtoull(dash + 1, nullptr, 16);
        ++count_;
    }

    static constexpr int kMaxSegments = 4;
    int count_ = 0;
    uintptr_t begin_[kMaxSegments] = {};
    uintptr_t end_[kMaxSegments] = {};
};

// The one look per process.
inline const LibraryCode &library_code()
{
    static const LibraryCode code;
    return code;
}

inline bool called_from_library(const void *return_address)
{
    return library_code().contains(return_address);
}

} // namespace clidriver
