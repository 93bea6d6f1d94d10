#include "writer.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <toml++/toml.h>

#include "scenario_text.h"

namespace record
{

namespace
{

struct Header {
    std::mutex mutex;
    bool started = false;
    std::string folder;
    std::string camera_name;
    std::string startup_toml;
    std::string recorder;
};

Header &header()
{
    static Header *instance = new Header;
    return *instance;
}

// The simulated camera, when the process runs on one, says what it is: TOML with [camera] name
// and the [startup] its platform did. A real camera has no such function.
void read_simulated_platform(Header &into)
{
    using Describe = const char *(*)();
    const auto describe = reinterpret_cast<Describe>(dlsym(RTLD_DEFAULT, "clidriver_simulated_platform"));
    if (describe == nullptr) {
        struct utsname names = {};
        into.camera_name = uname(&names) == 0 ? std::string("camera ") + names.nodename : "camera";
        return;
    }
    const char *text = describe();
    if (text == nullptr)
        return;
    try {
        const toml::table platform = toml::parse(text);
        into.camera_name = platform["camera"]["name"].value_or(std::string("simulated camera"));
        if (const toml::table *startup = platform["startup"].as_table()) {
            std::ostringstream lines;
            lines << *startup;
            into.startup_toml = lines.str();
        }
    } catch (const toml::parse_error &error) {
        fprintf(stderr, "clidriver-record: the simulated platform's description is not TOML: %s\n",
                std::string(error.description()).c_str());
        into.camera_name = "simulated camera";
    }
}

std::string utc_now()
{
    const time_t now = time(nullptr);
    struct tm parts = {};
    char text[32] = "";
    if (gmtime_r(&now, &parts) != nullptr)
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

// Files are written with the kernel's calls directly: nothing of the recording may pass through
// the entry points a simulated camera or this layer itself interposes.
int create_file(const std::string &path)
{
    return static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
}

bool write_all(int fd, const void *data, size_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    while (size > 0) {
        const long written = syscall(SYS_write, fd, bytes, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool write_file(const std::string &folder, const std::string &name, const void *data, size_t size)
{
    const std::string path = folder + "/" + name;
    const size_t slash = name.rfind('/');
    if (slash != std::string::npos) {
        const std::string sub = folder + "/" + name.substr(0, slash);
        if (syscall(SYS_mkdirat, AT_FDCWD, sub.c_str(), 0755) != 0 && errno != EEXIST) {
            fprintf(stderr, "clidriver-record: cannot create %s: %s\n", sub.c_str(), strerror(errno));
            return false;
        }
    }
    const int fd = create_file(path);
    if (fd < 0) {
        fprintf(stderr, "clidriver-record: cannot write %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    const bool ok = write_all(fd, data, size);
    if (!ok)
        fprintf(stderr, "clidriver-record: cannot write %s: %s\n", path.c_str(), strerror(errno));
    syscall(SYS_close, fd);
    return ok;
}

// The delivered packets in a classic pcap file, with the link type and snapshot length of the live
// capture and each packet's own header time.
bool write_capture(const std::string &folder, const std::string &name, const Capture &capture)
{
    const std::string path = folder + "/" + name;
    const int fd = create_file(path);
    if (fd < 0) {
        fprintf(stderr, "clidriver-record: cannot write %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    FILE *stream = fdopen(fd, "wb");
    pcap_t *dead = pcap_open_dead(capture.link_type, capture.snaplen);
    pcap_dumper_t *dumper = stream != nullptr && dead != nullptr ? pcap_dump_fopen(dead, stream) : nullptr;
    if (dumper == nullptr) {
        fprintf(stderr, "clidriver-record: cannot write %s: %s\n", path.c_str(),
                dead != nullptr ? pcap_geterr(dead) : "no capture handle");
        if (stream != nullptr)
            fclose(stream);
        else
            syscall(SYS_close, fd);
        if (dead != nullptr)
            pcap_close(dead);
        return false;
    }
    for (const Packet &packet : capture.packets) {
        struct pcap_pkthdr head = {};
        head.ts.tv_sec = static_cast<decltype(head.ts.tv_sec)>(packet.seconds);
        head.ts.tv_usec = static_cast<decltype(head.ts.tv_usec)>(packet.microseconds);
        head.caplen = static_cast<bpf_u_int32>(packet.data.size());
        head.len = packet.length;
        pcap_dump(reinterpret_cast<u_char *>(dumper), &head, packet.data.data());
    }
    const bool ok = pcap_dump_flush(dumper) == 0;
    pcap_dump_close(dumper);
    pcap_close(dead);
    if (!ok)
        fprintf(stderr, "clidriver-record: cannot write %s\n", path.c_str());
    return ok;
}

} // namespace

void start_writer()
{
    Header &into = header();
    std::lock_guard<std::mutex> hold(into.mutex);
    if (into.started)
        return;
    into.started = true;
    if (into.folder.empty()) {
        if (const char *folder = getenv("CLIDRIVER_RECORD_DIR"); folder != nullptr)
            into.folder = folder;
    }
    read_simulated_platform(into);
    into.recorder = "clidriver-camera --record, " + utc_now();
}

void write_recording(Recording recording)
{
    start_writer(); // a run whose library made no call still leaves its (empty) recording
    std::string folder;
    {
        Header &from = header();
        std::lock_guard<std::mutex> hold(from.mutex);
        folder = from.folder;
        recording.camera_name = from.camera_name;
        recording.startup_toml = from.startup_toml;
        recording.recorder = from.recorder;
    }
    if (folder.empty()) {
        fprintf(stderr,
                "clidriver-record: no folder to write the recording to (clidriver-camera --record DIR, "
                "or CLIDRIVER_RECORD_DIR): nothing written\n");
        return;
    }
    const std::string capture_name =
        (recording.wifi.interface.empty() ? "wlan0" : recording.wifi.interface) + ".pcap";
    const Rendered rendered = render(recording, capture_name);
    bool ok = true;
    for (const SideFile &side : rendered.side_files)
        ok = write_file(folder, side.name, side.bytes.data(), side.bytes.size()) && ok;
    if (recording.wifi.opened)
        ok = write_capture(folder, capture_name, recording.wifi) && ok;
    // The scenario last: a folder with scenario.toml holds everything it names.
    ok = write_file(folder, "scenario.toml", rendered.scenario.data(), rendered.scenario.size()) && ok;
    if (!ok)
        fprintf(stderr, "clidriver-record: the recording in %s is incomplete\n", folder.c_str());
}

} // namespace record

// The shell names the folder (clidriver-camera --record DIR) when the layer is already loaded.
extern "C" __attribute__((visibility("default"))) int clidriver_record_to(const char *dir)
{
    if (dir == nullptr || *dir == '\0') {
        errno = EINVAL;
        return -1;
    }
    struct stat status = {};
    if (stat(dir, &status) != 0)
        return -1;
    if (!S_ISDIR(status.st_mode)) {
        errno = ENOTDIR;
        return -1;
    }
    record::Header &into = record::header();
    std::lock_guard<std::mutex> hold(into.mutex);
    into.folder = dir;
    return 0;
}
