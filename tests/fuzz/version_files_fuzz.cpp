// The text the version reports and the USB check read from the camera: the factory version file,
// the EPON module's information file and the lsusb listing. Each input becomes all three at once
// on the simulated camera. Whatever they hold, the commands must not crash or read out of bounds,
// must show exactly what the reading rules say (checked against a plain model of each rule), and
// must close every file and pipe they opened.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "core/descriptors.h"
#include "core/journal.h"
#include "core/sim.h"
#include "devices/files.h"
#include "scenario/scenario.h"

// Where the sanitizers write their reports; the harness points it at the real standard error,
// since standard error is on /dev/null while a command runs.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void *fd);

namespace
{

int g_out = -1;      // the commands' standard output, read back after each input
int g_null = -1;     // their standard error
int g_real_out = -1; // the harness's own standard output and error
int g_real_err = -1;

// Runs one command with standard output on g_out (emptied first) and standard error on /dev/null.
template <typename F> uint32_t run_quietly(F command, std::string &shown)
{
    fflush(stdout);
    fflush(stderr);
    if (ftruncate(g_out, 0) != 0 || lseek(g_out, 0, SEEK_SET) != 0)
        abort();
    dup2(g_out, STDOUT_FILENO);
    dup2(g_null, STDERR_FILENO);
    const uint32_t status = command();
    fflush(stdout);
    fflush(stderr);
    dup2(g_real_out, STDOUT_FILENO);
    dup2(g_real_err, STDERR_FILENO);

    shown.clear();
    char buffer[4096];
    ssize_t got = 0;
    for (off_t at = 0; (got = pread(g_out, buffer, sizeof buffer, at)) > 0; at += got)
        shown.append(buffer, static_cast<size_t>(got));
    return status;
}

[[noreturn]] void fail(const char *what, const std::string &expected, const std::string &seen)
{
    dprintf(g_real_err, "%s\n  expected %zu bytes: [%s]\n  seen %zu bytes:     [%s]\n", what, expected.size(),
            expected.c_str(), seen.size(), seen.c_str());
    __builtin_trap();
}

// ---- The reading rules, written plainly ------------------------------------------------------------

// The first line (ended by LF, CR or the end), from just after its first '-'.
std::string software_shown(const std::string &file)
{
    std::string shown;
    bool dash_seen = false;
    for (char c : file) {
        if (c == '\n' || c == '\r')
            break;
        if (dash_seen)
            shown += c;
        if (c == '-')
            dash_seen = true;
    }
    return shown;
}

// The file read in pieces of at most 39 bytes, each ending after a line feed; the first piece
// (as a C string) that starts with "releasever" shows at most three characters from index 11.
std::string epon_shown(const std::string &file)
{
    size_t at = 0;
    while (at < file.size()) {
        size_t end = at;
        while (end < file.size() && end - at < 39) {
            if (file[end++] == '\n')
                break;
        }
        const std::string piece = file.substr(at, end - at);
        at = end;
        const std::string text = piece.substr(0, piece.find('\0'));
        if (text.compare(0, 10, "releasever") == 0)
            return text.size() > 11 ? text.substr(11, 3) : "";
    }
    return "";
}

// Status of the USB check: the first 312 bytes (as a C string) searched for the type's identifiers.
uint32_t usb_status(const std::string &listing, uint32_t type)
{
    static const char *const wlan[] = {"9271", "f179", "8179", "C811", "818b", nullptr};
    static const char *const second[] = {"2949:8700", "0125", "9b05", "9b3c", nullptr};
    if (listing.empty())
        return 1;
    std::string head = listing.substr(0, 312);
    head = head.substr(0, head.find('\0'));
    for (const char *const *id = type == 0 ? wlan : second; *id != nullptr; ++id)
        if (head.find(*id) != std::string::npos)
            return 0;
    return 1;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    g_out = memfd_create("fuzz-stdout", MFD_CLOEXEC);
    g_real_out = dup(STDOUT_FILENO);
    g_real_err = dup(STDERR_FILENO);
    if (g_null < 0 || g_out < 0 || g_real_out < 0 || g_real_err < 0)
        abort();
    if (__sanitizer_set_report_fd != nullptr)
        __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(g_real_err)));
    sim::start(sim::load_scenario(sim::default_scenario_path()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    sim::files().file("/program/factory/version").content = text;
    sim::files().file("/tmp/epon_dev_info").content = text;
    sim::files().command("lsusb") = sim::CommandScript{text, 0, 0};

    std::string shown;
    if (run_quietly(COM_Display_SoftVER, shown) != 0)
        fail("the version file is there: the report must succeed", "0", "1");
    const std::string software = "Software            : " + software_shown(text) + "\r\n";
    if (shown != software)
        fail("software version", software, shown);

    if (run_quietly(COM_GetVersion_Epon, shown) != 0)
        fail("the EPON file is there: the report must succeed", "0", "1");
    const std::string epon = "EPON Software       : " + epon_shown(text) + "\r\n";
    if (shown != epon)
        fail("EPON release", epon, shown);

    for (uint32_t type : {0u, 1u}) {
        const uint32_t status = run_quietly([type] { return CLI_ChipCheckUsbDevice(type); }, shown);
        if (status != usb_status(text, type))
            fail("USB check verdict", std::to_string(usb_status(text, type)), std::to_string(status));
        if (!shown.empty())
            fail("the USB check prints nothing on standard output", "", shown);
    }

    for (const auto &[fd, owner] : sim::descriptors().product_owned())
        if (owner.kind == sim::FdKind::File || owner.kind == sim::FdKind::Pipe)
            fail("every file and pipe closed", "none open", owner.what);
    sim::journal().clear(); // keeps memory flat over millions of inputs
    return 0;
}
