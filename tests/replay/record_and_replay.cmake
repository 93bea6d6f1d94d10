# Records a station run "on a camera" and replays it on a PC, checking the replay is exact.
#
# The camera is the simulated one preloaded under the camera's own shell (libclidriver-sim.so):
# the shell binary that ships, with nothing simulated linked in, records through the recording
# layer as it would on hardware. Then:
#   1. the camera's shell on the recorded camera gives the recording run's transcript byte for
#      byte (wall-time figures masked), the same exit code, and no departure;
#   2. the PC's shell (clidriver --scenario) on the recorded camera gives the transcript it gives
#      on the original camera, but for the line naming the camera, and the same exit code.
#
#   CAMERA_SHELL, PC_SHELL, SIM, RECORDER   the programs and preloaded libraries
#   EMULATOR    the command in front of the programs (qemu-arm ...), "|"-separated
#   SCENARIO    the original camera; SCRIPT the station script; WORK a fresh folder
#   OTHER_SCRIPT, DEPARTURE   optionally, a script that asks the recorded camera something else,
#               and the departure line (a regular expression) its replay must say, exiting 1
string(REPLACE "|" ";" emulator "${EMULATOR}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
set(recording "${WORK}/recording")

# Runs PROGRAM with the libraries in PRELOAD in front of the system's, on the camera SCENARIO
# (the simulated one read by libclidriver-sim.so); sets <out>_text and <out>_code.
function(run_preloaded out scenario preload)
    set(command ${emulator})
    if(emulator)
        # qemu-arm hands the variable to the emulated program only, not to itself.
        list(APPEND command -E LD_PRELOAD=${preload} -E CLIDRIVER_SIM_SCENARIO=${scenario})
        set(environment)
    else()
        set(environment LD_PRELOAD=${preload} CLIDRIVER_SIM_SCENARIO=${scenario})
    endif()
    execute_process(COMMAND ${CMAKE_COMMAND} -E env ${environment} ${command} ${ARGN}
                    RESULT_VARIABLE code OUTPUT_VARIABLE text ERROR_VARIABLE err)
    string(REGEX REPLACE " *[0-9]+\\.[0-9][0-9][0-9] ms" " #.### ms" text "${text}${err}")
    set(${out}_text "${text}" PARENT_SCOPE)
    set(${out}_code "${code}" PARENT_SCOPE)
endfunction()

function(run_pc_shell out scenario)
    execute_process(COMMAND ${emulator} ${PC_SHELL} --scenario ${scenario} ${SCRIPT}
                    RESULT_VARIABLE code OUTPUT_VARIABLE text ERROR_VARIABLE err)
    string(REGEX REPLACE " *[0-9]+\\.[0-9][0-9][0-9] ms" " #.### ms" text "${text}${err}")
    # The line naming the camera and its scenario file is the one that may differ.
    string(REGEX REPLACE "\n  camera: [^\n]*\n" "\n  camera: #\n" text "${text}")
    set(${out}_text "${text}" PARENT_SCOPE)
    set(${out}_code "${code}" PARENT_SCOPE)
endfunction()

set(failed FALSE)
function(differs what left right)
    file(WRITE "${WORK}/${what}.expected" "${left}")
    file(WRITE "${WORK}/${what}.actual" "${right}")
    execute_process(COMMAND diff -u "${WORK}/${what}.expected" "${WORK}/${what}.actual" OUTPUT_VARIABLE diff)
    message(SEND_ERROR "${what}: the replay departs from the run it replays:\n${diff}")
    set(failed TRUE PARENT_SCOPE)
endfunction()

run_preloaded(recorded "${SCENARIO}" "${RECORDER}:${SIM}" ${CAMERA_SHELL} --record ${recording} ${SCRIPT})
if(NOT EXISTS "${recording}/scenario.toml")
    message(FATAL_ERROR "the recording wrote no scenario (exit ${recorded_code}):\n${recorded_text}")
endif()
run_preloaded(replayed "${recording}/scenario.toml" "${SIM}" ${CAMERA_SHELL} ${SCRIPT})
if(NOT recorded_code STREQUAL replayed_code)
    message(SEND_ERROR "the camera's shell exits ${replayed_code} on the replay, ${recorded_code} when recorded")
    set(failed TRUE)
endif()
if(NOT recorded_text STREQUAL replayed_text)
    differs(camera_shell "${recorded_text}" "${replayed_text}")
endif()
if(replayed_text MATCHES "replay: departs")
    message(SEND_ERROR "the replay reports a departure")
    set(failed TRUE)
endif()

run_pc_shell(original "${SCENARIO}")
run_pc_shell(replay "${recording}/scenario.toml")
if(NOT original_code STREQUAL replay_code)
    message(SEND_ERROR "the PC's shell exits ${replay_code} on the replay, ${original_code} on the original camera")
    set(failed TRUE)
endif()
if(NOT original_text STREQUAL replay_text)
    differs(pc_shell "${original_text}" "${replay_text}")
endif()
if(NOT EXPECTED_EXIT STREQUAL "" AND NOT recorded_code STREQUAL EXPECTED_EXIT)
    message(SEND_ERROR "the recorded run exits ${recorded_code}, expected ${EXPECTED_EXIT}")
    set(failed TRUE)
endif()
if(OTHER_SCRIPT)
    execute_process(COMMAND ${emulator} ${PC_SHELL} --scenario ${recording}/scenario.toml ${OTHER_SCRIPT}
                    RESULT_VARIABLE code OUTPUT_VARIABLE text ERROR_VARIABLE err)
    if(NOT "${text}${err}" MATCHES "${DEPARTURE}")
        message(SEND_ERROR "a run that asks something else does not say where it departs "
                           "(${DEPARTURE}):\n${text}${err}")
        set(failed TRUE)
    endif()
    if(NOT code STREQUAL "1")
        message(SEND_ERROR "a run that departs from the recording exits ${code}, not 1")
        set(failed TRUE)
    endif()
endif()
if(failed)
    message(FATAL_ERROR "recording in ${recording}")
endif()
