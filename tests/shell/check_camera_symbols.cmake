# The camera's shell defines none of the entry points the simulated camera takes over: on the
# camera, the print sink and libc's own functions must answer. The PC's shell, which carries the
# simulator, defines them all, which shows the check can see them.
set(names Cli_Common_Print open ioctl select gettimeofday)
foreach(program IN ITEMS "${PROGRAM}" "${SIM_PROGRAM}")
    execute_process(COMMAND ${NM} -D --defined-only "${program}" RESULT_VARIABLE code OUTPUT_VARIABLE symbols
                    ERROR_VARIABLE err)
    if(NOT code EQUAL 0)
        message(FATAL_ERROR "${NM} failed on ${program}: ${err}")
    endif()
    foreach(name IN LISTS names)
        set(defined FALSE)
        if(symbols MATCHES "(^|\n)[0-9a-fA-F]+ [A-Za-z] ${name}(@@?[A-Za-z0-9_.]+)?(\n|$)")
            set(defined TRUE)
        endif()
        if(program STREQUAL PROGRAM AND defined)
            message(FATAL_ERROR "${program} defines ${name}")
        endif()
        if(program STREQUAL SIM_PROGRAM AND NOT defined)
            message(FATAL_ERROR "${program} should define ${name} (the simulated camera's)")
        endif()
    endforeach()
endforeach()
