// Whether a call comes from libclidriver itself: the recording layer writes down only what the
// library asked of the camera (not the shell's own files and reports), and the simulated camera
// under the camera's own shell counts only the library's threads as the camera's. Header only,
// so that the recording layer and the simulated camera share it without either linking the other.
#pragma once

#include <cstdint>
#include <cstring>
#include <link.h>

namespace clidriver
{

class LibraryCode
{
  public:
    // The library is mapped before any constructor or call can ask, so one look at the loaded
    // objects is enough.
    LibraryCode() { dl_iterate_phdr(visit, this); }

    // True when `address` (a return address) lies in the library's loaded code.
    bool contains(const void *address)
    {
        const auto at = reinterpret_cast<uintptr_t>(address);
        for (int i = 0; i < count_; ++i)
            if (at >= begin_[i] && at < end_[i])
                return true;
        return false;
    }

  private:
    static int visit(dl_phdr_info *info, size_t, void *data)
    {
        auto *self = static_cast<LibraryCode *>(data);
        if (info->dlpi_name == nullptr || strstr(info->dlpi_name, "libclidriver.so") == nullptr)
            return 0;
        for (int i = 0; i < info->dlpi_phnum && self->count_ < kMaxSegments; ++i) {
            const ElfW(Phdr) &segment = info->dlpi_phdr[i];
            if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0)
                continue;
            self->begin_[self->count_] = info->dlpi_addr + segment.p_vaddr;
            self->end_[self->count_] = info->dlpi_addr + segment.p_vaddr + segment.p_memsz;
            ++self->count_;
        }
        return 1;
    }
    static constexpr int kMaxSegments = 4;
    int count_ = 0;
    uintptr_t begin_[kMaxSegments] = {};
    uintptr_t end_[kMaxSegments] = {};
};

// The one lookup per process.
inline bool called_from_library(const void *return_address)
{
    static LibraryCode code;
    return code.contains(return_address);
}

} // namespace clidriver
