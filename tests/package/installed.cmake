# The installed tree holds what it should and nothing else, can be moved, and serves a client through
# the CMake package and through pkg-config.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(first "${SCRATCH}/first")
set(prefix "${SCRATCH}/moved here")
run(_ ${CMAKE_COMMAND} --install "${BINARY_DIR}" --prefix "${first}")
file(RENAME "${first}" "${prefix}")

# --- What is there

file(GLOB_RECURSE headers RELATIVE "${SOURCE_DIR}/include" "${SOURCE_DIR}/include/*.h")
list(TRANSFORM headers PREPEND "${INCLUDEDIR}/kelp_diagnosticdata/")
set(library "${LIBDIR}/libkelp_diagnosticdata.so")
set(package "${LIBDIR}/cmake/kelp_diagnosticdata/kelp_diagnosticdata")
string(TOLOWER "${BUILD_TYPE}" targets_suffix)
if(targets_suffix STREQUAL "")
  set(targets_suffix noconfig)
endif()
set(expected ${headers}
  "${library}" "${library}.1" "${library}.${VERSION}"
  "${package}-config.cmake" "${package}-config-version.cmake"
  "${package}-targets.cmake" "${package}-targets-${targets_suffix}.cmake"
  "${LIBDIR}/pkgconfig/kelp_diagnosticdata.pc")
if(WITH_TOOLS)
  list(APPEND expected
    "bin/kelp-diagnostics"
    "share/bash-completion/completions/kelp-diagnostics"
    "share/man/man1/kelp-diagnostics.1"
    "share/zsh/site-functions/_kelp-diagnostics")
endif()
file(GLOB_RECURSE installed RELATIVE "${prefix}" "${prefix}/*")
list(SORT expected)
list(SORT installed)
list(JOIN expected "\n" expected)
list(JOIN installed "\n" installed)
expect_equal("the installed files" "${installed}" "${expected}")

# No file says where it was installed, or where it was built from.
file(GLOB_RECURSE texts "${prefix}/*.cmake" "${prefix}/*.pc" "${prefix}/*.h")
foreach(text IN LISTS texts)
  file(READ "${text}" content)
  foreach(place IN ITEMS "${first}" "${SOURCE_DIR}" "${BINARY_DIR}")
    string(FIND "${content}" "${place}" position)
    expect_equal("the position of ${place} in ${text}" "${position}" "-1")
  endforeach()
endforeach()

# The library is looked up by its versioned name, and finds the log library by itself.
run(dynamic readelf --dynamic "${prefix}/${library}")
expect_match("the library's dynamic section" "${dynamic}"
  "\\(SONAME\\)[^\n]*\\[libkelp_diagnosticdata\\.so\\.1\\]")
expect_match("the library's dynamic section" "${dynamic}" "\\(RUNPATH\\)[^\n]*\\[${LOG_LIBRARY_DIR}\\]")

# --- The program, which finds the library where both were moved to

if(WITH_TOOLS)
  file(MAKE_DIRECTORY "${SCRATCH}/empty")
  run(listed "${prefix}/bin/kelp-diagnostics" -C "${SCRATCH}/empty" list --json)
  string(JSON count LENGTH "${listed}" reports)
  expect_equal("the number of listed reports" "${count}" "0")
endif()

# --- A client that finds the CMake package

build_project("${CMAKE_CURRENT_LIST_DIR}/installed" "${SCRATCH}/by-cmake"
  OPTIONS "-DCMAKE_PREFIX_PATH=${prefix}")
run_client("${SCRATCH}/reports-by-cmake" "${SCRATCH}/by-cmake/client")

# --- A client that asks pkg-config

set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
run(version pkg-config --modversion kelp_diagnosticdata)
expect_equal("the version that pkg-config tells" "${version}" "${VERSION}\n")
run(flags pkg-config --cflags --libs kelp_diagnosticdata)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(_ "${CXX_COMPILER}" -std=c++17 "${CMAKE_CURRENT_LIST_DIR}/client.cpp" ${flags}
  -o "${SCRATCH}/by-pkg-config")
run_client("${SCRATCH}/reports-by-pkg-config"
  ${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${prefix}/${LIBDIR}" "${SCRATCH}/by-pkg-config")

file(REMOVE_RECURSE "${SCRATCH}")
