// The shell on the simulated camera, for tests that drive it in process: diagnostic lines on the
// console as main sets them on a PC, and a shell built as main builds it but keeping the journal
// after each command so the test can read it.
#pragma once

#include "platform/platform.h"
#include "shell.h"
#include "sim_fixture.h"
#include "simulated.h"

namespace shelltest
{

class ShellTest : public clitest::SimTest
{
  protected:
    void SetUp() override
    {
        SimTest::SetUp();
        sim::platform().set_console(stdout);
    }

    static shell::Shell make_shell(bool timing = false)
    {
        shell::Hooks hooks = shell::simulated::hooks();
        hooks.after_command = nullptr;
        return shell::Shell(shell::Settings{timing}, hooks);
    }
};

} // namespace shelltest
