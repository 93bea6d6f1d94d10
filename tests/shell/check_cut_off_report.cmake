# The JSON record of tests/shell/cut-off.cli on gps-wrong-rate.toml (RECORD): the GPS step cut off
# at its 7.5 s limit is an ERROR that says so and spans exactly 7.5 simulated seconds, the line
# after it was not run, and the record still keeps to the schema (SCHEMA).
file(READ "${RECORD}" json)
string(JSON outcome GET "${json}" outcome)
string(JSON errors GET "${json}" counts errors)
string(JSON first GET "${json}" phases 0 outcome)
string(JSON details GET "${json}" phases 0 outcome_details)
string(JSON start GET "${json}" phases 0 simulated_start_ns)
string(JSON end GET "${json}" phases 0 simulated_end_ns)
string(JSON second_run GET "${json}" phases 1 run)
string(JSON first_stdout GET "${json}" phases 0 stdout)
math(EXPR span "${end} - ${start}")
if(NOT outcome STREQUAL "ERROR" OR NOT errors EQUAL 1 OR NOT first STREQUAL "ERROR"
   OR NOT details STREQUAL "overran its time limit: cut off after 7.500000 s" OR NOT span EQUAL 7500000000
   OR NOT second_run STREQUAL "OFF")
    message(FATAL_ERROR "JSON report does not show the GPS step cut off after 7.5 s and the next not run "
                        "(span ${span}, second run ${second_run}):\n${json}")
endif()
# What the query printed before it was cut off is its output in the record.
if(NOT first_stdout MATCHES "Cmd:\\$PMTK")
    message(FATAL_ERROR "JSON report lacks what the cut-off command printed:\n${first_stdout}")
endif()
include(${CMAKE_CURRENT_LIST_DIR}/check_json_schema.cmake)
