// The plain files the product reads (the factory version file, the EPON information file) and the
// shell commands it runs through popen (lsusb, cat /proc/driver/sensortype). Contents come from
// the scenario; the product gets real descriptors on in-memory files.
#pragma once

#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace sim
{

struct FileScript {
    std::optional<std::string> content; // nullopt: the file does not exist
    int open_errno = 0;                 // non-zero: opening fails with it
    bool listed = false;                // named by the scenario (a recorded camera opened it)
    std::deque<int> opens;              // the coming opens' outcomes (0 opens), before the standing one
};

struct CommandScript {
    std::string output;  // what the command writes on its standard output
    int exit_status = 0; // its exit code, as pclose reports it (status << 8)
    int popen_errno = 0; // non-zero: popen fails with it
    bool listed = false; // named by the scenario (a recorded camera ran it)
};

class Files
{
  public:
    void reset();
    FileScript &file(const std::string &path);
    CommandScript &command(const std::string &command);
    bool simulated_file(const std::string &path) const;
    bool simulated_command(const std::string &command) const;

    int open(const std::string &path, int flags);
    FILE *fopen(const std::string &path, const char *mode);
    FILE *popen(const std::string &command, const char *mode);
    // nullopt when `stream` is not a simulated pipe; else its status, the stream closed.
    std::optional<int> pclose(FILE *stream);
    // A simulated pipe closed with fclose instead of pclose: forget it.
    void forget_stream(FILE *stream);

  private:
    mutable std::mutex mutex_;
    std::map<std::string, FileScript> files_;
    std::map<std::string, CommandScript> commands_;
    std::map<FILE *, std::string> pipes_;
};

Files &files();

// A readable descriptor holding `content`, positioned at its start (an in-memory file).
int memory_file(const std::string &name, const std::string &content);

extern const char *const kCameraFiles[];
extern const char *const kCameraCommands[];

} // namespace sim
