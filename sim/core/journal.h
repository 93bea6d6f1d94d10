// The journal: everything the product did to the simulated camera, in order, with the simulated
// time it happened at. Tests read it back; the shell can print it.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "core/time.h"

namespace sim
{

enum class Kind {
    Print,       // a diagnostic line handed to Cli_Common_Print (text: the line)
    Platform,    // a platform operation (name, values: arguments, records, result)
    Open,        // open/fopen of a simulated path (name: path, result: fd or -1, err: errno)
    Close,       // close of a simulated descriptor (name: path)
    Ioctl,       // a request on a character device (name: path, values[0]: request)
    Popen,       // popen of a command (name: command)
    Pclose,      // pclose of a simulated pipe (name: command, result: status)
    SerialWrite, // bytes the product wrote to a serial port (name: path, bytes)
    SerialSend,  // bytes a peer sent to the product (name: path, bytes)
    Sleep,       // sleep/usleep/nanosleep (values[0]: requested nanoseconds)
    Alarm,       // alarm(n) set (values[0]: seconds) or delivered (text "SIGALRM")
    SocketIoctl, // the wireless-extensions request (name: interface, values[0]: channel)
    Capture,     // libpcap calls on the simulated Wi-Fi interface
    Thread,      // pthread_create (result: 0 or error)
    Note,        // the simulator's own remarks (overruns, hang-ups)
};

const char *kind_name(Kind kind);

struct Entry {
    uint64_t seq = 0;
    Nanos time = 0;
    Kind kind = Kind::Note;
    std::string name;                          // operation, path or command
    std::string text;                          // one readable line (no time)
    std::vector<int64_t> values;               // arguments, request numbers, channel...
    std::vector<std::vector<uint8_t>> records; // contents of records passed by pointer, after the call
    std::vector<uint8_t> bytes;                // serial bytes
    int64_t result = 0;
    int err = 0; // errno reported with the result
};

class Journal
{
  public:
    uint64_t add(Entry entry); // stamps seq and time
    std::vector<Entry> all() const;
    std::vector<Entry> since(uint64_t seq) const;
    std::vector<Entry> select(Kind kind, const std::string &name = {}) const;
    uint64_t next_seq() const;
    void clear();
    // Called for every new entry (the shell uses it for --trace).
    void set_listener(std::function<void(const Entry &)> listener);

  private:
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
    uint64_t next_ = 1;
    std::function<void(const Entry &)> listener_;
};

Journal &journal();

// Journals the end of an open of a simulated path (descriptor `fd`, or -1 with `err`) and returns
// what the product's open returns, errno set on failure.
int journal_open(const std::string &path, int flags, int fd, int err);

// "0x1950" style, for readable entries.
std::string hex(uint64_t value);
std::string hex_bytes(const std::vector<uint8_t> &bytes);

} // namespace sim
