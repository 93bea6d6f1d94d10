// The camera's fixed files (/program/factory/version, /tmp/epon_dev_info) and the commands the
// product runs through popen (lsusb, cat /proc/driver/sensortype), answered from the scenario.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "core/descriptors.h"
#include "core/journal.h"
#include "core/real.h"
#include "devices/files.h"
#include "sim_fixture.h"

namespace
{

constexpr const char *kVersion = "/program/factory/version";
constexpr const char *kEpon = "/tmp/epon_dev_info";
constexpr const char *kDefaultVersion = "V5.5.0-2.1.3-20261020\n";
constexpr const char *kDefaultLsusb =
    "Bus 001 Device 002: ID 0bda:8179 Realtek Semiconductor Corp. RTL8188EUS 802.11n Wireless Network "
    "Adapter\nBus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n";

std::string read_stream(FILE *stream)
{
    std::string text;
    char buffer[64];
    size_t n = 0;
    while ((n = fread(buffer, 1, sizeof buffer, stream)) > 0)
        text.append(buffer, n);
    return text;
}

std::string read_fd(int fd)
{
    std::string text;
    char buffer[64];
    ssize_t n = 0;
    while ((n = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(n));
    return text;
}

class Files : public clitest::SimTest
{
};

// ---- files ----------------------------------------------------------------------------------------

struct Reader {
    const char *name;
    // The content read through this route, or nullopt with errno set.
    std::optional<std::string> (*read)(const char *path);
};

const Reader kReaders[] = {
    {"fopen",
     [](const char *path) -> std::optional<std::string> {
         FILE *stream = fopen(path, "r");
         if (stream == nullptr)
             return std::nullopt;
         std::string text = read_stream(stream);
         fclose(stream);
         return text;
     }},
    {"fopen re",
     [](const char *path) -> std::optional<std::string> {
         FILE *stream = fopen(path, "re");
         if (stream == nullptr)
             return std::nullopt;
         std::string text = read_stream(stream);
         fclose(stream);
         return text;
     }},
    {"open",
     [](const char *path) -> std::optional<std::string> {
         const int fd = open(path, O_RDONLY);
         if (fd < 0)
             return std::nullopt;
         std::string text = read_fd(fd);
         close(fd);
         return text;
     }},
    {"openat",
     [](const char *path) -> std::optional<std::string> {
         const int fd = openat(AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
         if (fd < 0)
             return std::nullopt;
         std::string text = read_fd(fd);
         close(fd);
         return text;
     }},
};

TEST_F(Files, VersionFileGivesItsContentThroughEveryRoute)
{
    for (const Reader &reader : kReaders) {
        SCOPED_TRACE(reader.name);
        const uint64_t mark = sim::journal().next_seq();
        const auto text = reader.read(kVersion);
        ASSERT_TRUE(text.has_value()) << strerror(errno);
        EXPECT_EQ(*text, kDefaultVersion);
        const auto opens = sim::journal().since(mark);
        ASSERT_GE(opens.size(), 1u);
        EXPECT_EQ(opens[0].kind, sim::Kind::Open);
        EXPECT_EQ(opens[0].name, kVersion);
        EXPECT_GE(opens[0].result, 0);
        EXPECT_EQ(opens[0].err, 0);
        ASSERT_EQ(opens.size(), 2u);
        EXPECT_EQ(opens[1].kind, sim::Kind::Close);
        EXPECT_EQ(opens[1].values, std::vector<int64_t>{opens[0].result});
    }
}

TEST_F(Files, ContentIsReadByteForByte)
{
    const std::string contents[] = {
        "",                                    // an empty file
        "V5.5.0",                              // without a final newline
        std::string("A\0B\r\n\xff", 6),        // any bytes
        std::string(100000, 'x') + "\nlast\n", // more than any stdio buffer
    };
    for (const std::string &content : contents) {
        SCOPED_TRACE(content.size());
        sim::files().file(kVersion).content = content;
        for (const Reader &reader : kReaders) {
            const auto text = reader.read(kVersion);
            ASSERT_TRUE(text.has_value()) << reader.name;
            EXPECT_EQ(*text, content) << reader.name;
        }
    }
}

TEST_F(Files, LinesReadWithFgetsAsOnTheCamera)
{
    sim::files().file(kVersion).content = "V5.5.0\nbuild 2026-10-20\n";
    FILE *stream = fopen(kVersion, "r");
    ASSERT_NE(stream, nullptr);
    char line[32];
    ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_STREQ(line, "V5.5.0\n");
    ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_STREQ(line, "build 2026-10-20\n");
    EXPECT_EQ(fgets(line, sizeof line, stream), nullptr);
    EXPECT_TRUE(feof(stream));
    rewind(stream);
    ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_STREQ(line, "V5.5.0\n") << "the file can be read again from its start";
    fclose(stream);
}

TEST_F(Files, AbsentFileGivesEnoentThroughEveryRoute)
{
    sim::files().file(kVersion).content.reset();
    for (const char *path : {kVersion, kEpon}) {
        for (const Reader &reader : kReaders) {
            SCOPED_TRACE(std::string(reader.name) + " " + path);
            const uint64_t mark = sim::journal().next_seq();
            errno = 0;
            EXPECT_FALSE(reader.read(path).has_value());
            EXPECT_EQ(errno, ENOENT);
            const auto entries = sim::journal().since(mark);
            ASSERT_EQ(entries.size(), 1u);
            EXPECT_EQ(entries[0].kind, sim::Kind::Open);
            EXPECT_EQ(entries[0].name, path);
            EXPECT_EQ(entries[0].result, -1);
            EXPECT_EQ(entries[0].err, ENOENT);
        }
    }
}

TEST_F(Files, EponFileIsSimulatedWhateverThePcsTmpHolds)
{
    // Put a real /tmp/epon_dev_info on the PC (unless one is there already): the camera still has
    // none.
    struct RealFile {
        bool made = false;
        ~RealFile()
        {
            if (made)
                unlink(kEpon);
        }
    } real;
    const int fd = sim::real::open(kEpon, O_WRONLY | O_CREAT | O_EXCL, 0600);
    real.made = fd >= 0;
    if (real.made) {
        EXPECT_EQ(sim::real::write(fd, "from the PC\n", 12), 12);
        sim::real::close(fd);
    }
    errno = 0;
    EXPECT_EQ(fopen(kEpon, "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(open(kEpon, O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);

    sim::files().file(kEpon).content = "ONU MAC 00:11:22:33:44:55\n";
    FILE *stream = fopen(kEpon, "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_stream(stream), "ONU MAC 00:11:22:33:44:55\n");
    fclose(stream);
}

TEST_F(Files, OpenErrnoFailsTheOpenWithIt)
{
    for (int err : {EACCES, EIO, EBUSY, EMFILE}) {
        SCOPED_TRACE(strerror(err));
        sim::files().file(kVersion).open_errno = err;
        for (const Reader &reader : kReaders) {
            errno = 0;
            EXPECT_FALSE(reader.read(kVersion).has_value()) << reader.name;
            EXPECT_EQ(errno, err) << reader.name;
            EXPECT_EQ(sim::journal().select(sim::Kind::Open).back().err, err);
        }
    }
}

TEST_F(Files, OpenErrnoWinsOverAnAbsentFile)
{
    sim::files().file(kEpon).open_errno = EACCES;
    errno = 0;
    EXPECT_EQ(fopen(kEpon, "r"), nullptr);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(Files, OpeningForWritingIsRefusedAndJournaled)
{
    struct Row {
        const char *what;
        std::function<bool()> open; // true when it was refused
        int access;                 // the access mode journaled
    };
    const auto by_open = [](int flags) { return [flags] { return open(kVersion, flags, 0644) == -1; }; };
    const auto by_fopen = [](const char *mode) {
        return [mode] { return fopen(kVersion, mode) == nullptr; };
    };
    const Row rows[] = {
        {"open O_WRONLY", by_open(O_WRONLY), O_WRONLY},
        {"open O_RDWR", by_open(O_RDWR), O_RDWR},
        {"open O_WRONLY|O_CREAT|O_TRUNC", by_open(O_WRONLY | O_CREAT | O_TRUNC), O_WRONLY},
        {"open O_RDWR|O_APPEND", by_open(O_RDWR | O_APPEND), O_RDWR},
        {"fopen w", by_fopen("w"), O_WRONLY},
        {"fopen a", by_fopen("a"), O_WRONLY},
        {"fopen r+", by_fopen("r+"), O_RDWR},
        {"fopen w+", by_fopen("w+"), O_RDWR},
        {"fopen a+", by_fopen("a+"), O_RDWR},
        {"fopen rb+", by_fopen("rb+"), O_RDWR},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        const uint64_t mark = sim::journal().next_seq();
        errno = 0;
        EXPECT_TRUE(row.open());
        EXPECT_EQ(errno, EROFS);
        const auto entries = sim::journal().since(mark);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].kind, sim::Kind::Open);
        EXPECT_EQ(entries[0].name, kVersion);
        EXPECT_EQ(entries[0].result, -1);
        EXPECT_EQ(entries[0].err, EROFS);
        EXPECT_EQ(entries[0].values[0] & O_ACCMODE, row.access);
    }
    const auto text = kReaders[0].read(kVersion);
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(*text, kDefaultVersion) << "the file is as it was";
}

TEST_F(Files, AbsentFileCannotBeCreated)
{
    struct Row {
        int flags;
        int err;
    };
    // Creating is refused as on a read-only filesystem; opening without creating finds nothing.
    const Row rows[] = {{O_WRONLY | O_CREAT, EROFS}, {O_RDWR | O_CREAT | O_EXCL, EROFS}, {O_WRONLY, ENOENT}};
    for (const Row &row : rows) {
        errno = 0;
        EXPECT_EQ(open(kEpon, row.flags, 0644), -1) << row.flags;
        EXPECT_EQ(errno, row.err) << row.flags;
    }
    errno = 0;
    EXPECT_EQ(fopen(kEpon, "w"), nullptr);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(fopen(kEpon, "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, FopenWithoutAModeIsInvalid)
{
    for (const char *mode : {"", "x", "+"}) {
        errno = 0;
        EXPECT_EQ(fopen(kVersion, mode), nullptr) << mode;
        EXPECT_EQ(errno, EINVAL) << mode;
    }
}

TEST_F(Files, AnyPathCanBeScriptedAsAFile)
{
    const std::string path = "/etc/camera/board.ini";
    ASSERT_EQ(access(path.c_str(), F_OK), -1) << "the PC has no such file";
    sim::files().file(path).content = "board=3\n";
    const auto text = kReaders[0].read(path.c_str());
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(*text, "board=3\n");
}

TEST_F(Files, PathNotSimulatedReachesTheRealFilesystem)
{
    char path[] = "/tmp/clidriver-bench-XXXXXX";
    const int made = mkstemp(path);
    ASSERT_GE(made, 0);
    ASSERT_EQ(write(made, "real bytes\n", 11), 11);
    ASSERT_EQ(close(made), 0);

    const uint64_t mark = sim::journal().next_seq();
    for (const Reader &reader : kReaders) {
        const auto text = reader.read(path);
        ASSERT_TRUE(text.has_value()) << reader.name;
        EXPECT_EQ(*text, "real bytes\n") << reader.name;
    }
    const int fd = open(path, O_WRONLY | O_APPEND);
    ASSERT_GE(fd, 0) << "writing a real file is allowed";
    EXPECT_EQ(write(fd, "more\n", 5), 5);
    close(fd);
    EXPECT_EQ(*kReaders[0].read(path), "real bytes\nmore\n");
    EXPECT_TRUE(sim::journal().since(mark).empty()) << "the camera saw none of it";
    unlink(path);

    errno = 0;
    EXPECT_EQ(fopen(path, "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, OpenAndCloseLeaveNoDescriptorOpen)
{
    const auto before = clitest::open_descriptors();
    for (int round = 0; round < 20; ++round) {
        for (const Reader &reader : kReaders)
            ASSERT_TRUE(reader.read(kVersion).has_value());
        EXPECT_FALSE(kReaders[0].read(kEpon).has_value());
        EXPECT_EQ(fopen(kVersion, "w"), nullptr);
    }
    EXPECT_EQ(clitest::open_descriptors(), before);
    EXPECT_TRUE(sim::descriptors().product_owned().empty());
}

// ---- commands ---------------------------------------------------------------------------------------

TEST_F(Files, LsusbGivesTheScriptedOutputAndExitsZero)
{
    const uint64_t mark = sim::journal().next_seq();
    FILE *pipe = popen("lsusb", "r");
    ASSERT_NE(pipe, nullptr);
    EXPECT_EQ(read_stream(pipe), kDefaultLsusb);
    EXPECT_EQ(pclose(pipe), 0);
    const auto entries = sim::journal().since(mark);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].kind, sim::Kind::Popen);
    EXPECT_EQ(entries[0].name, "lsusb");
    EXPECT_EQ(entries[0].result, 0);
    EXPECT_EQ(entries[0].text, "popen \"lsusb\"");
    EXPECT_EQ(entries[1].kind, sim::Kind::Pclose);
    EXPECT_EQ(entries[1].name, "lsusb");
    EXPECT_EQ(entries[1].result, 0);
    EXPECT_EQ(entries[1].text, "pclose \"lsusb\" -> 0");
}

TEST_F(Files, SensorTypeLineIsReadWithFgets)
{
    FILE *pipe = popen("cat /proc/driver/sensortype", "r");
    ASSERT_NE(pipe, nullptr);
    char line[16] = {};
    ASSERT_NE(fgets(line, sizeof line, pipe), nullptr);
    EXPECT_STREQ(line, "IMX290\n");
    EXPECT_EQ(fgets(line, sizeof line, pipe), nullptr);
    EXPECT_EQ(pclose(pipe), 0);
}

TEST_F(Files, PcloseGivesTheExitStatusShiftedAsWaitWould)
{
    for (int status : {0, 1, 2, 127, 255}) {
        SCOPED_TRACE(status);
        sim::files().command("lsusb") = sim::CommandScript{"out\n", status, 0};
        FILE *pipe = popen("lsusb", "r");
        ASSERT_NE(pipe, nullptr);
        EXPECT_EQ(read_stream(pipe), "out\n");
        const int result = pclose(pipe);
        EXPECT_EQ(result, status << 8);
        EXPECT_TRUE(WIFEXITED(result));
        EXPECT_EQ(WEXITSTATUS(result), status);
        EXPECT_EQ(sim::journal().select(sim::Kind::Pclose).back().result, status << 8);
    }
}

TEST_F(Files, CameraCommandAScenarioLeavesOutIsNotFound)
{
    scenario() = sim::Scenario{};
    restart();
    for (const char *command : {"lsusb", "cat /proc/driver/sensortype"}) {
        SCOPED_TRACE(command);
        FILE *pipe = popen(command, "r");
        ASSERT_NE(pipe, nullptr) << "the shell starts; the command is what is missing";
        EXPECT_EQ(read_stream(pipe), "");
        EXPECT_EQ(pclose(pipe), 127 << 8);
    }
}

TEST_F(Files, FailMakesPopenReturnNullWithThatErrno)
{
    for (int err : {EAGAIN, ENOMEM, EMFILE}) {
        SCOPED_TRACE(strerror(err));
        sim::files().command("lsusb").popen_errno = err;
        const auto before = clitest::open_descriptors();
        errno = 0;
        EXPECT_EQ(popen("lsusb", "r"), nullptr);
        EXPECT_EQ(errno, err);
        EXPECT_EQ(clitest::open_descriptors(), before);
        const sim::Entry last = sim::journal().select(sim::Kind::Popen).back();
        EXPECT_EQ(last.name, "lsusb");
        EXPECT_EQ(last.result, -1);
        EXPECT_EQ(last.err, err);
        EXPECT_EQ(last.text, std::string("popen \"lsusb\" -> ") + strerror(err));
    }
}

TEST_F(Files, WritingToACameraCommandIsRefused)
{
    errno = 0;
    EXPECT_EQ(popen("lsusb", "w"), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Files, UnknownCommandRunsOnThePc)
{
    struct Row {
        const char *command;
        const char *output;
        int status;
    };
    const Row rows[] = {
        {"echo hi", "hi\n", 0},
        {"printf 'a\\nb'; exit 3", "a\nb", 3 << 8},
        {"lsusb -t >/dev/null 2>&1; echo ran", "ran\n", 0}, // not the camera's lsusb command line
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.command);
        const uint64_t mark = sim::journal().next_seq();
        FILE *pipe = popen(row.command, "r");
        ASSERT_NE(pipe, nullptr);
        EXPECT_EQ(read_stream(pipe), row.output);
        EXPECT_EQ(pclose(pipe), row.status);
        EXPECT_TRUE(sim::journal().since(mark).empty()) << "nothing of the camera was touched";
    }
}

TEST_F(Files, PopenAndPcloseLeaveNoDescriptorOpen)
{
    const auto before = clitest::open_descriptors();
    for (int round = 0; round < 20; ++round) {
        for (const char *command : {"lsusb", "cat /proc/driver/sensortype"}) {
            FILE *pipe = popen(command, "r");
            ASSERT_NE(pipe, nullptr);
            EXPECT_EQ(sim::descriptors().kind(fileno(pipe)), sim::FdKind::Pipe);
            read_stream(pipe);
            EXPECT_EQ(pclose(pipe), 0);
        }
    }
    FILE *real = popen("echo hi", "r");
    ASSERT_NE(real, nullptr);
    pclose(real);
    EXPECT_EQ(clitest::open_descriptors(), before);
    EXPECT_TRUE(sim::descriptors().product_owned().empty());
}

TEST_F(Files, PipeClosedWithFcloseIsForgottenToo)
{
    // Not what the product should do, but what a careless caller might: the descriptor table and
    // the process must not keep the pipe.
    const auto before = clitest::open_descriptors();
    FILE *pipe = popen("lsusb", "r");
    ASSERT_NE(pipe, nullptr);
    const int fd = fileno(pipe);
    fclose(pipe);
    EXPECT_EQ(sim::descriptors().kind(fd), sim::FdKind::None);
    EXPECT_EQ(clitest::open_descriptors(), before);
}

} // namespace
