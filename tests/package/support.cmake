# What the package tests share. They are CMake scripts that get, by -D: SOURCE_DIR and BINARY_DIR of
# the library, SCRATCH (a folder of the test's own), GENERATOR, CXX_COMPILER, LIBDIR and INCLUDEDIR
# (relative to the prefix).

cmake_minimum_required(VERSION 3.25)

# Clients are built as they ask for it themselves, whatever the environment says.
foreach(variable CXXFLAGS CPPFLAGS LDFLAGS DESTDIR CMAKE_PREFIX_PATH LD_LIBRARY_PATH)
  unset(ENV{${variable}})
endforeach()

# Runs a command, shows what it prints, and ends the test when it fails. output_variable gets what
# it printed.
function(run output_variable)
  execute_process(COMMAND ${ARGN}
    COMMAND_ECHO STDOUT
    ECHO_OUTPUT_VARIABLE
    OUTPUT_VARIABLE output
    COMMAND_ERROR_IS_FATAL ANY)
  set(${output_variable} "${output}" PARENT_SCOPE)
endfunction()

# Configures the project in source and builds its targets (all when none is named).
function(build_project source build)
  cmake_parse_arguments(arg "" "" "OPTIONS;TARGETS" ${ARGN})
  run(_ ${CMAKE_COMMAND} -S "${source}" -B "${build}" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON ${arg_OPTIONS})
  set(targets ${arg_TARGETS})
  if(targets)
    list(PREPEND targets --target)
  endif()
  run(_ ${CMAKE_COMMAND} --build "${build}" ${targets})
endfunction()

# Runs the client on a repository of its own and looks at what it says.
function(run_client root)
  run(output ${ARGN} "${root}")
  expect_equal("the client's words"
    "${output}" "created, changed, listed, opened, observed and deleted a report\n")
endfunction()

function(expect_equal what actual expected)
  if(NOT actual STREQUAL expected)
    message(FATAL_ERROR "${what}:\n${actual}\nexpected:\n${expected}")
  endif()
endfunction()

function(expect_match what text regex)
  if(NOT text MATCHES "${regex}")
    message(FATAL_ERROR "${what} does not match '${regex}':\n${text}")
  endif()
endfunction()

function(expect_no_match what text regex)
  if(text MATCHES "${regex}")
    message(FATAL_ERROR "${what} matches '${regex}' ('${CMAKE_MATCH_0}'):\n${text}")
  endif()
endfunction()

file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
