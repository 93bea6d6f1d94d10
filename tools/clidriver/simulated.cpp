#include "simulated.h"

#include "core/clock.h"
#include "core/journal.h"
#include "core/sim.h"
#include "number.h"
#include "platform/platform.h"
#include "scenario/scenario.h"

namespace shell::simulated
{

void start(const std::string &scenario_path, FILE *console)
{
    const sim::Scenario scenario = sim::load_scenario(scenario_path);
    sim::start(scenario);
    sim::platform().set_console(console);
}

Hooks hooks()
{
    Hooks hooks;
    hooks.simulated_now = [] { return static_cast<int64_t>(sim::clock().now()); };
    hooks.after_command = [] { sim::journal().clear(); };
    // While the operator types, simulated time stands still: a lamp flasher or tag search
    // started by a command resumes when the next command runs, the same on every run.
    hooks.waiting_for_operator = [](bool waiting) {
        if (waiting)
            sim::clock().hold();
        else
            sim::clock().release();
    };
    return hooks;
}

void trace_to(FILE *out)
{
    sim::journal().set_listener([out](const sim::Entry &entry) {
        if (entry.kind == sim::Kind::Print)
            return;
        fprintf(out, "~ %s %s: %s\n", format_simulated(entry.time).c_str(), sim::kind_name(entry.kind),
                entry.text.c_str());
        fflush(out);
    });
}

} // namespace shell::simulated
