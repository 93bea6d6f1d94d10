// Reads sim/scenarios/*.toml. The schema, with an example per section, is in
// sim/scenarios/README.md.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <deque>
#include <set>
#include <sstream>

#include "devices/chardev.h"
#include "devices/files.h"
#include "devices/serial.h"
#include "edit_distance.h"
#include "peripherals/box_toml.h"
#include "peripherals/gps_toml.h"
#include "peripherals/hub_toml.h"
#include "peripherals/ir_lamp_toml.h"
#include "peripherals/light_sensor_toml.h"
#include "peripherals/recording_peer_toml.h"
#include "peripherals/rfid_toml.h"
#include "peripherals/scripted_peer_toml.h"
#include "peripherals/zigbee_toml.h"
#include "scenario/scenario.h"
#include "scenario/section.h"

namespace sim
{
namespace
{

std::vector<uint8_t> words_to_bytes(const std::vector<int64_t> &words)
{
    std::vector<uint8_t> bytes(words.size() * 4);
    for (size_t i = 0; i < words.size(); ++i) {
        const uint32_t word = static_cast<uint32_t>(words[i]);
        memcpy(bytes.data() + i * 4, &word, 4);
    }
    return bytes;
}

// Ranges of the numbers a scenario hands the library: 32-bit words, descriptors' results, exit codes.
constexpr int64_t kWordLowest = INT32_MIN;   // a word may be written signed ...
constexpr int64_t kWordHighest = UINT32_MAX; // ... or unsigned
constexpr int64_t kUnsignedHighest = UINT32_MAX;
constexpr int64_t kLargestRecord = 65536; // bytes behind a request's pointer

using text::edit_distance;

// A path, file or command the scenario names must be one the library uses: anything else would
// be a misspelling silently taken for a missing device. `known` is the simulator's own list.
void check_known(const Section &section, const toml::node &where, const std::string &name, const char *what,
                 const char *const *known)
{
    std::string best, all;
    size_t best_distance = SIZE_MAX;
    for (const char *const *item = known; *item != nullptr; ++item) {
        if (name == *item)
            return;
        all += (all.empty() ? "" : ", ") + std::string(*item);
        if (const size_t d = edit_distance(name, *item); d < best_distance)
            best_distance = d, best = *item;
    }
    constexpr size_t kMostEdits = 3;
    std::string message = "the library uses no " + std::string(what) + " \"" + name + "\"";
    if (best_distance <= kMostEdits)
        message += "; did you mean \"" + best + "\"?";
    else
        message += " (it uses: " + all + ")";
    section.fail_at(where, name, message);
}

// Each entry of a table that maps names to a string (what `string_means`) or to a table of keys.
template <typename Plain, typename Full>
void each_string_or_table(const Section &section, const std::string &string_means, Plain plain, Full full)
{
    for (const auto &[key, value] : section.raw()) {
        const std::string name(key.str());
        if (value.is_string())
            plain(name, *value.template value<std::string>());
        else if (value.is_table())
            full(name, *section.table(name));
        else
            section.fail_at(value, name, "expected " + string_means + " (a string) or a table");
    }
}

void read_camera(const Section &camera, Scenario &scenario)
{
    camera.only({"name", "product_type", "boot_epoch"});
    scenario.name = camera.string("name").value_or("");
    if (auto type = camera.integer_in("product_type", 0, kUnsignedHighest))
        scenario.product_type = static_cast<uint32_t>(*type);
    // The camera's time_t is 32 bits wide.
    if (auto epoch = camera.integer_in("boot_epoch", 0, INT32_MAX))
        scenario.boot_epoch = *epoch;
}

std::vector<std::string> read_texts(const Section &section, std::string_view key)
{
    std::vector<std::string> texts;
    const toml::node *node = section.raw().get(key);
    if (node == nullptr)
        return texts;
    const toml::array *array = node->as_array();
    if (array == nullptr)
        section.fail_at(*node, key, "expected an array of strings");
    for (const toml::node &item : *array) {
        if (!item.is_string())
            section.fail_at(item, key, "expected an array of strings");
        texts.push_back(*item.value<std::string>());
    }
    return texts;
}

// A recorded camera's calls of one platform operation, in order.
std::deque<RecordedCall> read_recorded_calls(const Section &op)
{
    std::deque<RecordedCall> calls;
    for (const Section &recorded : op.tables("recorded")) {
        recorded.only({"args", "texts", "result", "sent", "bytes"});
        RecordedCall call;
        if (auto args = recorded.integers("args"))
            call.args = *args;
        call.texts = read_texts(recorded, "texts");
        call.result = recorded.integer("result").value_or(0);
        call.sent = recorded.bytes("sent");
        call.bytes = recorded.bytes("bytes").value_or(std::vector<uint8_t>{});
        calls.push_back(call);
    }
    return calls;
}

void read_platform(const Section &platform, Scenario &scenario)
{
    for (const auto &[key, value] : platform.raw()) {
        const std::string name(key.str());
        const auto &known = platform_operations();
        if (std::find(known.begin(), known.end(), name) == known.end())
            platform.fail_at(value, name, "not an operation of the camera platform");
        const auto op = platform.table(name);
        if (name == "drv_GetAlarmCnt") {
            op->only({"inputs", "outputs", "recorded"});
            if (auto recorded = read_recorded_calls(*op); !recorded.empty())
                scenario.platform[name].recorded = recorded;
            CliAlarmCount count{};
            count.ulInputs = static_cast<uint32_t>(op->integer_in("inputs", 0, kUnsignedHighest).value_or(0));
            count.ulOutputs =
                static_cast<uint32_t>(op->integer_in("outputs", 0, kUnsignedHighest).value_or(0));
            scenario.alarm_count = count;
            continue;
        }
        op->only({"result", "results", "words", "text", "bytes", "recorded"});
        OpScript script;
        script.recorded = read_recorded_calls(*op);
        if (auto result = op->integer_in("result", kWordLowest, kWordHighest))
            script.result = *result;
        if (auto results = op->integers_in("results", kWordLowest, kWordHighest))
            script.sequence.assign(results->begin(), results->end());
        if (auto words = op->integers_in("words", kWordLowest, kWordHighest))
            script.out = words_to_bytes(*words);
        if (auto text = op->string("text")) {
            script.out.assign(text->begin(), text->end());
            script.out.push_back(0);
        }
        if (auto bytes = op->bytes("bytes"))
            script.out = *bytes;
        scenario.platform[name] = script;
    }
}

// The control board's answers. Each may instead be scripted under [platform.OPERATION], but not
// both ways at once.
void read_control_board(const Section &board, Scenario &scenario)
{
    board.only({"board_type", "version"});
    const auto scripted = [&](const char *operation) {
        const auto found = scenario.platform.find(operation);
        return found != scenario.platform.end() && !found->second.out.empty();
    };
    if (auto type = board.integer_in("board_type", 0, 0xFFFFFFFF)) {
        if (scripted("DRV_SIBBoardTypeGet"))
            board.fail("board_type",
                       "the board type is also written by [platform.DRV_SIBBoardTypeGet]; give it once");
        scenario.control_board.board_type = static_cast<uint32_t>(*type);
    }
    if (auto version = board.string("version")) {
        if (version->size() > BoardModel::kVersionAreaSize)
            board.fail("version", "expected at most 8 characters: the board's version area holds 8 bytes");
        if (scripted("DRV_SIBVersionGet"))
            board.fail("version",
                       "the version text is also written by [platform.DRV_SIBVersionGet]; give it once");
        scenario.control_board.version = *version;
    }
}

// The outcome of each coming open, in order: 0 (it opens) or an errno ("EBUSY"), as a recorded
// camera's opens went. After them, the standing answer.
std::deque<int> read_opens(const Section &entry)
{
    std::deque<int> opens;
    const toml::node *node = entry.raw().get("opens");
    if (node == nullptr)
        return opens;
    const toml::array *array = node->as_array();
    if (array == nullptr)
        entry.fail_at(*node, "opens", "expected an array of outcomes: 0, or an errno name such as \"EBUSY\"");
    for (const toml::node &item : *array) {
        if (item.is_integer() && *item.value<int64_t>() >= 0 && *item.value<int64_t>() < 4096)
            opens.push_back(static_cast<int>(*item.value<int64_t>()));
        else if (auto number = item.is_string() ? errno_from_name(*item.value<std::string>()) : std::nullopt)
            opens.push_back(*number);
        else
            entry.fail_at(item, "opens", "expected 0 or an errno name such as \"EBUSY\"");
    }
    return opens;
}

void read_files(const Section &files, Scenario &scenario)
{
    for (const auto &[key, value] : files.raw())
        check_known(files, value, std::string(key.str()), "file", kCameraFiles);
    each_string_or_table(
        files, "the content",
        [&](const std::string &path, const std::string &content) {
            FileScript file{content};
            file.listed = true;
            scenario.files[path] = file;
        },
        [&](const std::string &path, const Section &entry) {
            entry.only({"content", "from", "absent", "open_errno", "opens"});
            FileScript file;
            file.opens = read_opens(entry);
            file.content = entry.text_or_file("content", "from");
            if (entry.boolean("absent").value_or(false))
                file.content.reset();
            file.open_errno = entry.error_number("open_errno").value_or(0);
            file.listed = true;
            scenario.files[path] = file;
        });
}

void read_commands(const Section &commands, Scenario &scenario)
{
    for (const auto &[key, value] : commands.raw())
        check_known(commands, value, std::string(key.str()), "shell command", kCameraCommands);
    each_string_or_table(
        commands, "the output",
        [&](const std::string &command, const std::string &output) {
            CommandScript script{output};
            script.listed = true;
            scenario.commands[command] = script;
        },
        [&](const std::string &command, const Section &entry) {
            entry.only({"output", "from", "status", "fail"});
            CommandScript script;
            script.output = entry.text_or_file("output", "from").value_or("");
            script.exit_status = static_cast<int>(entry.integer_in("status", 0, 255).value_or(0));
            script.popen_errno = entry.error_number("fail").value_or(0);
            script.listed = true;
            scenario.commands[command] = script;
        });
}

IoctlAnswer read_answer(const Section &answer)
{
    IoctlAnswer result;
    result.result = static_cast<int>(answer.integer_in("result", INT32_MIN, INT32_MAX).value_or(0));
    result.err = answer.error_number("errno").value_or(0);
    if (answer.raw().contains("errno") && !answer.raw().contains("result"))
        result.result = -1;
    if (auto words = answer.integers_in("words", kWordLowest, kWordHighest))
        result.out = words_to_bytes(*words);
    if (auto bytes = answer.bytes("bytes"))
        result.out = *bytes;
    return result;
}

void read_devices(const Section &devices, Scenario &scenario)
{
    for (const auto &[key, value] : devices.raw()) {
        const std::string path(key.str());
        check_known(devices, value, path, "character device", kCameraDevices);
        const auto entry = devices.table(path);
        entry->only({"absent", "open_errno", "opens", "request", "register_file", "recorded"});
        DeviceScript device;
        device.opens = read_opens(*entry);
        device.listed = true;
        for (const Section &recorded : entry->tables("recorded")) {
            recorded.only({"number", "value", "sent", "result", "errno", "bytes"});
            const auto number = recorded.integer_in("number", 0, kUnsignedHighest);
            if (!number)
                recorded.fail("number", "every recorded request needs its number");
            RecordedRequest request;
            request.number = static_cast<unsigned long>(*number);
            if (auto value = recorded.integer_in("value", 0, kUnsignedHighest))
                request.value = static_cast<uintptr_t>(*value);
            request.sent = recorded.bytes("sent").value_or(std::vector<uint8_t>{});
            if (request.value && !request.sent.empty())
                recorded.fail("sent", "a request passes its argument by value or a record, not both");
            request.answer = read_answer(recorded);
            device.recorded.push_back(request);
        }
        device.present = !entry->boolean("absent").value_or(false);
        device.open_errno = entry->error_number("open_errno").value_or(0);
        for (const Section &request : entry->tables("request")) {
            request.only({"number", "size", "result", "errno", "words", "bytes", "sequence"});
            // Request numbers are the camera's 32-bit unsigned long.
            const auto number = request.integer_in("number", 0, kUnsignedHighest);
            if (!number)
                request.fail("number", "every request needs its number");
            RequestScript script;
            const int64_t size = request.integer("size").value_or(0);
            if (size < 0 || size > kLargestRecord)
                request.fail("size", "expected a size in bytes, 0.." + std::to_string(kLargestRecord));
            script.arg_size = static_cast<size_t>(size);
            script.answer = read_answer(request);
            for (const Section &step : request.tables("sequence")) {
                step.only({"result", "errno", "words", "bytes"});
                script.sequence.push_back(read_answer(step));
            }
            device.requests[static_cast<unsigned long>(*number)] = script;
        }
        if (auto registers = entry->table("register_file")) {
            registers->only({"read", "write", "record_words", "index_word", "value_word", "registers",
                             "read_back_or", "read_back_and"});
            auto file = std::make_shared<RegisterFile>();
            file->read_request =
                static_cast<unsigned long>(registers->integer_in("read", 0, kUnsignedHighest).value_or(0));
            file->write_request =
                static_cast<unsigned long>(registers->integer_in("write", 0, kUnsignedHighest).value_or(0));
            const int64_t record_words = registers->integer("record_words").value_or(3);
            if (record_words < 1)
                registers->fail("record_words", "expected 1 or more words");
            file->record_words = static_cast<size_t>(record_words);
            auto word_in_record = [&](std::string_view key, int64_t fallback) {
                const int64_t index = registers->integer(key).value_or(fallback);
                if (index < 0 || index >= record_words)
                    registers->fail(key, "word " + std::to_string(index) + " lies outside a record of " +
                                             std::to_string(record_words) + " words (record_words)");
                return static_cast<size_t>(index);
            };
            file->index_word = word_in_record("index_word", 1);
            file->value_word = word_in_record("value_word", 2);
            file->read_back_or =
                static_cast<uint32_t>(registers->integer_in("read_back_or", 0, kUnsignedHighest).value_or(0));
            file->read_back_and = static_cast<uint32_t>(
                registers->integer_in("read_back_and", 0, kUnsignedHighest).value_or(0xFFFFFFFF));
            const auto pairs =
                registers->integers_in("registers", 0, kUnsignedHighest).value_or(std::vector<int64_t>{});
            if (pairs.size() % 2 != 0)
                registers->fail("registers", "expected register, value pairs");
            for (size_t i = 0; i + 1 < pairs.size(); i += 2)
                file->registers[static_cast<uint32_t>(pairs[i])] = static_cast<uint32_t>(pairs[i + 1]);
            install_register_file(device, file);
        }
        scenario.devices[path] = device;
    }
}

void read_ports(const Section &ports, Scenario &scenario)
{
    for (const auto &[key, value] : ports.raw()) {
        const std::string path(key.str());
        check_known(ports, value, path, "serial port", kCameraPorts);
        const auto entry = ports.table(path);
        PortScript port;
        port.listed = true;
        port.opens = read_opens(*entry);
        port.present = !entry->boolean("absent").value_or(false);
        port.open_errno = entry->error_number("open_errno").value_or(0);
        if (auto peer = entry->string("peer")) {
            PeerLoader loader = find_peer_loader(*peer);
            if (loader == nullptr) {
                std::string names;
                for (const std::string &name : peer_loader_names())
                    names += (names.empty() ? "" : ", ") + name;
                entry->fail("peer", "no peripheral called \"" + *peer + "\" (known: " + names + ")");
            }
            port.make_peer = loader(*entry);
        } else {
            entry->only({"absent", "open_errno", "opens"});
        }
        scenario.ports[path] = port;
    }
}

void read_wifi(const Section &wifi, Scenario &scenario)
{
    wifi.only({"interface", "capture", "first_arrival_ms", "arrival", "open_error", "fail_compile",
               "fail_setfilter", "dispatch_errors", "channel_errors", "socket_errno"});
    if (auto name = wifi.string("interface")) {
        scenario.wireless.interface = *name;
        scenario.capture.interface = *name;
    }
    if (auto file = wifi.readable_file("capture"))
        scenario.capture.file = *file;
    scenario.capture.first_arrival = wifi.milliseconds("first_arrival_ms").value_or(0);
    if (auto arrival = wifi.string("arrival")) {
        if (*arrival != "stamped" && *arrival != "spaced")
            wifi.fail("arrival",
                      "expected \"spaced\" (at the file's spacing after the open) or \"stamped\" (at the "
                      "times the packets' headers state)");
        scenario.capture.stamped = *arrival == "stamped";
    }
    scenario.capture.open_error = wifi.string("open_error").value_or("");
    scenario.capture.fail_compile = wifi.boolean("fail_compile").value_or(false);
    scenario.capture.fail_setfilter = wifi.boolean("fail_setfilter").value_or(false);
    for (int64_t result : wifi.integers("dispatch_errors").value_or(std::vector<int64_t>{}))
        scenario.capture.dispatch_errors.push_back(static_cast<int>(result));
    if (const toml::node *errors = wifi.raw().get("channel_errors")) {
        const toml::array *array = errors->as_array();
        if (array == nullptr)
            wifi.fail_at(*errors, "channel_errors", "expected an array of errno names (0 for success)");
        for (const toml::node &item : *array) {
            if (item.is_integer()) {
                scenario.wireless.channel_errnos.push_back(static_cast<int>(*item.value<int64_t>()));
            } else if (auto number =
                           item.is_string() ? errno_from_name(*item.value<std::string>()) : std::nullopt) {
                scenario.wireless.channel_errnos.push_back(*number);
            } else {
                wifi.fail_at(item, "channel_errors", "expected an errno name such as \"EBUSY\" or 0");
            }
        }
    }
    scenario.wireless.socket_errno = wifi.error_number("socket_errno").value_or(0);
}

void read_threads(const Section &threads, Scenario &scenario)
{
    threads.only({"fail_next", "errno"});
    scenario.threads.fail_next = static_cast<int>(threads.integer_in("fail_next", 0, INT32_MAX).value_or(0));
    scenario.threads.err = threads.error_number("errno").value_or(EAGAIN);
}

// Serial speeds a platform may declare on the peripheral link.
constexpr int64_t kSlowestRate = 300;
constexpr int64_t kFastestRate = 4000000;

void read_startup(const Section &startup, Scenario &scenario)
{
    startup.only({"product_record", "serial_ports", "hub", "gps", "rfid", "zigbee"});
    Startup &done = scenario.startup;
    done.product_record = startup.boolean("product_record").value_or(true);
    done.serial_ports = startup.boolean("serial_ports").value_or(true);
    if (auto rate = startup.integer_in("hub", kSlowestRate, kFastestRate))
        done.hub = static_cast<uint32_t>(*rate);
    // Link types as the library numbers them: 1 ZigBee, 2 GPS, 3 RFID.
    const std::pair<const char *, uint32_t> devices[] = {{"zigbee", 1}, {"gps", 2}, {"rfid", 3}};
    for (const auto &[key, type] : devices)
        if (auto rate = startup.integer_in(key, kSlowestRate, kFastestRate))
            done.link_devices[type] = static_cast<uint32_t>(*rate);
}

std::string directory_of(const std::string &path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

} // namespace

namespace
{

toml::table parse_table(const std::string &text, const std::string &source_name)
{
    // Scenario files are ASCII. toml++ 3.3 reaches __builtin_unreachable when it meets some
    // non-ASCII characters where whitespace may stand (found by fuzzing); other characters are
    // written as \u escapes inside strings, which TOML provides for exactly this.
    size_t line = 1;
    for (const char c : text) {
        if (c == '\n')
            ++line;
        if (static_cast<unsigned char>(c) >= 0x80)
            throw ScenarioError(source_name + ":" + std::to_string(line) +
                                ": non-ASCII character; write it as a \\u escape inside a string");
    }
    try {
        return toml::parse(text, source_name);
    } catch (const toml::parse_error &error) {
        std::ostringstream message;
        message << source_name << ":" << error.source().begin.line << ": " << error.description();
        throw ScenarioError(message.str());
    }
}

// An array of tables each of which has a `number` (a device's requests): a scenario built on
// another replaces the requests it names and keeps the others.
bool numbered(const toml::array &array)
{
    return !array.empty() && std::all_of(array.begin(), array.end(), [](const toml::node &item) {
        return item.is_table() && item.as_table()->contains("number");
    });
}

// Lays `from` over `into`: tables merge key by key (except a table naming a `peer`, which
// replaces the old one whole), numbered requests by number; anything else from `from` replaces
// what `into` had. Nodes are moved, so each keeps the file it was read from.
void merge_into(toml::table &into, toml::table &&from)
{
    for (auto &&[key, value] : from) {
        toml::node *existing = into.get(key);
        // A table that names its peer describes the peer anew (the hub where the base has the GPS
        // receiver); one that does not adds to the base's peer (a `mode = "silent"`).
        if (existing != nullptr && existing->is_table() && value.is_table() &&
            !value.as_table()->contains("peer")) {
            merge_into(*existing->as_table(), std::move(*value.as_table()));
            continue;
        }
        if (existing != nullptr && existing->is_array() && value.is_array() &&
            numbered(*existing->as_array()) && numbered(*value.as_array())) {
            toml::array &requests = *existing->as_array();
            for (toml::node &request : *value.as_array()) {
                const auto number = request.as_table()->get("number")->value<int64_t>();
                auto same = std::find_if(requests.begin(), requests.end(), [&](const toml::node &old) {
                    return old.as_table()->get("number")->value<int64_t>() == number;
                });
                if (same != requests.end())
                    requests.replace(same, std::move(*request.as_table()));
                else
                    requests.push_back(std::move(*request.as_table()));
            }
            continue;
        }
        into.insert_or_assign(key, std::move(value));
    }
}

// The scenario's table with the scenario it builds on (`base = "FILE"`, relative to the file)
// laid under it, and that one's base under it in turn.
toml::table with_base(toml::table root, const std::string &source_name, const std::string &base_dir,
                      std::vector<std::string> &chain)
{
    const toml::node *base = root.get("base");
    if (base == nullptr)
        return root;
    const Section top(root, "", source_name, base_dir);
    const std::string path = *top.file_path("base");
    if (!base->is_string() || path.empty())
        top.fail("base", "expected the file of the scenario this one builds on");
    if (std::find(chain.begin(), chain.end(), path) != chain.end() || chain.size() > 8)
        top.fail("base", "the scenarios build on each other in a circle (" + path + ")");
    const auto text = read_file(path);
    if (!text)
        top.fail("base", "cannot read " + path);
    chain.push_back(path);
    toml::table under = with_base(parse_table(*text, path), path, directory_of(path), chain);
    root.erase("base");
    merge_into(under, std::move(root));
    return under;
}

} // namespace

// What marks a recorded camera: its clock reads and sleeps, in order.
void read_recording(const Section &recording, Scenario &scenario)
{
    recording.only({"recorder", "clock_us", "sleeps_ns"});
    ReplayScript &replay = scenario.replay;
    replay.recorded = true;
    (void)recording.string("recorder");
    for (const int64_t at :
         recording.integers_in("clock_us", 0, INT64_MAX / kMicrosecond).value_or(std::vector<int64_t>{}))
        replay.clock_us.push_back(at);
    if (const toml::node *sleeps = recording.raw().get("sleeps_ns")) {
        const auto refuse = [&](const toml::node &at) {
            recording.fail_at(at, "sleeps_ns", "expected [asked, slept] pairs of nanoseconds, 0 or more");
        };
        const toml::array *pairs = sleeps->as_array();
        if (pairs == nullptr)
            refuse(*sleeps);
        for (const toml::node &item : *pairs) {
            const toml::array *pair = item.as_array();
            if (pair == nullptr || pair->size() != 2 || !(*pair)[0].is_integer() || !(*pair)[1].is_integer())
                refuse(item);
            const int64_t asked = *(*pair)[0].value<int64_t>();
            const int64_t slept = *(*pair)[1].value<int64_t>();
            if (asked < 0 || slept < 0)
                refuse(item);
            replay.sleeps.emplace_back(asked, slept);
        }
    }
}

Scenario parse_scenario(const std::string &text, const std::string &source_name, const std::string &base_dir)
{
    std::vector<std::string> chain;
    toml::table root = with_base(parse_table(text, source_name), source_name, base_dir, chain);
    Scenario scenario;
    scenario.source = source_name;
    const Section top(root, "", source_name, base_dir);
    top.only({"base", "camera", "startup", "platform", "control_board", "files", "commands", "devices",
              "ports", "wifi", "threads", "recording"});
    if (auto camera = top.table("camera"))
        read_camera(*camera, scenario);
    if (auto platform = top.table("platform"))
        read_platform(*platform, scenario);
    if (auto board = top.table("control_board"))
        read_control_board(*board, scenario);
    if (auto files = top.table("files"))
        read_files(*files, scenario);
    if (auto commands = top.table("commands"))
        read_commands(*commands, scenario);
    if (auto devices = top.table("devices"))
        read_devices(*devices, scenario);
    if (auto ports = top.table("ports"))
        read_ports(*ports, scenario);
    if (auto wifi = top.table("wifi"))
        read_wifi(*wifi, scenario);
    if (auto threads = top.table("threads"))
        read_threads(*threads, scenario);
    if (auto startup = top.table("startup"))
        read_startup(*startup, scenario);
    if (auto recording = top.table("recording"))
        read_recording(*recording, scenario);
    return scenario;
}

Scenario load_scenario(const std::string &path)
{
    const auto text = read_file(path);
    if (!text)
        throw ScenarioError(path + ": cannot read the scenario file");
    return parse_scenario(*text, path, directory_of(path));
}

std::string default_scenario_path()
{
    return CLIDRIVER_SCENARIO_DIR "/default.toml";
}

namespace
{
// One peer a line, so that each peer's loader is added on a line of its own.
// clang-format off
const std::pair<std::string_view, PeerLoader> kPeerLoaders[] = {
    {"script", load_script_peer},
    {"hub", load_hub_peer},
    {"gps", load_gps_peer},
    {"box", load_box_peer},
    {"rfid", load_rfid_peer},
    {"zigbee", load_zigbee_peer},
    {"ir_lamp", load_ir_lamp_peer},           // the IR lamp unit on the console UART
    {"light_sensor", load_light_sensor_peer}, // the serial light sensor on the console UART
    {"recording", load_recording_peer},       // a recorded camera's port, played back from its log
};
// clang-format on
} // namespace

PeerLoader find_peer_loader(std::string_view name)
{
    for (const auto &[known, loader] : kPeerLoaders)
        if (known == name)
            return loader;
    return nullptr;
}

std::vector<std::string> peer_loader_names()
{
    std::vector<std::string> names;
    for (const auto &[known, loader] : kPeerLoaders)
        names.emplace_back(known);
    return names;
}

} // namespace sim
