# Runs the shell as an operator does and checks what happened.
#   PROGRAM   the executable; EMULATOR the command in front of it (qemu-arm...), "|"-separated
#   ARGS      its arguments, "|"-separated; INPUT a file for its standard input
#   EXIT      the exit code it must end with
#   MATCH     regular expressions ("|"-separated) that standard output + standard error must match
#   NO_MATCH  regular expressions they must not match
#   GOLDEN    a file standard output must equal, wall-time figures ("12.345 ms") masked; standard
#             error must then be empty. CLIDRIVER_UPDATE_GOLDEN=1 rewrites the file instead, when
#             the change in the transcript is intended.
string(REPLACE "|" ";" emulator "${EMULATOR}")
string(REPLACE "|" ";" args "${ARGS}")
file(MAKE_DIRECTORY "${WORK}")
set(input)
if(INPUT)
    set(input INPUT_FILE ${INPUT})
endif()
execute_process(COMMAND ${emulator} ${PROGRAM} ${args} ${input}
                RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
set(both "${out}${err}")
set(failed FALSE)

if(NOT "${code}" STREQUAL "${EXIT}")
    message(SEND_ERROR "exit code ${code}, expected ${EXIT}")
    set(failed TRUE)
endif()

if(MATCH)
    string(REPLACE "|" ";" patterns "${MATCH}")
    foreach(pattern IN LISTS patterns)
        if(NOT both MATCHES "${pattern}")
            message(SEND_ERROR "output does not match: ${pattern}")
            set(failed TRUE)
        endif()
    endforeach()
endif()
if(NO_MATCH)
    string(REPLACE "|" ";" patterns "${NO_MATCH}")
    foreach(pattern IN LISTS patterns)
        if(both MATCHES "${pattern}")
            message(SEND_ERROR "output matches what it must not: ${pattern}")
            set(failed TRUE)
        endif()
    endforeach()
endif()

if(GOLDEN)
    string(REGEX REPLACE " *[0-9]+\\.[0-9][0-9][0-9] ms" " #.### ms" masked "${out}")
    if("$ENV{CLIDRIVER_UPDATE_GOLDEN}" STREQUAL "1")
        file(WRITE "${GOLDEN}" "${masked}")
        message(STATUS "rewrote ${GOLDEN}")
    else()
        file(READ "${GOLDEN}" expected)
        if(NOT masked STREQUAL expected)
            file(WRITE "${WORK}/transcript.txt" "${masked}")
            execute_process(COMMAND diff -u "${GOLDEN}" "${WORK}/transcript.txt" OUTPUT_VARIABLE diff)
            message(SEND_ERROR "transcript differs from ${GOLDEN} (run with CLIDRIVER_UPDATE_GOLDEN=1 "
                               "if the change is intended):\n${diff}")
            set(failed TRUE)
        endif()
    endif()
    if(NOT err STREQUAL "")
        message(SEND_ERROR "standard error is not empty")
        set(failed TRUE)
    endif()
endif()

if(failed)
    message(FATAL_ERROR "command: ${emulator} ${PROGRAM} ${args}\n--- standard output:\n${out}\n"
                        "--- standard error:\n${err}")
endif()
