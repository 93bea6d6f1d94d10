#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <map>
#include <poll.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

#include "capture.h"
#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/sim.h"
#include "countdown.h"
#include "diag_line.h"

namespace countdown
{
namespace
{

using sim::Fault;
using sim::PeerMode;

// ---- Calling a command with nothing particular to say ------------------------------------------

// Room for whatever a pointer argument points at: zeroed, and larger than any record.
alignas(16) unsigned char g_scratch[4][4096];

template <typename T> T neutral(int index)
{
    if constexpr (std::is_same_v<T, const char *> || std::is_same_v<T, char *>)
        return reinterpret_cast<T>(g_scratch[index % 4]);
    else if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(g_scratch[index % 4]);
    else
        return T{};
}

template <typename R, typename... A, size_t... I>
long long call_neutral(R (*command)(A...), std::index_sequence<I...>)
{
    memset(g_scratch, 0, sizeof g_scratch);
    if constexpr (std::is_void_v<R>) {
        command(neutral<A>(static_cast<int>(I))...);
        return 0;
    } else {
        return static_cast<long long>(command(neutral<A>(static_cast<int>(I))...));
    }
}

template <typename R, typename... A> std::function<long long()> with_neutral_arguments(R (*command)(A...))
{
    return [command] { return call_neutral(command, std::index_sequence_for<A...>{}); };
}

// One entry of the whole list: a command of commands.def, built here or only its default.
struct Listed {
    const char *name;
    bool built;
    bool returns_nothing;
    std::function<long long()> call; // with neutral arguments
};

const std::vector<Listed> &command_list()
{
    static const std::vector<Listed> list = {
#define CLI_COMMAND(family, name, owner, built, ret, params, default_ret, default_body)                      \
    {#name, built != 0, std::is_void_v<ret>, with_neutral_arguments(&name)},
#include "clidriver/commands.def"
        // Support operations the station also calls as commands in their own right.
        {"CLI_232PhotoSensorVoltage", true, false, with_neutral_arguments(&CLI_232PhotoSensorVoltage)},
    };
    return list;
}

// ---- One run, in a child process --------------------------------------------------------------

struct Outcome {
    bool finished = false; // the child wrote its outcome and ended on its own
    std::string death;     // how it ended otherwise
    long long status = 0;
    std::vector<std::string> messages;  // "LEVEL function: text" of each diagnostic line
    std::vector<std::string> bad_lines; // printed lines that are not diagnostic lines
    std::string out;
    std::string err;
    sim::Nanos waited = 0;
    std::vector<std::string> left_open; // descriptors the run left open beyond the deliberate ones
    std::vector<std::string> ops;       // the operations counted, in order
    std::string failed;                 // the one that failed ("" when none did)
};

// The outcome travels from child to parent as length-prefixed strings.
void put(std::string &wire, const std::string &text)
{
    const uint32_t size = static_cast<uint32_t>(text.size());
    wire.append(reinterpret_cast<const char *>(&size), sizeof size);
    wire.append(text);
}

void put(std::string &wire, const std::vector<std::string> &texts)
{
    put(wire, std::to_string(texts.size()));
    for (const std::string &text : texts)
        put(wire, text);
}

struct Reader {
    const std::string &wire;
    size_t at = 0;
    bool ok = true;
    std::string text()
    {
        uint32_t size = 0;
        if (at + sizeof size > wire.size()) {
            ok = false;
            return {};
        }
        memcpy(&size, wire.data() + at, sizeof size);
        at += sizeof size;
        if (at + size > wire.size()) {
            ok = false;
            return {};
        }
        std::string result = wire.substr(at, size);
        at += size;
        return result;
    }
    std::vector<std::string> texts()
    {
        const long long count = atoll(text().c_str());
        std::vector<std::string> result;
        for (long long i = 0; ok && i < count; ++i)
            result.push_back(text());
        return result;
    }
};

std::string encode(const Outcome &outcome)
{
    std::string wire;
    put(wire, std::to_string(outcome.status));
    put(wire, outcome.messages);
    put(wire, outcome.bad_lines);
    put(wire, outcome.out);
    put(wire, outcome.err);
    put(wire, std::to_string(outcome.waited));
    put(wire, outcome.left_open);
    put(wire, outcome.ops);
    put(wire, outcome.failed);
    return wire;
}

bool decode(const std::string &wire, Outcome &outcome)
{
    Reader in{wire};
    outcome.status = atoll(in.text().c_str());
    outcome.messages = in.texts();
    outcome.bad_lines = in.texts();
    outcome.out = in.text();
    outcome.err = in.text();
    outcome.waited = atoll(in.text().c_str());
    outcome.left_open = in.texts();
    outcome.ops = in.texts();
    outcome.failed = in.text();
    return in.ok && in.at == wire.size();
}

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

// The serial port records of the shell, which the platform's start-up hands to CLI_RsInit.
CliSerialPort g_ports[3];

// What the camera's start-up has done before the shell takes commands: the product record, the
// serial ports, and the devices the platform declares on the peripheral link.
void start_up(const sim::Scenario &scenario)
{
    const sim::Startup &startup = scenario.startup;
    shell::capture_output([&] {
        if (startup.product_record)
            (void)CLI_GetProductAllVersion();
        if (startup.serial_ports)
            (void)CLI_RsInit(g_ports);
    });
    if (startup.hub) {
        gastComCap.astDev[COM_TYPE_HUB].ulSupport = 1;
        gastComCap.astDev[COM_TYPE_HUB].ulRate = *startup.hub;
    }
    for (const auto &[type, rate] : startup.link_devices) {
        gastComCap.astDev[type].ulSupport = 1;
        gastComCap.astDev[type].ulRate = rate;
    }
}

// The child's part: the camera, the start-up, the command with the fault point armed.
Outcome run_here(const sim::Scenario &scenario, const std::function<void()> &prepare,
                 const std::function<long long()> &command, unsigned kinds, int nth, PeerMode mode,
                 const std::vector<clitest::LeftOpen> &left_open)
{
    sim::start(scenario);
    start_up(scenario);
    if (prepare)
        shell::capture_output(prepare);
    const std::set<int> before = clitest::open_descriptors();
    const uint64_t first = sim::journal().next_seq();
    const sim::Nanos start = sim::clock().now();
    Outcome outcome;
    sim::fault_point().arm(kinds, nth, mode);
    const shell::Captured io = shell::capture_output([&] { outcome.status = command(); });
    sim::fault_point().disarm();
    outcome.waited = sim::clock().now() - start;
    outcome.out = io.out;
    outcome.err = io.err;
    for (const sim::FaultOp &op : sim::fault_point().seen())
        outcome.ops.push_back(op.what);
    if (auto failed = sim::fault_point().failed())
        outcome.failed = failed->what;
    for (const sim::Entry &entry : sim::journal().since(first)) {
        if (entry.kind != sim::Kind::Print)
            continue;
        if (auto line = clitest::parse_diag_line(entry.text)) {
            std::string text = line->text;
            if (!text.empty() && text.back() == '\n')
                text.pop_back();
            outcome.messages.push_back(line->level + " " + line->function + ": " + text);
        } else {
            outcome.bad_lines.push_back(entry.text);
        }
    }
    std::vector<clitest::LeftOpen> allowed = left_open;
    for (int fd : clitest::open_descriptors()) {
        if (before.count(fd) != 0 || sim::descriptors().internal(fd))
            continue;
        bool excused = false;
        if (auto owner = sim::descriptors().owner(fd)) {
            for (auto reason = allowed.begin(); reason != allowed.end(); ++reason) {
                if (clitest::left_open_by(*reason, *owner)) {
                    allowed.erase(reason);
                    excused = true;
                    break;
                }
            }
        }
        if (!excused)
            outcome.left_open.push_back(describe(fd));
    }
    return outcome;
}

// Real seconds a run may take before it counts as hung: the simulated clock makes even the
// longest time-out cost milliseconds, and a thread that never comes back to it costs 20 s.
constexpr int kHungAfterSeconds = 60;

Outcome run_forked(const sim::Scenario &scenario, const Row &row, unsigned kinds, int nth, PeerMode mode)
{
    Outcome outcome;
    int channel[2];
    if (pipe(channel) != 0) {
        outcome.death = std::string("pipe: ") + strerror(errno);
        return outcome;
    }
    fflush(stdout);
    fflush(stderr);
    const pid_t child = fork();
    if (child < 0) {
        outcome.death = std::string("fork: ") + strerror(errno);
        close(channel[0]);
        close(channel[1]);
        return outcome;
    }
    if (child == 0) {
        close(channel[0]);
        const std::string wire =
            encode(run_here(scenario, row.prepare, row.call, kinds, nth, mode, row.left_open));
        size_t sent = 0;
        while (sent < wire.size()) {
            const ssize_t n = write(channel[1], wire.data() + sent, wire.size() - sent);
            if (n <= 0)
                _exit(3);
            sent += static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(channel[1]);
    std::string wire;
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(kHungAfterSeconds);
    bool hung = false;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(give_up - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            hung = true;
            break;
        }
        pollfd ready{channel[0], POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)
            break;
        char buffer[65536];
        const ssize_t n = read(channel[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        wire.append(buffer, static_cast<size_t>(n));
    }
    close(channel[0]);
    if (hung)
        kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (hung)
        outcome.death = "hung for " + std::to_string(kHungAfterSeconds) + " s of real time";
    else if (WIFSIGNALED(status))
        outcome.death = std::string("killed by signal ") + strsignal(WTERMSIG(status));
    else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        outcome.death = "ended the process with status " + std::to_string(WEXITSTATUS(status));
    else if (!decode(wire, outcome))
        outcome.death = "left a garbled outcome";
    else
        outcome.finished = true;
    return outcome;
}

// ---- The table ---------------------------------------------------------------------------------

struct Entry {
    const Listed *listed;
    const Row *row; // null for a command that only has its default
};

std::vector<Entry> table()
{
    std::map<std::string, const Row *> written;
    for (const Row &row : built_rows())
        written[row.command] = &row;
    std::vector<Entry> entries;
    for (const Listed &listed : command_list()) {
        auto found = written.find(listed.name);
        entries.push_back({&listed, found == written.end() ? nullptr : found->second});
    }
    return entries;
}

bool matches(const char *pattern, const std::string &op, int occurrence)
{
    std::string wanted = pattern;
    if (const size_t hash = wanted.rfind('#'); hash != std::string::npos) {
        if (atoi(wanted.c_str() + hash + 1) != occurrence)
            return false;
        wanted.resize(hash);
    }
    if (!wanted.empty() && wanted.back() == '*')
        return op.compare(0, wanted.size() - 1, wanted, 0, wanted.size() - 1) == 0;
    return op == wanted;
}

// Whether `text` is `pattern`, where each '*' of the pattern stands for any run of characters.
bool like(const char *pattern, const char *text)
{
    if (*pattern == '\0')
        return *text == '\0';
    if (*pattern == '*')
        return like(pattern + 1, text) || (*text != '\0' && like(pattern, text + 1));
    return *text == *pattern && like(pattern + 1, text + 1);
}

std::string last_error(const Outcome &outcome)
{
    for (auto line = outcome.messages.rbegin(); line != outcome.messages.rend(); ++line)
        if (line->rfind("ERROR ", 0) == 0)
            return *line;
    return "";
}

// COUNTDOWN_SHOW=1 prints what each run did, to write a row from (checked against the rules,
// never copied blindly).
void show(const char *command, const std::string &step, const Outcome &run)
{
    if (getenv("COUNTDOWN_SHOW") == nullptr)
        return;
    std::string err = run.err;
    for (char &c : err)
        if (c == '\r' || c == '\n' || c == '\t')
            c = ' ';
    fprintf(stderr, "%s | %s | %s | status %lld | last \"%s\" | stderr \"%s\" | %lld ms%s\n", command,
            step.c_str(), run.failed.c_str(), run.status, last_error(run).c_str(), err.c_str(),
            static_cast<long long>(run.waited / sim::kMillisecond),
            run.finished ? "" : (" | " + run.death).c_str());
}

void expect_sound(const Outcome &outcome, const std::string &step)
{
    EXPECT_TRUE(outcome.finished) << step << ": " << outcome.death;
    EXPECT_TRUE(outcome.bad_lines.empty()) << step << ": printed " << outcome.bad_lines.front();
    EXPECT_TRUE(outcome.left_open.empty()) << step << ": left open " << outcome.left_open.front();
}

class Countdown : public ::testing::TestWithParam<Entry>
{
};

std::string name_of(const ::testing::TestParamInfo<Entry> &info)
{
    return info.param.listed->name;
}

TEST_P(Countdown, EveryOperationFailsInTurn)
{
    const Listed &listed = *GetParam().listed;
    const Row *row = GetParam().row;
    if (listed.built)
        ASSERT_NE(row, nullptr) << listed.name << " is built but has no row in the countdown's table";

    Row defaulted;
    defaulted.command = listed.name;
    defaulted.call = listed.call;
    defaulted.status_word = !listed.returns_nothing;
    const Row &used = row != nullptr ? *row : defaulted;
    const sim::Scenario scenario =
        sim::load_scenario(std::string(CLIDRIVER_SCENARIO_DIR "/") + used.scenario);
    sim::Scenario camera = scenario;
    if (used.camera)
        used.camera(camera);

    // The healthy run: what the command does when nothing fails.
    const Outcome healthy = run_forked(camera, used, sim::kSystemFaults | static_cast<unsigned>(Fault::Peer),
                                       0, PeerMode::Silent);
    show(listed.name, "healthy", healthy);
    if (getenv("COUNTDOWN_SHOW") != nullptr)
        for (const std::string &op : healthy.ops)
            fprintf(stderr, "%s | op | %s\n", listed.name, op.c_str());
    expect_sound(healthy, "healthy run");
    ASSERT_TRUE(healthy.finished);
    EXPECT_EQ(healthy.failed, "");
    if (used.status_word)
        EXPECT_EQ(healthy.status, used.healthy_status)
            << "healthy run: " << ::testing::PrintToString(healthy.messages);
    if (used.bound > 0)
        EXPECT_LE(healthy.waited, used.bound) << "healthy run";

    if (row == nullptr) {
        // Only the default answers: it touches nothing of the camera and says so.
        EXPECT_TRUE(healthy.ops.empty()) << ::testing::PrintToString(healthy.ops);
        if (std::string(listed.name) == "CLI_HeatCtrlBoardToSlot")
            EXPECT_TRUE(healthy.messages.empty()); // its identity mapping is the behaviour in force
        else
            EXPECT_EQ(healthy.messages, std::vector<std::string>{" INFO __" + std::string(listed.name) +
                                                                 ": unsupport this function"});
        EXPECT_EQ(healthy.out, "");
        EXPECT_EQ(healthy.err, "");
        EXPECT_EQ(healthy.waited, 0);
        return;
    }

    int peer_messages = 0;
    std::vector<std::string> system;
    for (const std::string &op : healthy.ops) {
        if (op.rfind("message to the camera", 0) == 0)
            ++peer_messages;
        else
            system.push_back(op);
    }
    const int system_ops = static_cast<int>(system.size());
    RecordProperty("operations", system_ops);
    RecordProperty("peer_messages", peer_messages);

    // Each operation of the camera's kernel, drivers and libraries fails in turn.
    for (int step = 1; step <= system_ops; ++step) {
        const Outcome run = run_forked(camera, used, sim::kSystemFaults, step, PeerMode::Silent);
        const std::string where = "step " + std::to_string(step) + " of " + std::to_string(system_ops) +
                                  " (" + (run.failed.empty() ? "?" : run.failed) + ")";
        show(listed.name, "step " + std::to_string(step), run);
        expect_sound(run, where);
        if (!run.finished)
            continue;
        EXPECT_NE(run.failed, "") << where << ": the operation did not come again";
        if (used.bound > 0)
            EXPECT_LE(run.waited, used.bound) << where;
        const int occurrence = static_cast<int>(
            std::count(system.begin(), system.begin() + std::min(step, system_ops), run.failed));
        const OnFailure *rule = nullptr;
        for (const OnFailure &candidate : used.failures)
            if (matches(candidate.op, run.failed, occurrence)) {
                rule = &candidate;
                break;
            }
        if (rule != nullptr) {
            if (rule->status == used.healthy_status)
                EXPECT_NE(rule->why, nullptr) << where << ": a failure that changes nothing says why";
            if (used.status_word)
                EXPECT_EQ(run.status, rule->status)
                    << where << ": " << ::testing::PrintToString(run.messages);
            EXPECT_TRUE(like(rule->last_error != nullptr ? rule->last_error : "", last_error(run).c_str()))
                << where << ": wanted \"" << (rule->last_error != nullptr ? rule->last_error : "")
                << "\", got \"" << last_error(run) << "\": "
                << ": " << ::testing::PrintToString(run.messages) << " stderr: " << run.err;
        } else if (used.invariants_only) {
            if (used.status_word)
                EXPECT_TRUE(run.status == 0 || run.status == 1) << where << ": status " << run.status;
            if (run.status != 0)
                EXPECT_TRUE(!last_error(run).empty() || !run.err.empty())
                    << where << ": failed without a word";
        } else {
            ADD_FAILURE() << where << ": no rule for this operation; it gave status " << run.status
                          << ", last error \"" << last_error(run) << "\", stderr \"" << run.err << "\"";
        }
    }

    // Each message of a serial peer is the last one heard, or arrives as garbage.
    for (const PeerMode mode : {PeerMode::Silent, PeerMode::Garbage}) {
        for (int step = 1; step <= peer_messages; ++step) {
            const Outcome run = run_forked(camera, used, static_cast<unsigned>(Fault::Peer), step, mode);
            const std::string where = std::string(mode == PeerMode::Silent ? "silent" : "garbage") +
                                      " from message " + std::to_string(step) + " of " +
                                      std::to_string(peer_messages);
            show(listed.name, where, run);
            expect_sound(run, where);
            if (!run.finished)
                continue;
            if (used.bound > 0)
                EXPECT_LE(run.waited, used.bound) << where;
            if (used.status_word)
                EXPECT_TRUE(run.status == 0 || run.status == 1) << where << ": status " << run.status;
            if (run.status != 0)
                EXPECT_TRUE(!last_error(run).empty() || !run.err.empty())
                    << where << ": failed without a word";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, Countdown, ::testing::ValuesIn(table()), name_of);

// A command built here without a row would be counted down with nothing to say what its
// failures must give: the list and the table grow together.
TEST(CountdownTable, EveryBuiltCommandHasOneRow)
{
    std::map<std::string, int> rows;
    for (const Row &row : built_rows())
        ++rows[row.command];
    for (const Listed &listed : command_list()) {
        if (listed.built)
            EXPECT_EQ(rows[listed.name], 1) << listed.name;
        else
            EXPECT_EQ(rows.count(listed.name), 0u) << listed.name << " only has its default";
        rows.erase(listed.name);
    }
    for (const auto &[name, count] : rows)
        ADD_FAILURE() << name << " has a row but is not in the command list";
}

} // namespace
} // namespace countdown
