# The recording of CLI_GetCpuInfo on a PC: the library's one open of the GPIO driver failed with
# ENOENT, its one clock read is there, and the camera is named as recorded.
file(READ "${SCENARIO}" text)
foreach(pattern
        "\n\\[camera\\]\nname = \"recorded: camera [^\"]+\"\nboot_epoch = [0-9]+\n"
        "\n\\[recording\\]\nrecorder = \"clidriver-camera --record, [0-9-]+ [0-9:]+ UTC\"\nclock_us = \\[[0-9]+\\]\nsleeps_ns = \\[\\]\n"
        "\n\\[devices.\"/dev/gpioDev\"\\]\nabsent = true\n")
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "${SCENARIO} does not match ${pattern}:\n${text}")
    endif()
endforeach()
if(text MATCHES "\\[startup\\]|\\[ports|\\[platform")
    message(FATAL_ERROR "${SCENARIO} holds what the run never did:\n${text}")
endif()
