#include "sim_fixture.h"

#include <dirent.h>
#include <unistd.h>

#include "capture.h"
#include "core/clock.h"
#include "core/descriptors.h"
#include "core/sim.h"

namespace clitest
{

std::vector<std::string> Call::messages() const
{
    std::vector<std::string> result;
    for (const DiagLine &line : lines) {
        std::string text = line.text;
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        result.push_back(line.level + " " + line.function + ": " + text);
    }
    return result;
}

std::vector<sim::Entry> Call::of(sim::Kind kind, const std::string &name) const
{
    std::vector<sim::Entry> result;
    for (const sim::Entry &entry : journal)
        if (entry.kind == kind && (name.empty() || entry.name == name))
            result.push_back(entry);
    return result;
}

std::set<int> open_descriptors()
{
    std::set<int> fds;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr)
        return fds;
    const int own = dirfd(dir);
    while (const dirent *entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        const int fd = atoi(entry->d_name);
        if (fd != own)
            fds.insert(fd);
    }
    closedir(dir);
    return fds;
}

std::string scenario_error(const std::string &text, const std::string &dir)
{
    try {
        sim::parse_scenario(text, "bad.toml", dir);
    } catch (const sim::ScenarioError &error) {
        return error.what();
    }
    return "";
}

void SimTest::SetUp()
{
    scenario_ = sim::load_scenario(sim::default_scenario_path());
    restart();
}

void SimTest::restart()
{
    sim::start(scenario_);
    fds_before_ = open_descriptors();
}

void SimTest::use_scenario_file(const std::string &path)
{
    scenario_ = sim::load_scenario(path);
    restart();
}

void SimTest::run_captured(const std::function<void()> &call, Call &result)
{
    const uint64_t first = sim::journal().next_seq();
    const sim::Nanos start = sim::clock().now();
    const shell::Captured io = shell::capture_output(call);
    if (!io.captured)
        ADD_FAILURE() << "standard output and standard error could not be captured";
    result.out = io.out;
    result.err = io.err;
    result.waited = sim::clock().now() - start;
    result.journal = sim::journal().since(first);
    for (const sim::Entry &entry : result.journal) {
        if (entry.kind != sim::Kind::Print)
            continue;
        result.printed.push_back(entry.text);
        if (auto line = parse_diag_line(entry.text))
            result.lines.push_back(*line);
        else
            ADD_FAILURE() << "not a diagnostic line: " << entry.text;
    }
}

// What each deliberate exception looks like in the descriptor table.
bool left_open_by(LeftOpen reason, const sim::FdOwner &owner)
{
    switch (reason) {
    case LeftOpen::EncodeInitPipe:
        return owner.kind == sim::FdKind::Pipe && owner.what == "cat /proc/driver/sensortype";
    case LeftOpen::PeripheralLinkAfterRate:
    case LeftOpen::GpsLinkAfterReopen:
        return owner.kind == sim::FdKind::Port && owner.what == "/dev/ttyC0";
    case LeftOpen::LightSensorAfterTimeout:
        return owner.kind == sim::FdKind::Port && owner.what == "/dev/ttyAMBA1";
    }
    return false;
}

namespace
{

std::string describe(int fd)
{
    if (auto owner = sim::descriptors().owner(fd))
        return "fd " + std::to_string(fd) + " (" + owner->what + ")";
    char target[256] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
    return "fd " + std::to_string(fd) + " (" + (n > 0 ? std::string(target, static_cast<size_t>(n)) : "?") +
           ")";
}

} // namespace

void SimTest::TearDown()
{
    std::vector<LeftOpen> allowed = allowed_;
    for (int fd : open_descriptors()) {
        if (fds_before_.count(fd) != 0 || sim::descriptors().internal(fd))
            continue;
        bool excused = false;
        if (auto owner = sim::descriptors().owner(fd)) {
            for (auto reason = allowed.begin(); reason != allowed.end(); ++reason) {
                if (left_open_by(*reason, *owner)) {
                    allowed.erase(reason);
                    excused = true;
                    break;
                }
            }
        }
        if (!excused)
            ADD_FAILURE() << "descriptor left open: " << describe(fd);
    }
}

} // namespace clitest
