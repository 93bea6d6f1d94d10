// What each command of the shell's list costs the library itself: every one of the 145 commands
// called once through the shell's dispatch table, with the arguments a station gives it, on a
// freshly started simulated camera (the healthy one; the traffic camera for the hub peripherals,
// the ZigBee radio, the parking lamps and the control board).
//
//     command_cost --callgrind   under valgrind --tool=callgrind --collect-atstart=no: collection is
//                                switched on around each call only and the figures dumped after it,
//                                one dump per row named after the row (dev/cost splits each dump
//                                per object and keeps libclidriver's own instructions)
//     command_cost --wall N      natively: each row called N times, each on a fresh camera; the
//                                median wall time of the call
//
// Either way one line per row on standard output, tab-separated:
//     row  camera  status  simulated-ns  wall-ns
// What the commands print goes to /dev/null. The camera's start-up and each row's preparation
// (a port opened for the serial primitives, the tag search started before it is listed) are not
// counted.
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "commands.h"
#include "core/clock.h"
#include "scenario/scenario.h"
#include "simulated.h"
#include "words.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define COST_HAVE_CALLGRIND 1
#else
#define COST_HAVE_CALLGRIND 0
#endif

namespace
{

enum class Camera { Healthy, Traffic };

// The peripheral link, where the healthy camera's GPS receiver streams its sentences: the serial
// primitives' port.
constexpr const char *kLinkPort = "/dev/ttyC0";
// Stands for the descriptor of kLinkPort, opened before the call, in a row's words.
constexpr const char *kPortWord = "fd";

struct Row {
    std::string command;
    std::vector<std::string> words;
    Camera camera = Camera::Healthy;
    std::function<void()> before; // not counted
    std::function<void()> after;  // not counted
};

int g_port = -1;

void open_port()
{
    g_port = open(kLinkPort, O_RDWR | O_NOCTTY);
}

void close_port()
{
    if (g_port >= 0)
        close(g_port);
    g_port = -1;
}

// The arguments a station gives the commands that take any (examples/*.cli where they appear),
// and the traffic camera's commands. Every other command is called without arguments on the
// healthy camera. A command taking arguments that is missing here stops the program.
std::vector<Row> rows_with_arguments()
{
    const auto search_started = [] {
        (void)CLI_GetRfidIDInfo(0);
        (void)sleep(2); // the reader's first reports, on the simulated clock
    };
    const auto search_stopped = [] { (void)CLI_GetRfidIDInfo(2); };
    return {
        {"CLI_ChipCheckUsbDevice", {"0"}},
        {"CLI_SetLedColor", {"1"}},
        {"Cli_AlarmLedCtrl", {"1", "1", "1", "1"}},
        {"CLI_CtrlInnerIrCutMode", {"1"}},
        {"CLI_CtrlInnerOcStatus", {"0"}},
        {"CLI_IrLedCtrl", {"0", "0", "1", "31"}},
        {"CLI_RsInit", {}},
        {"CLI_SetRsRate", {kPortWord, "9600"}, Camera::Healthy, open_port, close_port},
        {"CLI_Treadn",
         {kPortWord, "16", "1"},
         Camera::Healthy,
         [] {
             open_port();
             (void)CLI_SetRsRate(g_port, 9600); // the receiver's speed
         },
         close_port},
        {"CLI_SetZoomPos", {"0", "0"}},
        {"CLI_SetIrisPos", {"0", "1"}},
        {"CLI_HeatCtrl", {"0xABABABAB", "1"}},
        {"CLI_FanCtrl", {"0xABABABAB", "1"}},
        {"CLI_HeatCtrlBoardToSlot", {"1", "2"}},
        {"CLI_PeripheralCtrlHeat", {"0", "1"}, Camera::Traffic},
        {"CLI_PeripheralGetTemp", {}, Camera::Traffic},
        {"CLI_SniffMac", {"4c:5e:0c:b0:4f:f7"}},
        {"CLI_WiFiSetChannel", {"6"}},
        {"CLI_GetGpsCoor", {"0"}},
        {"CLI_GetGpsSatellite", {"0"}},
        {"CLI_SetGpsRate", {"9600"}},
        {"CLI_SetRfidRate", {"9600"}, Camera::Traffic},
        {"CLI_GetRfidIDInfo", {"0"}, Camera::Traffic, nullptr, search_stopped},
        {"CLI_GetRfidIDInfo", {"1"}, Camera::Traffic, search_started, search_stopped},
        {"CLI_GetRfidIDInfo", {"2"}, Camera::Traffic, search_started, nullptr},
        {"CLI_SetZigbeeRate", {"115200"}, Camera::Traffic},
        {"CLI_GetZigbeeSensorInfo", {}, Camera::Traffic, [] { (void)CLI_NetAccess(1); }},
        {"CLI_GetZigbeeVersion", {}, Camera::Traffic, [] { (void)CLI_NetAccess(1); }},
        {"CLI_NetAccess", {"1"}, Camera::Traffic},
        {"CLI_ParkLedAlternate", {"0", "0"}, Camera::Traffic},
        {"CLi_ParkLedCtrlSingle", {"1", "1"}, Camera::Traffic},
        {"CLI_ParkLedCtrlAll", {"1"}, Camera::Traffic},
        {"CLI_ParkLampLedCtrl", {"1"}, Camera::Traffic},
        {"CLI_SetCtrlBoard485BaudRata", {"9600"}, Camera::Traffic},
        {"CLI_CtrlBoard485Test",
         {"1", "0", "0x55"},
         Camera::Traffic,
         [] { CLI_SetCtrlBoard485BaudRata(9600); }},
        {"CLI_GetCtrlBoardVersion", {}, Camera::Traffic},
        {"CLI_CtrlboardUpdate", {}, Camera::Traffic},
        {"CLI_CtrlBoardPowerLedCtrl", {"1"}, Camera::Traffic},
        {"CLI_GetMmcOriginalCapacity", {"0"}},
        // Last: its flash thread lives as long as the process and would wake in later rows.
        {"CLI_ParkLedTestInit", {}, Camera::Traffic},
    };
}

// Every command of the list, in the list's order, with its row; CLI_ParkLedTestInit last.
bool all_rows(std::vector<Row> &rows)
{
    std::vector<Row> given = rows_with_arguments();
    bool complete = true;
    Row last;
    for (const shell::Entry &entry : shell::command_table()) {
        if (entry.origin != shell::Origin::Command)
            continue;
        std::vector<Row> mine;
        for (const Row &row : given)
            if (row.command == entry.name)
                mine.push_back(row);
        if (mine.empty()) {
            if (entry.callable_here() && entry.callable->words() != 0) {
                fprintf(stderr, "command_cost: no arguments given for %s\n", entry.name.c_str());
                complete = false;
            }
            mine.push_back(Row{entry.name, {}});
        }
        for (Row &row : mine) {
            if (row.command == "CLI_ParkLedTestInit")
                last = row;
            else
                rows.push_back(row);
        }
    }
    rows.push_back(last);
    return complete;
}

std::string label(const Row &row)
{
    std::string text = row.command;
    for (const std::string &word : row.words)
        text += " " + word;
    return text;
}

struct Cameras {
    sim::Scenario healthy = sim::load_scenario(CLIDRIVER_SCENARIO_DIR "/default.toml");
    sim::Scenario traffic = sim::load_scenario(CLIDRIVER_SCENARIO_DIR "/traffic.toml");
};

struct Outcome {
    std::string status; // the status word, "-" for none, "refused: ..." when it could not be called
    int64_t simulated_ns = 0;
    int64_t wall_ns = 0;
};

Outcome call_once(const Cameras &cameras, const Row &row, FILE *sink, bool callgrind)
{
    shell::simulated::start(row.camera == Camera::Traffic ? cameras.traffic : cameras.healthy, sink);
    shell::simulated::run_startup(nullptr);
    if (row.before)
        row.before();
    std::vector<std::string> words = row.words;
    for (std::string &word : words)
        if (word == kPortWord)
            word = std::to_string(g_port);

    Outcome outcome;
    const shell::Entry *entry = shell::find_command(row.command);
    std::string error;
    std::unique_ptr<shell::PreparedCall> call = entry != nullptr && entry->callable_here()
                                                    ? entry->callable->prepare(entry->params, words, error)
                                                    : nullptr;
    if (call == nullptr) {
        outcome.status = "refused: " + (entry == nullptr ? std::string("not in the table") : error);
    } else {
        const std::string name = label(row); // the dump's name: kept alive past the request
        const int64_t simulated_before = sim::clock().now();
        const auto wall_before = std::chrono::steady_clock::now();
        std::optional<int64_t> status;
        if (callgrind) {
#if COST_HAVE_CALLGRIND
            CALLGRIND_TOGGLE_COLLECT;
            status = call->invoke();
            CALLGRIND_TOGGLE_COLLECT;
            CALLGRIND_DUMP_STATS_AT(name.c_str());
#endif
        } else {
            status = call->invoke();
        }
        outcome.wall_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                              std::chrono::steady_clock::now() - wall_before)
                              .count();
        outcome.simulated_ns = sim::clock().now() - simulated_before;
        outcome.status = status ? std::to_string(*status) : "-";
    }
    fflush(stdout);
    if (row.after)
        row.after();
    shell::simulated::hooks().after_command();
    return outcome;
}

// Descriptor 1 to /dev/null; the table goes to a copy of the original.
FILE *table_stream()
{
    fflush(stdout);
    const int copy = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    if (copy < 0 || null < 0 || dup2(null, STDOUT_FILENO) < 0)
        return nullptr;
    close(null);
    return fdopen(copy, "w");
}

} // namespace

int main(int argc, char **argv)
{
    bool callgrind = false;
    int passes = 0;
    if (argc == 2 && strcmp(argv[1], "--callgrind") == 0) {
        callgrind = true;
    } else if (argc == 3 && strcmp(argv[1], "--wall") == 0 && atoi(argv[2]) > 0) {
        passes = atoi(argv[2]);
    } else {
        fprintf(stderr, "usage: command_cost --callgrind | --wall N\n");
        return 2;
    }
#if !COST_HAVE_CALLGRIND
    if (callgrind) {
        fprintf(stderr, "command_cost: built without valgrind's callgrind.h: --wall only\n");
        return 2;
    }
#endif
    std::vector<Row> rows;
    if (!all_rows(rows))
        return 2;
    const Cameras cameras;
    FILE *table = table_stream();
    if (table == nullptr) {
        fprintf(stderr, "command_cost: cannot set standard output aside\n");
        return 2;
    }
    FILE *sink = stdout;

    std::vector<std::vector<Outcome>> outcomes(rows.size());
    for (int pass = 0; pass < std::max(passes, 1); ++pass)
        for (size_t i = 0; i < rows.size(); ++i)
            outcomes[i].push_back(call_once(cameras, rows[i], sink, callgrind));

    int refused = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        std::vector<Outcome> &seen = outcomes[i];
        std::sort(seen.begin(), seen.end(),
                  [](const Outcome &a, const Outcome &b) { return a.wall_ns < b.wall_ns; });
        const Outcome &median = seen[seen.size() / 2];
        refused += median.status.starts_with("refused") ? 1 : 0;
        fprintf(table, "%s\t%s\t%s\t%" PRId64 "\t%" PRId64 "\n", label(rows[i]).c_str(),
                rows[i].camera == Camera::Traffic ? "traffic" : "healthy", median.status.c_str(),
                median.simulated_ns, median.wall_ns);
    }
    fclose(table);
    return refused == 0 ? 0 : 1;
}
