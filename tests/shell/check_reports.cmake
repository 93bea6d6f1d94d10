# The reports of tests/shell/failing.cli (two lines: a default that is skipped, then a line whose
# status differs), as written by the shell: the JSON record's shape is checked against the schema
# in docs/station-report.schema.json by check_json_schema.cmake, the JUnit report against
# tests/shell/junit.xsd with xmllint.
file(READ "${DIR}/r.json" json)
string(JSON outcome GET "${json}" outcome)
string(JSON dut GET "${json}" dut_id)
string(JSON steps GET "${json}" counts steps)
string(JSON failed GET "${json}" counts failed)
string(JSON skipped GET "${json}" counts skipped)
string(JSON first GET "${json}" phases 0 outcome)
string(JSON second GET "${json}" phases 1 outcome)
string(JSON second_line GET "${json}" phases 1 line)
string(JSON second_stdout GET "${json}" phases 1 stdout)
string(JSON chip GET "${json}" phases 1 measurements chip measured_value)
string(JSON software GET "${json}" metadata software_version)
if(NOT outcome STREQUAL "FAIL" OR NOT dut STREQUAL "SN-0042" OR NOT steps EQUAL 2 OR NOT failed EQUAL 1
   OR NOT skipped EQUAL 1 OR NOT first STREQUAL "SKIP" OR NOT second STREQUAL "FAIL" OR NOT second_line EQUAL 4
   OR NOT chip STREQUAL "HI3516A" OR NOT software STREQUAL "2.1.3-20261020")
    message(FATAL_ERROR "JSON report does not say unit SN-0042, line 2 skipped, line 4 failed:\n${json}")
endif()
if(NOT second_stdout MATCHES "cpu chipid:HI3516A\r\n$")
    message(FATAL_ERROR "JSON report lacks the line's output:\n${json}")
endif()

file(READ "${DIR}/r.xml" xml)
string(REGEX MATCHALL "<testcase " cases "${xml}")
string(REGEX MATCHALL "<failure " failures "${xml}")
string(REGEX MATCHALL "<skipped " skips "${xml}")
list(LENGTH cases case_count)
list(LENGTH failures failure_count)
list(LENGTH skips skip_count)
if(NOT case_count EQUAL 2 OR NOT failure_count EQUAL 1 OR NOT skip_count EQUAL 1
   OR NOT xml MATCHES "tests=\"2\" failures=\"1\" errors=\"0\" skipped=\"1\""
   OR NOT xml MATCHES "<property name=\"dut_id\" value=\"SN-0042\"/>"
   OR NOT xml MATCHES "timestamp=\"[0-9]+-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\" hostname=\"")
    message(FATAL_ERROR "JUnit report does not hold 2 test cases, 1 failure, 1 skipped, the unit and times:\n${xml}")
endif()
find_program(XMLLINT xmllint REQUIRED)
execute_process(COMMAND ${XMLLINT} --noout --schema ${XSD} "${DIR}/r.xml" RESULT_VARIABLE code ERROR_VARIABLE err)
if(NOT code EQUAL 0)
    message(FATAL_ERROR "the JUnit report does not keep to ${XSD}: ${err}")
endif()
