// What a recording holds while the shell runs: the camera's answers to every call the library
// made, in the order it made them. Plain data: the interposed entry points fill it under one
// mutex (recorder.h), the writer turns it into the scenario and its side files at the end.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "peripherals/port_log.h"

namespace record
{

using Bytes = std::vector<uint8_t>;

// One event on a serial port; times in nanoseconds since the boot epoch.
// An event on a port, as the port log writes it (the simulated camera's replaying peer reads the
// same format with the same code).
using PortEvent = sim::PortEvent;

struct Port {
    std::vector<PortEvent> events;
    bool opened = false;      // at least one open worked
    int first_open_errno = 0; // the error of the first open that failed, 0 if none did
    std::vector<int> opens;   // every open's outcome in order: 0 opened, else its errno
};

// One request on a character device.
struct Request {
    uint64_t number = 0;
    std::optional<uint64_t> value; // a request that passes its argument by value
    std::optional<Bytes> sent;     // the argument record before the request
    int64_t result = 0;
    int error = 0;              // errno when the request failed
    std::optional<Bytes> bytes; // the argument record after the request
};

struct Device {
    bool opened = false;
    int first_open_errno = 0;
    std::vector<int> opens; // every open's outcome in order: 0 opened, else its errno
    std::vector<Request> requests;
};

// A plain file the library opened for reading: the content of its first opening that worked, and
// every opening's outcome in order (0 opened, else its errno).
struct FileSeen {
    int open_errno = 0; // ENOENT: absent
    Bytes content;
    std::vector<int> opens;
};

// A command the library ran through popen: the first run's outcome.
struct CommandSeen {
    int fail_errno = 0; // popen itself failed
    Bytes output;
    int exit_code = 0;
};

struct PlatformCall {
    std::vector<int64_t> args;
    std::vector<std::string> texts;
    std::optional<int64_t> result; // none for drv_GetAlarmCnt, which hands out a record
    std::optional<Bytes> sent;
    std::optional<Bytes> bytes;
};

struct Packet {
    int64_t seconds = 0;
    int64_t microseconds = 0;
    uint32_t length = 0; // the length on the air; data holds what was captured
    Bytes data;
};

struct Capture {
    std::string interface;
    bool opened = false; // a live capture opened at least once
    int link_type = 1;
    int snaplen = 65535;
    std::vector<Packet> packets;
    std::optional<std::string> open_error;
    std::vector<int> channel_errors; // errno of each channel request, 0 when it worked
    int socket_errno = 0;
    std::vector<int> dispatch_results; // each dispatch: 0 when it ran, its result when it failed
    bool any_dispatch_failed = false;
};

struct Recording {
    std::string camera_name;  // what the recorded camera is (for people)
    std::string startup_toml; // the simulated platform's [startup] table, as TOML lines without the header
    int64_t boot_epoch = 0;   // seconds since 1970
    std::string recorder;     // who recorded and when
    std::vector<int64_t> clock_us;
    std::vector<std::pair<int64_t, int64_t>> sleeps_ns; // asked, slept
    std::map<std::string, Device> devices;
    std::map<std::string, FileSeen> files;
    std::map<std::string, CommandSeen> commands;
    std::map<std::string, Port> ports;
    std::map<std::string, std::vector<PlatformCall>> platform;
    Capture wifi;
};

} // namespace record
