#include "recording.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace shell
{

namespace
{

constexpr char kLayer[] = "libclidriver-record.so";
constexpr char kStarted[] = "CLIDRIVER_RECORD_STARTED"; // set for the shell run again with the layer

bool readable(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), R_OK) == 0;
}

// The layer: named by CLIDRIVER_RECORDER, else beside the shell, else in ../lib from it.
std::string find_layer()
{
    if (const char *named = getenv("CLIDRIVER_RECORDER"); named != nullptr && *named != '\0')
        return readable(named) ? std::string(named) : std::string();
    std::error_code error;
    const std::filesystem::path shell = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return {};
    for (const std::filesystem::path &candidate :
         {shell.parent_path() / kLayer, shell.parent_path() / ".." / "lib" / kLayer})
        if (readable(candidate.string()))
            return candidate.lexically_normal().string();
    return {};
}

} // namespace

int start_recording(const std::string &folder, char **argv)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error || !std::filesystem::is_directory(folder)) {
        fprintf(stderr, "clidriver: cannot make the recording folder %s: %s\n", folder.c_str(),
                error ? error.message().c_str() : "not a folder");
        return 2;
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        fprintf(stderr, "clidriver: cannot write into the recording folder %s: %s\n", folder.c_str(),
                strerror(errno));
        return 2;
    }
    const std::string absolute = std::filesystem::absolute(folder, error).lexically_normal().string();
    const std::string where = error ? folder : absolute;

    using RecordTo = int (*)(const char *);
    if (const auto record_to = reinterpret_cast<RecordTo>(dlsym(RTLD_DEFAULT, "clidriver_record_to"))) {
        if (record_to(where.c_str()) != 0) {
            fprintf(stderr, "clidriver: the recording layer refused the folder %s: %s\n", where.c_str(),
                    strerror(errno));
            return 2;
        }
        return 0;
    }
    if (getenv(kStarted) != nullptr) { // run again with the layer, and still it is not there
        fprintf(stderr, "clidriver: the recording layer did not load (LD_PRELOAD=%s)\n",
                getenv("LD_PRELOAD") != nullptr ? getenv("LD_PRELOAD") : "");
        return 2;
    }
    const std::string layer = find_layer();
    if (layer.empty()) {
        fprintf(stderr,
                "clidriver: --record needs the recording layer %s: beside the shell, in ../lib, or named by "
                "CLIDRIVER_RECORDER%s\n",
                kLayer, getenv("CLIDRIVER_RECORDER") != nullptr ? " (which names no readable file)" : "");
        return 2;
    }
    std::string preload = layer;
    if (const char *before = getenv("LD_PRELOAD"); before != nullptr && *before != '\0')
        preload += std::string(":") + before;
    char shell[PATH_MAX] = "";
    const ssize_t length = readlink("/proc/self/exe", shell, sizeof shell - 1);
    if (length <= 0) {
        fprintf(stderr, "clidriver: cannot find this shell to run it with the recording layer: %s\n",
                strerror(errno));
        return 2;
    }
    shell[length] = '\0';
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv("CLIDRIVER_RECORD_DIR", where.c_str(), 1);
    setenv(kStarted, "1", 1);
    fflush(nullptr);
    execv(shell, argv);
    fprintf(stderr, "clidriver: cannot run %s with the recording layer: %s\n", shell, strerror(errno));
    return 2;
}

} // namespace shell
