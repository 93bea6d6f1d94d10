# The signal probe (signal_probe.cpp) run plainly and then with the recording layer in front: it
# must see the same actions both times and end by SIGTERM both times; with the layer the recording
# of its one command is written all the same.
#   PROBE, RECORDER; EMULATOR ("|"-separated, qemu-arm in the armhf build); WORK a fresh folder
string(REPLACE "|" ";" emulator "${EMULATOR}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}/recording")

# Runs the probe with the variables in ARGN; sets <out>_text and <out>_code.
function(run_probe out)
    set(command ${emulator})
    set(environment)
    foreach(variable ${ARGN})
        if(emulator)
            list(APPEND command -E ${variable}) # qemu-arm hands it to the emulated program only
        else()
            list(APPEND environment ${variable})
        endif()
    endforeach()
    # CMake reports any end by a signal alike; sh says which (128 + its number).
    execute_process(COMMAND sh -c "\"$@\"; echo \"exit status $?\"" sh env ${environment} ${command} ${PROBE}
                    OUTPUT_VARIABLE text ERROR_VARIABLE err)
    set(code "")
    if(text MATCHES "exit status ([0-9]+)\n$")
        set(code "${CMAKE_MATCH_1}")
    endif()
    set(${out}_text "${text}${err}" PARENT_SCOPE)
    set(${out}_code "${code}" PARENT_SCOPE)
endfunction()

run_probe(plain)
run_probe(recorded LD_PRELOAD=${RECORDER} CLIDRIVER_RECORD_DIR=${WORK}/recording)
foreach(run plain recorded)
    if(${run}_text MATCHES "signal probe: ")
        message(FATAL_ERROR "${run} run: the probe saw what it did not set:\n${${run}_text}")
    endif()
    if(NOT ${run}_text MATCHES "command returned [0-9]+\nending by SIGTERM\n")
        message(FATAL_ERROR "${run} run: the probe did not reach its end:\n${${run}_text}")
    endif()
    if(NOT ${run}_code STREQUAL "143") # 128 + SIGTERM's 15: ended by the signal
        message(FATAL_ERROR "${run} run: wanted the end by SIGTERM, got \"${${run}_code}\":\n${${run}_text}")
    endif()
endforeach()

set(scenario "${WORK}/recording/scenario.toml")
if(NOT EXISTS "${scenario}")
    message(FATAL_ERROR "the probe ended by SIGTERM left no recording:\n${recorded_text}")
endif()
file(READ "${scenario}" text)
foreach(pattern "\n\\[recording\\]\nrecorder = \"clidriver-camera --record, "
                "\n\\[devices.\"/dev/gpioDev\"\\]\nabsent = true\n")
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "${scenario} does not match ${pattern}:\n${text}")
    endif()
endforeach()
