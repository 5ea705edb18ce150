include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

run_expecting(0 "${PROGRAM}" "${WORK}/reports")
capture(id "^([0-9a-f-]+): Ran out of memory\n$" "${output}")
string(LENGTH "${id}" length)
expect_equal("${length}" 36 "the length of the identifier")
expect_equal("${errors}" "" "the log")

file(GLOB left "${WORK}/reports/*")
expect_equal("${left}" "" "what is left")
