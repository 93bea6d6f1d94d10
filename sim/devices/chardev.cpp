#include "devices/chardev.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/real.h"
#include "core/replay.h"

namespace sim
{

const char *const kCameraDevices[] = {"/dev/cpld_drv", "/dev/NetUsrDrv", "/dev/gpioDev", "/dev/motor",
                                      "/dev/ecompass", "/dev/gyro",      nullptr};

IoctlAnswer IoctlAnswer::word(uint32_t value, int result_)
{
    return words({value}, result_);
}

IoctlAnswer IoctlAnswer::words(const std::vector<uint32_t> &values, int result_)
{
    IoctlAnswer answer;
    answer.result = result_;
    answer.out.resize(values.size() * 4);
    if (!values.empty()) // no words: no record to write (and no null pointers for memcpy)
        memcpy(answer.out.data(), values.data(), answer.out.size());
    return answer;
}

Devices &devices()
{
    static Devices *instance = new Devices;
    return *instance;
}

void Devices::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    devices_.clear();
    for (const char *const *path = kCameraDevices; *path != nullptr; ++path)
        devices_[*path] = DeviceScript{};
}

DeviceScript &Devices::script(const std::string &path)
{
    std::lock_guard<std::mutex> hold(mutex_);
    auto [it, added] = devices_.try_emplace(path);
    if (added || !it->second.present)
        it->second.present = true;
    return it->second;
}

bool Devices::simulated(const std::string &path) const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return devices_.count(path) != 0;
}

int Devices::open(const std::string &path, int flags)
{
    int err = 0;
    bool unrecorded = false;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        DeviceScript &device = devices_.at(path);
        err = !device.present ? ENOENT : device.open_errno;
        if (!device.opens.empty()) {
            err = device.opens.front();
            device.opens.pop_front();
        }
        unrecorded = replay().active() && !device.listed;
    }
    if (unrecorded) {
        replay().depart(path, "the library opens it; the recording has no such device opened");
        err = EIO;
    }
    if (err == 0 && fault_point().fails(Fault::Open, [&] { return "open " + path; }))
        err = ENXIO; // the node is there, its driver is not answering
    int fd = -1;
    if (err == 0) {
        fd = real::open("/dev/null", (flags & O_ACCMODE) | O_CLOEXEC);
        if (fd < 0)
            err = errno;
        else
            descriptors().track(fd, FdKind::Device, path);
    }
    return journal_open(path, flags, fd, err);
}

IoctlAnswer Devices::answer_recorded(const std::string &device, unsigned long request, uintptr_t argument,
                                     size_t &arg_size)
{
    RecordedRequest expected;
    bool have = false;
    int number = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        auto found = devices_.find(device);
        if (found != devices_.end()) {
            number = ++found->second.recorded_calls;
            if (!found->second.recorded.empty()) {
                expected = found->second.recorded.front();
                found->second.recorded.pop_front();
                have = true;
            }
        }
    }
    const std::string which = "request " + std::to_string(number) + " is " + hex(request);
    arg_size = expected.value ? 0 : expected.sent.size();
    if (!have) {
        replay().depart(device, which + "; the recording has no more requests on it");
        return IoctlAnswer::fail(EIO);
    }
    if (expected.number != request) {
        replay().depart(device, which + " where the recording has " + hex(expected.number));
        return IoctlAnswer::fail(EIO);
    }
    if (expected.value && *expected.value != argument) {
        replay().depart(device, which + " with " + std::to_string(argument) + " where the recording has " +
                                    std::to_string(*expected.value));
        return IoctlAnswer::fail(EIO);
    }
    if (!expected.value && !expected.sent.empty()) {
        const auto *pointer = reinterpret_cast<const uint8_t *>(argument);
        const std::vector<uint8_t> passed =
            pointer != nullptr ? std::vector<uint8_t>(pointer, pointer + expected.sent.size())
                               : std::vector<uint8_t>{};
        if (passed != expected.sent) {
            replay().depart(device, which + " passing " + hex_bytes(passed) + " where the recording has " +
                                        hex_bytes(expected.sent));
            return IoctlAnswer::fail(EIO);
        }
    }
    return expected.answer;
}

int Devices::ioctl(int fd, unsigned long request, uintptr_t argument)
{
    const auto owner = descriptors().owner(fd);
    IoctlCall call;
    call.device = owner ? owner->what : "?";
    call.request = request;
    call.argument = argument;
    IoctlAnswer answer = IoctlAnswer::fail(ENOTTY); // what a driver says to a request it lacks
    size_t arg_size = 0;
    IoctlHandler handler;
    if (replay().active()) {
        answer = answer_recorded(call.device, request, argument, arg_size);
    } else {
        std::lock_guard<std::mutex> hold(mutex_);
        auto device = devices_.find(call.device);
        if (device != devices_.end()) {
            auto found = device->second.requests.find(request);
            if (found != device->second.requests.end()) {
                RequestScript &script = found->second;
                arg_size = script.arg_size;
                const int number = ++script.calls;
                if (auto fixed = script.on_call.find(number); fixed != script.on_call.end()) {
                    answer = fixed->second;
                } else if (!script.sequence.empty()) {
                    answer = script.sequence.front();
                    script.sequence.pop_front();
                } else if (script.handler) {
                    handler = script.handler;
                } else {
                    answer = script.answer;
                }
            }
        }
    }
    auto *pointer = reinterpret_cast<uint8_t *>(argument);
    if (arg_size > 0 && pointer != nullptr)
        call.in.assign(pointer, pointer + arg_size);
    if (!replay().active() &&
        fault_point().fails(Fault::Request, [&] { return "ioctl " + call.device + " " + hex(request); })) {
        handler = nullptr;
        answer = IoctlAnswer::fail(EIO);
    }
    if (handler)
        answer = handler(call);
    if (!answer.out.empty() && pointer != nullptr)
        memcpy(pointer, answer.out.data(),
               arg_size > 0 ? std::min(arg_size, answer.out.size()) : answer.out.size());

    Entry entry;
    entry.kind = Kind::Ioctl;
    entry.name = call.device;
    entry.values = {static_cast<int64_t>(request), arg_size == 0 ? static_cast<int64_t>(argument) : 0};
    entry.records.push_back(call.in);
    if (arg_size > 0 && pointer != nullptr)
        entry.records.emplace_back(pointer, pointer + arg_size);
    entry.result = answer.result;
    entry.err = answer.result < 0 ? answer.err : 0;
    entry.text =
        "ioctl " + call.device + " " + hex(request) +
        (arg_size == 0 ? " arg " + std::to_string(argument) : " [" + hex_bytes(entry.records.back()) + "]") +
        " -> " + std::to_string(answer.result);
    journal().add(entry);
    if (answer.result < 0)
        errno = answer.err;
    return answer.result;
}

void install_register_file(DeviceScript &device, std::shared_ptr<RegisterFile> file)
{
    const size_t size = file->record_words * 4;
    auto word = [](const std::vector<uint8_t> &record, size_t index) {
        uint32_t value = 0;
        memcpy(&value, record.data() + index * 4, 4);
        return value;
    };
    // A null record, or one too short to hold the register and value words, is what the driver's
    // copy from user space would refuse.
    auto faulty = [](const RegisterFile &held, const IoctlCall &call) {
        return call.in.size() < (std::max(held.index_word, held.value_word) + 1) * 4;
    };
    RequestScript read;
    read.arg_size = size;
    read.handler = [file, word, faulty](const IoctlCall &call) {
        if (faulty(*file, call))
            return IoctlAnswer::fail(EFAULT);
        IoctlAnswer answer;
        answer.out = call.in;
        const uint32_t value =
            (file->registers[word(call.in, file->index_word)] | file->read_back_or) & file->read_back_and;
        memcpy(answer.out.data() + file->value_word * 4, &value, 4);
        return answer;
    };
    RequestScript write;
    write.arg_size = size;
    write.handler = [file, word, faulty](const IoctlCall &call) {
        if (faulty(*file, call))
            return IoctlAnswer::fail(EFAULT);
        file->registers[word(call.in, file->index_word)] = word(call.in, file->value_word);
        return IoctlAnswer::ok();
    };
    device.requests[file->read_request] = read;
    device.requests[file->write_request] = write;
}

} // namespace sim
