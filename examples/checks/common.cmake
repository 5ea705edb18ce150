# Runs a command. Sets `output` and `errors` to what it printed; fails unless it ends with `status`.
function(run_expecting status)
  execute_process(COMMAND ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  if(NOT result STREQUAL status)
    message(FATAL_ERROR "${ARGN}\nended with '${result}' instead of '${status}':\n${output}${errors}")
  endif()
  set(output "${output}" PARENT_SCOPE)
  set(errors "${errors}" PARENT_SCOPE)
endfunction()

function(expect_equal actual expected what)
  if(NOT actual STREQUAL expected)
    message(FATAL_ERROR "${what} is\n${actual}\ninstead of\n${expected}")
  endif()
endfunction()

# Sets `name` to the first group of `pattern` in `text`; fails when the text does not match.
function(capture name pattern text)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "no match for '${pattern}' in\n${text}")
  endif()
  set(${name} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

function(expect_absent word text what)
  string(FIND "${text}" "${word}" position)
  if(NOT position EQUAL -1)
    message(FATAL_ERROR "'${word}' is in ${what}:\n${text}")
  endif()
endfunction()

# The files under a directory, at any depth, are exactly those that follow, in sorted order.
function(expect_files directory)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${directory}" "${directory}/*")
  list(SORT files)
  expect_equal("${files}" "${ARGN}" "the list of the files in ${directory}")
endfunction()

# An empty directory of the check's own.
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
