// The camera's character devices: open, ioctl and close answered from per-device, per-request
// scripts. A descriptor handed out is a real one (on /dev/null) so that close and leak checks
// behave as on the camera.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim
{

// What one ioctl answers.
struct IoctlAnswer {
    int result = 0;           // what ioctl returns
    int err = 0;              // errno with a negative result
    std::vector<uint8_t> out; // written through the argument pointer; empty writes nothing

    static IoctlAnswer ok() { return {}; }
    static IoctlAnswer fail(int err_, int result_ = -1) { return {result_, err_, {}}; }
    static IoctlAnswer word(uint32_t value, int result_ = 0); // writes one 32-bit word
    static IoctlAnswer words(const std::vector<uint32_t> &values, int result_ = 0);
};

// One request as the product issued it.
struct IoctlCall {
    std::string device;
    unsigned long request = 0;
    uintptr_t argument = 0;  // the raw third argument, pointer or value
    std::vector<uint8_t> in; // the bytes behind the pointer before the call
};

using IoctlHandler = std::function<IoctlAnswer(const IoctlCall &)>;

// How a device answers one request. For each call, the first that applies: the answer fixed for
// that call's number (fault injection: "the third read fails"), the next of the sequence, the
// handler, the standing answer.
struct RequestScript {
    size_t arg_size = 0;                // bytes behind the pointer; 0: passed by value
    IoctlAnswer answer;                 // the standing answer
    std::deque<IoctlAnswer> sequence;   // one per call, before the handler and standing answer
    IoctlHandler handler;               // computes answers from the call (a device model)
    std::map<int, IoctlAnswer> on_call; // by call number, counting from 1
    int calls = 0;                      // calls so far
};

// One request as a recording layer saw it on a camera.
struct RecordedRequest {
    unsigned long number = 0;
    std::optional<uintptr_t> value; // the argument, for a request that passes it by value
    std::vector<uint8_t> sent;      // the record behind the pointer as the library passed it
    IoctlAnswer answer;             // result, errno and the record after the request
};

struct DeviceScript {
    bool present = false; // absent devices fail to open with ENOENT
    int open_errno = 0;   // non-zero: every open fails with it
    std::map<unsigned long, RequestScript> requests;
    std::deque<RecordedRequest> recorded; // a recorded camera: every request in order, nothing else
    int recorded_calls = 0;
    bool listed = false;   // named by the scenario (a recorded camera opened it)
    std::deque<int> opens; // the coming opens' outcomes (0 opens), before the standing one
};

// A device whose requests read and write registers held inside it: the Ethernet PHY behind
// /dev/NetUsrDrv. The record passed is 32-bit words; one holds the register number, one the value.
struct RegisterFile {
    unsigned long read_request = 0;
    unsigned long write_request = 0;
    size_t record_words = 3;
    size_t index_word = 1;
    size_t value_word = 2;
    std::map<uint32_t, uint32_t> registers;
    uint32_t read_back_or = 0;    // bits a faulty part always reads as set
    uint32_t read_back_and = ~0u; // bits it always reads as clear
};
void install_register_file(DeviceScript &device, std::shared_ptr<RegisterFile> file);

class Devices
{
  public:
    void reset();
    // The device's script. Scripting a device means it is there: this makes it present, new or
    // not (set `present = false` afterwards for a device that is missing).
    DeviceScript &script(const std::string &path);
    bool simulated(const std::string &path) const;
    int open(const std::string &path, int flags);
    int ioctl(int fd, unsigned long request, uintptr_t argument);
    // Under a recorded camera: the device's next recorded request, checked against this one.
    IoctlAnswer answer_recorded(const std::string &device, unsigned long request, uintptr_t argument,
                                size_t &arg_size);

  private:
    mutable std::mutex mutex_;
    std::map<std::string, DeviceScript> devices_;
};

Devices &devices();

// The camera's character device paths, simulated whether or not a scenario describes them.
extern const char *const kCameraDevices[];

} // namespace sim
