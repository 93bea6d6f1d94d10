# The recording of a run cut off at a step's time limit (the shell ends it with _exit), or stopped
# by a signal during that step: the library's look at the software version file before the step
# is there, and the header.
if(NOT EXISTS "${SCENARIO}")
    message(FATAL_ERROR "a run ended with _exit left no recording: ${SCENARIO} is missing")
endif()
file(READ "${SCENARIO}" text)
foreach(pattern "\n\\[camera\\]\nname = \"recorded: camera [^\"]+\"\n"
                "\n\\[recording\\]\nrecorder = \"clidriver-camera --record, "
                "\n\\[files.\"/program/factory/version\"\\]\nabsent = true\n")
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "${SCENARIO} does not match ${pattern}:\n${text}")
    endif()
endforeach()
