# The signal probe (signal_probe.cpp) run plainly and then with the recording layer in front: it
# must see the same actions both times and end by the same signal both times, for each way a run
# ends at a station (stopped, quit, crashed, its reader gone, aborted); with the layer the
# recording of its one command is written all the same.
#   PROBE, RECORDER; EMULATOR ("|"-separated, qemu-arm in the armhf build); WORK a fresh folder
string(REPLACE "|" ";" emulator "${EMULATOR}")
file(REMOVE_RECURSE "${WORK}")

# Runs the probe ending by `how` with the variables in ARGN; sets <out>_text and <out>_code.
function(run_probe out how)
    set(command ${emulator})
    set(environment)
    foreach(variable ${ARGN})
        if(emulator)
            list(APPEND command -E ${variable}) # qemu-arm hands it to the emulated program only
        else()
            list(APPEND environment ${variable})
        endif()
    endforeach()
    # CMake reports any end by a signal alike; sh says which (128 + its number). No core file is
    # left behind by the crashes.
    execute_process(COMMAND sh -c "ulimit -c 0; \"$@\"; echo \"exit status $?\"" sh env ${environment}
                            ${command} ${PROBE} ${how}
                    WORKING_DIRECTORY ${WORK} OUTPUT_VARIABLE text ERROR_VARIABLE err)
    set(code "")
    if(text MATCHES "exit status ([0-9]+)\n$")
        set(code "${CMAKE_MATCH_1}")
    endif()
    set(${out}_text "${text}${err}" PARENT_SCOPE)
    set(${out}_code "${code}" PARENT_SCOPE)
endfunction()

# 128 + the signal's number on Linux, ARM and x86 alike.
foreach(ending "TERM 143" "QUIT 131" "SEGV 139" "PIPE 141" "ABRT 134")
    string(REPLACE " " ";" ending "${ending}")
    list(GET ending 0 how)
    list(GET ending 1 status)
    file(MAKE_DIRECTORY "${WORK}/${how}")
    run_probe(plain ${how})
    run_probe(recorded ${how} LD_PRELOAD=${RECORDER} CLIDRIVER_RECORD_DIR=${WORK}/${how})
    foreach(run plain recorded)
        if(${run}_text MATCHES "signal probe: ")
            message(FATAL_ERROR "SIG${how}, ${run} run: the probe saw what it did not set:\n${${run}_text}")
        endif()
        if(NOT ${run}_text MATCHES "command returned [0-9]+\nending by SIG${how}\n")
            message(FATAL_ERROR "SIG${how}, ${run} run: the probe did not reach its end:\n${${run}_text}")
        endif()
        if(NOT ${run}_code STREQUAL "${status}")
            message(FATAL_ERROR
                    "SIG${how}, ${run} run: wanted the end by the signal (${status}), got \"${${run}_code}\":\n${${run}_text}")
        endif()
    endforeach()

    set(scenario "${WORK}/${how}/scenario.toml")
    if(NOT EXISTS "${scenario}")
        message(FATAL_ERROR "the probe ended by SIG${how} left no recording:\n${recorded_text}")
    endif()
    file(READ "${scenario}" text)
    foreach(pattern "\n\\[recording\\]\nrecorder = \"clidriver-camera --record, "
                    "\n\\[devices.\"/dev/gpioDev\"\\]\nabsent = true\n")
        if(NOT text MATCHES "${pattern}")
            message(FATAL_ERROR "${scenario} does not match ${pattern}:\n${text}")
        endif()
    endforeach()
endforeach()
