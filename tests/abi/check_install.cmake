cmake_minimum_required(VERSION 3.25)
# Installs the library into a scratch prefix and builds a small C consumer against it with
# find_package(clidriver) and with pkg-config: the library, its headers, clidriver.pc and the
# CMake package must be enough.
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix --component Unspecified
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "install failed")
endif()
foreach(needed include/clidriver/clidriver.h include/clidriver/commands.def include/clidriver/platform.h
               include/clidriver/platform.def lib/libclidriver.so.1 lib/pkgconfig/clidriver.pc
               lib/cmake/clidriver/clidriverConfig.cmake)
    if(NOT EXISTS ${WORK}/prefix/${needed})
        message(FATAL_ERROR "the install lacks ${needed}")
    endif()
endforeach()
execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/consumer -G Ninja -DCMAKE_PREFIX_PATH=${WORK}/prefix
            -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the consumer does not configure:\n${out}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out
                ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the consumer does not build:\n${out}")
endif()
file(REMOVE_RECURSE ${WORK})
message(STATUS "installed library builds a consumer with find_package and pkg-config")
