// The camera's character devices on the bench: open, ioctl and close of /dev/cpld_drv and its
// siblings, answered from per-request scripts, exactly as the product reaches them through libc.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "core/descriptors.h"
#include "core/journal.h"
#include "devices/chardev.h"
#include "sim_fixture.h"

extern "C" int __open_2(const char *path, int flags);

namespace
{

constexpr const char *kCpld = "/dev/cpld_drv";
constexpr const char *kPhy = "/dev/NetUsrDrv";
constexpr unsigned long kRead = 0x1950;
constexpr unsigned long kWrite = 0x1951;

std::vector<uint8_t> bytes_of(const std::vector<uint32_t> &words)
{
    std::vector<uint8_t> bytes(words.size() * 4);
    memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

class CharDevices : public clitest::SimTest
{
  protected:
    // The machinery itself, on a camera with nothing scripted (the healthy camera of
    // default.toml answers most requests, which would hide the defaults under test).
    void SetUp() override
    {
        SimTest::SetUp();
        scenario() = sim::Scenario{};
        restart();
    }

    // Makes `path` present with `request` answering as `script` says.
    sim::RequestScript &script(const char *path, unsigned long request, size_t arg_size = 4)
    {
        sim::RequestScript &found = sim::devices().script(path).requests[request];
        found.arg_size = arg_size;
        return found;
    }

    int open_device(const char *path = kCpld)
    {
        const int fd = open(path, O_RDWR);
        EXPECT_GE(fd, 0) << path << ": " << strerror(errno);
        return fd;
    }

    std::vector<sim::Entry> ioctls() const { return sim::journal().select(sim::Kind::Ioctl); }
};

// ---- open ----------------------------------------------------------------------------------------

struct OpenRoute {
    const char *name;
    int (*open)(const char *path, int flags);
};

const OpenRoute kOpenRoutes[] = {
    {"open", [](const char *path, int flags) { return open(path, flags); }},
    {"open64", [](const char *path, int flags) { return open64(path, flags); }},
    {"openat", [](const char *path, int flags) { return openat(AT_FDCWD, path, flags); }},
    {"__open_2", [](const char *path, int flags) { return __open_2(path, flags); }},
};

TEST_F(CharDevices, OpenOfAPresentDeviceGivesARealDescriptorAndJournalsIt)
{
    for (const char *const *path = sim::kCameraDevices; *path != nullptr; ++path)
        sim::devices().script(*path);
    for (const OpenRoute &route : kOpenRoutes) {
        for (const char *const *path = sim::kCameraDevices; *path != nullptr; ++path) {
            SCOPED_TRACE(std::string(route.name) + " " + *path);
            const uint64_t mark = sim::journal().next_seq();
            const int fd = route.open(*path, O_RDWR);
            ASSERT_GE(fd, 0) << strerror(errno);
            struct stat status = {};
            EXPECT_EQ(fstat(fd, &status), 0) << "a descriptor the kernel knows";
            EXPECT_TRUE(S_ISCHR(status.st_mode));
            EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
            EXPECT_EQ(sim::descriptors().kind(fd), sim::FdKind::Device);
            ASSERT_TRUE(sim::descriptors().owner(fd).has_value());
            EXPECT_EQ(sim::descriptors().owner(fd)->what, *path);

            const auto entries = sim::journal().since(mark);
            ASSERT_EQ(entries.size(), 1u);
            EXPECT_EQ(entries[0].kind, sim::Kind::Open);
            EXPECT_EQ(entries[0].name, *path);
            EXPECT_EQ(entries[0].result, fd);
            EXPECT_EQ(entries[0].err, 0);
            ASSERT_FALSE(entries[0].values.empty());
            EXPECT_EQ(entries[0].values[0] & O_ACCMODE, O_RDWR);
            EXPECT_EQ(entries[0].text, std::string("open ") + *path + " -> fd " + std::to_string(fd));
            EXPECT_EQ(close(fd), 0);
        }
    }
}

TEST_F(CharDevices, CameraDevicesTheScenarioLeavesOutAreAbsent)
{
    // A scenario that describes no character device: each one the product knows
    // is simulated all the same, and missing, whatever the PC's /dev holds.
    for (const char *const *path = sim::kCameraDevices; *path != nullptr; ++path) {
        SCOPED_TRACE(*path);
        const uint64_t mark = sim::journal().next_seq();
        errno = 0;
        EXPECT_EQ(open(*path, O_RDWR), -1);
        EXPECT_EQ(errno, ENOENT);
        const auto entries = sim::journal().since(mark);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].kind, sim::Kind::Open);
        EXPECT_EQ(entries[0].result, -1);
        EXPECT_EQ(entries[0].err, ENOENT);
        EXPECT_EQ(entries[0].text, std::string("open ") + *path + " -> " + strerror(ENOENT));
    }
}

TEST_F(CharDevices, AbsentDeviceStaysAbsentWhenScriptedSo)
{
    sim::devices().script("/dev/gyro").present = false;
    scenario().devices["/dev/ecompass"].present = false;
    restart();
    for (const char *path : {"/dev/gyro", "/dev/ecompass"}) {
        errno = 0;
        EXPECT_EQ(open(path, O_RDONLY), -1) << path;
        EXPECT_EQ(errno, ENOENT) << path;
    }
}

TEST_F(CharDevices, OpenErrnoFailsEveryOpenWithIt)
{
    for (int err : {EBUSY, EACCES, EIO, ENXIO}) {
        SCOPED_TRACE(strerror(err));
        sim::devices().script(kCpld).open_errno = err;
        for (int attempt = 0; attempt < 2; ++attempt) {
            const uint64_t mark = sim::journal().next_seq();
            errno = 0;
            EXPECT_EQ(open(kCpld, O_RDWR), -1);
            EXPECT_EQ(errno, err);
            const auto entries = sim::journal().since(mark);
            ASSERT_EQ(entries.size(), 1u);
            EXPECT_EQ(entries[0].err, err);
            EXPECT_EQ(entries[0].result, -1);
        }
    }
}

TEST_F(CharDevices, APathOutsideTheCameraPassesThroughUnjournaled)
{
    const uint64_t mark = sim::journal().next_seq();
    const int fd = open("/dev/null", O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(sim::descriptors().kind(fd), sim::FdKind::None);
    errno = 0;
    int word = 0;
    // The PC answers, not the bench: ENOTTY from Linux, ENOSYS from qemu-arm, which refuses
    // requests it cannot translate.
    EXPECT_EQ(ioctl(fd, kRead, &word), -1) << "the real /dev/null knows no camera request";
    EXPECT_TRUE(errno == ENOTTY || errno == ENOSYS) << strerror(errno);
    EXPECT_EQ(close(fd), 0);
    EXPECT_TRUE(sim::journal().since(mark).empty());
}

// ---- ioctl: who answers ------------------------------------------------------------------------

TEST_F(CharDevices, StandingAnswerAnswersEveryCall)
{
    script(kCpld, kRead).answer = sim::IoctlAnswer::word(0x5A);
    const int fd = open_device();
    for (int call = 1; call <= 3; ++call) {
        uint32_t word = 0;
        EXPECT_EQ(ioctl(fd, kRead, &word), 0);
        EXPECT_EQ(word, 0x5Au);
    }
    EXPECT_EQ(sim::devices().script(kCpld).requests[kRead].calls, 3);
    close(fd);
}

TEST_F(CharDevices, StandingFailureGivesItsResultAndErrno)
{
    struct Row {
        sim::IoctlAnswer answer;
        int result;
        int err;
    };
    const Row rows[] = {
        {sim::IoctlAnswer::fail(EIO), -1, EIO},
        {sim::IoctlAnswer::fail(EBUSY, -16), -16, EBUSY},
        {sim::IoctlAnswer::word(7, 1), 1, 0}, // a positive status is no failure: errno untouched
    };
    script(kCpld, kRead);
    const int fd = open_device();
    for (const Row &row : rows) {
        script(kCpld, kRead).answer = row.answer;
        errno = 0;
        uint32_t word = 0;
        EXPECT_EQ(ioctl(fd, kRead, &word), row.result);
        EXPECT_EQ(errno, row.err);
        EXPECT_EQ(ioctls().back().result, row.result);
        EXPECT_EQ(ioctls().back().err, row.err);
    }
    close(fd);
}

TEST_F(CharDevices, SequenceAnswersOncePerCallThenTheStandingAnswer)
{
    sim::RequestScript &request = script(kCpld, kRead);
    request.sequence = {sim::IoctlAnswer::word(1), sim::IoctlAnswer::word(2), sim::IoctlAnswer::fail(EIO)};
    request.answer = sim::IoctlAnswer::word(9);
    const int fd = open_device();
    struct Expect {
        int result;
        int err;
        uint32_t word;
    };
    const Expect expected[] = {{0, 0, 1}, {0, 0, 2}, {-1, EIO, 0xEEEEEEEE}, {0, 0, 9}, {0, 0, 9}};
    for (const Expect &want : expected) {
        uint32_t word = 0xEEEEEEEE;
        errno = 0;
        EXPECT_EQ(ioctl(fd, kRead, &word), want.result);
        EXPECT_EQ(errno, want.err);
        EXPECT_EQ(word, want.word);
    }
    close(fd);
}

TEST_F(CharDevices, OnCallFailsExactlyTheNthCall)
{
    for (int failing = 1; failing <= 4; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing) + " of 4 fails");
        restart();
        sim::RequestScript &request = script(kCpld, kRead);
        request.answer = sim::IoctlAnswer::word(0x11);
        request.on_call[failing] = sim::IoctlAnswer::fail(EIO);
        const int fd = open_device();
        for (int call = 1; call <= 4; ++call) {
            uint32_t word = 0;
            errno = 0;
            const int result = ioctl(fd, kRead, &word);
            if (call == failing) {
                EXPECT_EQ(result, -1) << "call " << call;
                EXPECT_EQ(errno, EIO) << "call " << call;
                EXPECT_EQ(word, 0u) << "call " << call;
            } else {
                EXPECT_EQ(result, 0) << "call " << call;
                EXPECT_EQ(word, 0x11u) << "call " << call;
            }
        }
        close(fd);
    }
}

TEST_F(CharDevices, OnCallTakesPrecedenceWithoutUsingUpTheSequence)
{
    sim::RequestScript &request = script(kCpld, kRead);
    request.sequence = {sim::IoctlAnswer::word(1), sim::IoctlAnswer::word(2)};
    request.on_call[2] = sim::IoctlAnswer::fail(ETIMEDOUT);
    request.answer = sim::IoctlAnswer::word(3);
    const int fd = open_device();
    std::vector<int> results;
    std::vector<uint32_t> words;
    for (int call = 0; call < 4; ++call) {
        uint32_t word = 0;
        results.push_back(ioctl(fd, kRead, &word));
        words.push_back(word);
    }
    EXPECT_EQ(results, (std::vector<int>{0, -1, 0, 0}));
    EXPECT_EQ(words, (std::vector<uint32_t>{1, 0, 2, 3}));
    close(fd);
}

TEST_F(CharDevices, HandlerComputesTheAnswerFromTheCall)
{
    std::vector<sim::IoctlCall> seen;
    sim::RequestScript &request = script(kCpld, kRead, 8);
    request.answer = sim::IoctlAnswer::fail(EIO); // never used while a handler is set
    request.handler = [&seen](const sim::IoctlCall &call) {
        seen.push_back(call);
        uint32_t words[2];
        memcpy(words, call.in.data(), sizeof words);
        return sim::IoctlAnswer::words({words[0], words[0] * 2}, 5);
    };
    const int fd = open_device();
    uint32_t record[2] = {21, 0};
    EXPECT_EQ(ioctl(fd, kRead, record), 5);
    EXPECT_EQ(record[1], 42u);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].device, kCpld);
    EXPECT_EQ(seen[0].request, kRead);
    EXPECT_EQ(seen[0].argument, reinterpret_cast<uintptr_t>(record));
    EXPECT_EQ(seen[0].in, bytes_of({21, 0})) << "the handler sees the record as it was before the call";
    close(fd);
}

TEST_F(CharDevices, UnknownRequestGivesEnotty)
{
    script(kCpld, kRead).answer = sim::IoctlAnswer::word(1);
    const int fd = open_device();
    for (unsigned long request : {0x1952ul, 0x0ul, 0x80044d01ul}) {
        uint32_t word = 0x77;
        errno = 0;
        EXPECT_EQ(ioctl(fd, request, &word), -1);
        EXPECT_EQ(errno, ENOTTY);
        EXPECT_EQ(word, 0x77u);
        const sim::Entry last = ioctls().back();
        EXPECT_EQ(last.values[0], static_cast<int64_t>(request));
        EXPECT_EQ(last.result, -1);
        EXPECT_EQ(last.err, ENOTTY);
    }
    close(fd);
}

TEST_F(CharDevices, EachDeviceAnswersTheSameRequestNumberItsOwnWay)
{
    script(kCpld, kRead).answer = sim::IoctlAnswer::word(0xC0);
    script("/dev/gpioDev", kRead).answer = sim::IoctlAnswer::word(0x60);
    sim::devices().script("/dev/motor"); // present, knows no request
    const int cpld = open_device(kCpld);
    const int gpio = open_device("/dev/gpioDev");
    const int motor = open_device("/dev/motor");
    uint32_t a = 0, b = 0, c = 0;
    EXPECT_EQ(ioctl(cpld, kRead, &a), 0);
    EXPECT_EQ(ioctl(gpio, kRead, &b), 0);
    errno = 0;
    EXPECT_EQ(ioctl(motor, kRead, &c), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(a, 0xC0u);
    EXPECT_EQ(b, 0x60u);
    const auto entries = ioctls();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].name, kCpld);
    EXPECT_EQ(entries[1].name, "/dev/gpioDev");
    EXPECT_EQ(entries[2].name, "/dev/motor");
    close(cpld);
    close(gpio);
    close(motor);
}

// ---- ioctl: what is written and what is journaled ----------------------------------------------

TEST_F(CharDevices, AnswerWordsAreWrittenThroughThePointerUpToTheArgumentSize)
{
    struct Row {
        size_t arg_size;
        std::vector<uint32_t> answer;
        std::vector<uint32_t> expected; // the caller's four words afterwards
    };
    const uint32_t g = 0xAAAAAAAA; // a guard the device must not reach
    const Row rows[] = {
        {4, {1, 2, 3}, {1, g, g, g}},  {8, {1, 2, 3}, {1, 2, g, g}},
        {12, {1, 2, 3}, {1, 2, 3, g}}, {16, {1, 2}, {1, 2, g, g}}, // a shorter answer writes only what it has
        {12, {}, {g, g, g, g}}, // an answer without words leaves the record alone
    };
    for (const Row &row : rows) {
        SCOPED_TRACE("arg_size " + std::to_string(row.arg_size) + ", " + std::to_string(row.answer.size()) +
                     " words");
        restart();
        script(kCpld, kRead, row.arg_size).answer = sim::IoctlAnswer::words(row.answer);
        const int fd = open_device();
        uint32_t record[4] = {g, g, g, g};
        EXPECT_EQ(ioctl(fd, kRead, record), 0);
        EXPECT_EQ(std::vector<uint32_t>(record, record + 4), row.expected);
        close(fd);
    }
}

TEST_F(CharDevices, ByValueArgumentIsJournaledAsItsValue)
{
    sim::RequestScript &request = script(kCpld, kWrite, 0);
    request.answer = sim::IoctlAnswer::ok();
    const int fd = open_device();
    for (unsigned long value : {0ul, 1ul, 7ul, 0xFFul}) {
        EXPECT_EQ(ioctl(fd, kWrite, value), 0);
        const sim::Entry last = ioctls().back();
        ASSERT_EQ(last.values.size(), 2u);
        EXPECT_EQ(last.values[0], static_cast<int64_t>(kWrite));
        EXPECT_EQ(last.values[1], static_cast<int64_t>(value));
        ASSERT_EQ(last.records.size(), 1u);
        EXPECT_TRUE(last.records[0].empty()) << "nothing is read behind a value";
        EXPECT_EQ(last.text, "ioctl /dev/cpld_drv 0x1951 arg " + std::to_string(value) + " -> 0");
    }
    close(fd);
}

TEST_F(CharDevices, RecordIsJournaledBeforeAndAfterTheCall)
{
    script(kCpld, kRead, 8).answer = sim::IoctlAnswer::words({0x33, 0x44});
    const int fd = open_device();
    uint32_t record[2] = {0x11, 0x22};
    EXPECT_EQ(ioctl(fd, kRead, record), 0);
    const sim::Entry last = ioctls().back();
    EXPECT_EQ(last.name, kCpld);
    EXPECT_EQ(last.values, (std::vector<int64_t>{static_cast<int64_t>(kRead), 0}));
    ASSERT_EQ(last.records.size(), 2u);
    EXPECT_EQ(last.records[0], bytes_of({0x11, 0x22}));
    EXPECT_EQ(last.records[1], bytes_of({0x33, 0x44}));
    EXPECT_EQ(last.result, 0);
    EXPECT_EQ(last.text, "ioctl /dev/cpld_drv 0x1950 [33 00 00 00 44 00 00 00] -> 0");
    close(fd);
}

TEST_F(CharDevices, NullRecordIsNeitherReadNorWritten)
{
    script(kCpld, kRead, 8).answer = sim::IoctlAnswer::words({1, 2});
    const int fd = open_device();
    EXPECT_EQ(ioctl(fd, kRead, nullptr), 0);
    const sim::Entry last = ioctls().back();
    ASSERT_EQ(last.records.size(), 1u);
    EXPECT_TRUE(last.records[0].empty());
    close(fd);
}

// ---- the register file (the Ethernet PHY) -------------------------------------------------------

class RegisterFile : public CharDevices
{
  protected:
    std::shared_ptr<sim::RegisterFile> install(uint32_t read_back_or = 0, uint32_t read_back_and = ~0u)
    {
        auto file = std::make_shared<sim::RegisterFile>();
        file->read_request = kRead;
        file->write_request = kWrite;
        file->read_back_or = read_back_or;
        file->read_back_and = read_back_and;
        sim::install_register_file(sim::devices().script(kPhy), file);
        return file;
    }

    // {port, register, value} as the driver takes it.
    uint32_t read(int fd, uint32_t reg)
    {
        uint32_t record[3] = {0x55, reg, 0xDEADBEEF};
        EXPECT_EQ(ioctl(fd, kRead, record), 0);
        EXPECT_EQ(record[0], 0x55u) << "the words around the value are left as they were";
        EXPECT_EQ(record[1], reg);
        return record[2];
    }
    void write(int fd, uint32_t reg, uint32_t value)
    {
        uint32_t record[3] = {0x55, reg, value};
        EXPECT_EQ(ioctl(fd, kWrite, record), 0);
    }
};

TEST_F(RegisterFile, WriteThenReadBackGivesTheWrittenValue)
{
    const auto file = install();
    file->registers[2] = 0x141; // a preloaded identifier
    const int fd = open_device(kPhy);
    EXPECT_EQ(read(fd, 2), 0x141u);
    EXPECT_EQ(read(fd, 9), 0u) << "a register never written reads zero";
    write(fd, 0, 0x1140);
    write(fd, 4, 0x01E1);
    EXPECT_EQ(read(fd, 0), 0x1140u);
    EXPECT_EQ(read(fd, 4), 0x01E1u);
    write(fd, 0, 0x9140);
    EXPECT_EQ(read(fd, 0), 0x9140u);
    EXPECT_EQ(file->registers[0], 0x9140u);
    close(fd);
}

TEST_F(RegisterFile, FaultyPartReadsSomeBitsStuck)
{
    struct Row {
        uint32_t read_back_or;
        uint32_t read_back_and;
        uint32_t written;
        uint32_t read;
    };
    const Row rows[] = {
        {0, ~0u, 0x1234, 0x1234},
        {0x8000, ~0u, 0x1234, 0x9234},      // bit 15 stuck at one
        {0, ~0x0004u, 0x1234, 0x1230},      // bit 2 stuck at zero
        {0x0001, ~0x1000u, 0x1234, 0x0235}, // both
        {0, 0, 0xFFFF, 0},                  // a dead part
        {0xFFFFFFFF, ~0u, 0, 0xFFFFFFFF},   // a floating bus
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(sim::hex(row.read_back_or) + " " + sim::hex(row.read_back_and));
        restart();
        const auto file = install(row.read_back_or, row.read_back_and);
        const int fd = open_device(kPhy);
        write(fd, 3, row.written);
        EXPECT_EQ(read(fd, 3), row.read);
        EXPECT_EQ(file->registers[3], row.written) << "the part holds what was written";
        close(fd);
    }
}

TEST_F(RegisterFile, NullRecordIsRefusedWithEfault)
{
    install();
    const int fd = open_device(kPhy);
    for (unsigned long request : {kRead, kWrite}) {
        errno = 0;
        EXPECT_EQ(ioctl(fd, request, nullptr), -1);
        EXPECT_EQ(errno, EFAULT);
    }
    close(fd);
}

TEST_F(RegisterFile, WordsOutsideTheRecordAreRefusedWithEfault)
{
    auto file = std::make_shared<sim::RegisterFile>();
    file->read_request = kRead;
    file->write_request = kWrite;
    file->record_words = 2; // too short for the value word (2)
    sim::install_register_file(sim::devices().script(kPhy), file);
    const int fd = open_device(kPhy);
    uint32_t record[3] = {0, 1, 2};
    for (unsigned long request : {kRead, kWrite}) {
        errno = 0;
        EXPECT_EQ(ioctl(fd, request, record), -1);
        EXPECT_EQ(errno, EFAULT);
    }
    EXPECT_TRUE(file->registers.empty());
    close(fd);
}

// ---- close --------------------------------------------------------------------------------------

TEST_F(CharDevices, CloseJournalsAndTheDescriptorTableForgets)
{
    script(kCpld, kRead).answer = sim::IoctlAnswer::word(1);
    const int first = open_device();
    const int second = open_device();
    ASSERT_NE(first, second);
    const uint64_t mark = sim::journal().next_seq();
    EXPECT_EQ(close(first), 0);

    const auto entries = sim::journal().since(mark);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].kind, sim::Kind::Close);
    EXPECT_EQ(entries[0].name, kCpld);
    EXPECT_EQ(entries[0].values, std::vector<int64_t>{first});
    EXPECT_EQ(entries[0].text, "close /dev/cpld_drv fd " + std::to_string(first));
    EXPECT_EQ(sim::descriptors().kind(first), sim::FdKind::None);
    EXPECT_FALSE(sim::descriptors().owner(first).has_value());
    EXPECT_EQ(fcntl(first, F_GETFD), -1) << "the real descriptor is gone too";

    uint32_t word = 0;
    EXPECT_EQ(ioctl(first, kRead, &word), -1) << "a closed descriptor is no longer the device";
    EXPECT_TRUE(ioctls().empty()) << "nor does the bench answer for it";
    EXPECT_EQ(ioctl(second, kRead, &word), 0) << "the other descriptor still is";
    EXPECT_EQ(word, 1u);
    EXPECT_EQ(close(second), 0);
    EXPECT_TRUE(sim::descriptors().product_owned().empty());
}

TEST_F(CharDevices, OpenAndCloseLeaveNoDescriptorBehind)
{
    sim::devices().script(kCpld);
    const auto before = clitest::open_descriptors();
    for (int round = 0; round < 50; ++round) {
        const int fd = open_device();
        close(fd);
    }
    EXPECT_EQ(clitest::open_descriptors(), before);
}

} // namespace
