# Installs the library and the PC shell into a scratch prefix and runs the installed shell from a
# folder outside the source tree: its default camera is the installed one
# (PREFIX/share/clidriver/sim/scenarios/default.toml, with the receiver logs it plays), so a
# one-shot position query prints a position and a station run names that scenario.
#   BUILD  the build tree;  WORK  a scratch folder;  SOURCE  the source tree
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/elsewhere)
foreach(component Unspecified shell)
    execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix --component ${component}
                    RESULT_VARIABLE rc OUTPUT_QUIET)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "install of ${component} failed")
    endif()
endforeach()
set(shell ${WORK}/prefix/bin/clidriver)
set(installed ${WORK}/prefix/share/clidriver/sim/scenarios/default.toml)
if(NOT EXISTS ${shell} OR NOT EXISTS ${installed})
    message(FATAL_ERROR "the install lacks bin/clidriver or share/clidriver/sim/scenarios/default.toml")
endif()

execute_process(COMMAND ${shell} CLI_GetGpsCoor 0 WORKING_DIRECTORY ${WORK}/elsewhere
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT out MATCHES "Latitude:N 44\\.041305\r?\n" OR NOT out MATCHES "  reading latitude = 44\\.041305\n=> 0\n$")
    message(FATAL_ERROR "the installed shell prints no position (exit ${rc}):\n${out}${err}")
endif()

file(WRITE ${WORK}/elsewhere/one.cli "CLI_GetCpuInfo => 0, chip = HI3516A\n")
execute_process(COMMAND ${shell} one.cli WORKING_DIRECTORY ${WORK}/elsewhere
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(FIND "${out}" "(${installed})" at_installed)
string(FIND "${out}" "${SOURCE}/sim/scenarios" at_source)
if(NOT rc EQUAL 0 OR at_installed EQUAL -1 OR NOT at_source EQUAL -1)
    message(FATAL_ERROR "the installed shell's station run is not on ${installed} (exit ${rc}):\n${out}${err}")
endif()
file(REMOVE_RECURSE ${WORK})
