// Whether a call comes straight from libclidriver: its return address lies in one of the library's
// loaded segments. The recording layer writes down only the calls the library makes (the shell's
// own files and reports are no part of the camera's answers), and the simulated camera answers
// only those. Header-only, so that both can include it without a library of its own.
//
// The segments are found once with dl_iterate_phdr (the library is loaded with the shell, before
// any call can reach us); while the library is not loaded yet, each check looks again.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <link.h>
#include <mutex>
#include <vector>

namespace clidriver
{

class LibraryRanges
{
  public:
    // name_part: a piece of the object's file name ("libclidriver.so" matches libclidriver.so.1
    // and not libclidriver-record.so).
    explicit LibraryRanges(const char *name_part) : name_part_(name_part) {}

    bool contains(const void *address)
    {
        if (!found_.load(std::memory_order_acquire))
            look();
        const auto at = reinterpret_cast<uintptr_t>(address);
        for (const Range &range : ranges_)
            if (at >= range.begin && at < range.end)
                return true;
        return false;
    }

  private:
    struct Range {
        uintptr_t begin;
        uintptr_t end;
    };

    void look()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (found_.load(std::memory_order_relaxed))
            return;
        std::vector<Range> ranges;
        struct Search {
            const char *name_part;
            std::vector<Range> *ranges;
        } search{name_part_, &ranges};
        dl_iterate_phdr(
            [](dl_phdr_info *info, size_t, void *data) {
                auto *wanted = static_cast<Search *>(data);
                const char *name = info->dlpi_name != nullptr ? info->dlpi_name : "";
                const char *base = strrchr(name, '/');
                if (strstr(base != nullptr ? base + 1 : name, wanted->name_part) == nullptr)
                    return 0;
                for (int i = 0; i < info->dlpi_phnum; ++i) {
                    const auto &header = info->dlpi_phdr[i];
                    if (header.p_type == PT_LOAD)
                        wanted->ranges->push_back({info->dlpi_addr + header.p_vaddr,
                                                   info->dlpi_addr + header.p_vaddr + header.p_memsz});
                }
                return 0;
            },
            &search);
        if (ranges.empty())
            return;
        ranges_ = std::move(ranges); // written once, before found_ lets readers in
        found_.store(true, std::memory_order_release);
    }

    const char *name_part_;
    std::mutex mutex_;
    std::atomic<bool> found_{false};
    std::vector<Range> ranges_;
};

// The check both layers make: was this return address inside libclidriver?
inline bool called_by_library(const void *return_address)
{
    static LibraryRanges *library = new LibraryRanges("libclidriver.so");
    return library->contains(return_address);
}

} // namespace clidriver
