# A program that does not run libclidriver (here sh, as the library's popen starts it), started
# with the recording layer and the recording folder in its environment as the shell's children
# are: it runs as usual and leaves the folder empty.
#   RECORDER; WORK a fresh folder
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}/recording")
# The outer sh says how the inner one ended: 143 is 128 + SIGTERM's 15.
execute_process(COMMAND sh -c "env LD_PRELOAD=${RECORDER} CLIDRIVER_RECORD_DIR=${WORK}/recording sh -c 'echo child ran; kill -TERM $$'; echo \"exit status $?\""
                OUTPUT_VARIABLE text ERROR_VARIABLE err)
if(NOT text STREQUAL "child ran\nexit status 143\n")
    message(FATAL_ERROR "the program did not run and end by its SIGTERM as usual: ${text}${err}")
endif()
file(GLOB written "${WORK}/recording/*")
if(written)
    message(FATAL_ERROR "a program without the library wrote into the recording folder: ${written}")
endif()
