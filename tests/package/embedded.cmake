# A project can take the library in with add_subdirectory and gets the include path and the library,
# but none of its flags, tests and install rules. It takes a copy of what the library is made of, which
# stands elsewhere and lacks everything else.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(kelp "${SCRATCH}/moved here/kelp")
file(COPY "${SOURCE_DIR}/CMakeLists.txt" "${SOURCE_DIR}/cmake" "${SOURCE_DIR}/include" "${SOURCE_DIR}/src"
  DESTINATION "${kelp}")
set(build "${SCRATCH}/build")
build_project("${CMAKE_CURRENT_LIST_DIR}/embedded" "${build}" OPTIONS "-DKELP_SOURCE_DIR=${kelp}")
run_client("${SCRATCH}/reports" "${build}/client")

# What the client's own file is compiled with is what the client asked for, and one include path.
file(READ "${build}/compile_commands.json" commands)
string(FIND "${commands}" "${SOURCE_DIR}/src/" position)
expect_equal("the position of the first source that is not of the copy" "${position}" "-1")
string(JSON count LENGTH "${commands}")
math(EXPR last "${count} - 1")
set(client_command "")
foreach(index RANGE ${last})
  string(JSON file GET "${commands}" ${index} file)
  if(file MATCHES "/client\\.cpp$")
    string(JSON client_command GET "${commands}" ${index} command)
  endif()
  expect_no_match("a compiled file" "${file}" "/(tests/(unit|integration|support)|examples|benchmarks)/")
endforeach()
separate_arguments(arguments UNIX_COMMAND "${client_command}")
list(REMOVE_AT arguments 0)
list(FIND arguments -o output)
list(SUBLIST arguments 0 ${output} arguments)
list(JOIN arguments "\n" arguments)
expect_equal("the client's compiler options" "${arguments}" "-I${kelp}/include\n-std=c++17")

run(tests ${CMAKE_CTEST_COMMAND} --test-dir "${build}" --show-only)
expect_match("the embedding project's tests" "${tests}" "Total Tests: 0")

run(_ ${CMAKE_COMMAND} --install "${build}" --prefix "${SCRATCH}/prefix")
file(GLOB_RECURSE installed "${SCRATCH}/prefix/*")
expect_equal("what the embedding project installs" "${installed}" "")

file(REMOVE_RECURSE "${SCRATCH}")
