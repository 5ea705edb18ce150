# Does what the tutorial says, with this build's library in place of the one that it has installed first.
cmake_minimum_required(VERSION 3.25)

foreach(variable CXXFLAGS CPPFLAGS LDFLAGS DESTDIR CMAKE_PREFIX_PATH LD_LIBRARY_PATH KELP_DIAGNOSTICS_ROOT)
  unset(ENV{${variable}})
endforeach()
file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}/tutorial")
set(ENV{HOME} "${SCRATCH}")
set(ENV{LC_ALL} C)
set(ENV{CMAKE_GENERATOR} "${GENERATOR}")
set(ENV{CXX} "${CXX_COMPILER}")

execute_process(COMMAND ${CMAKE_COMMAND} --install "${BINARY_DIR}" --prefix "${SCRATCH}/kelp"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND "${PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/tutorial.py" "${TUTORIAL}" "${SCRATCH}/tutorial"
  COMMAND_ERROR_IS_FATAL ANY)

file(REMOVE_RECURSE "${SCRATCH}")
