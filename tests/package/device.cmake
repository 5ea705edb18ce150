# Without the host's platform the library has no key-value store in it, nor what only that needs, and
# works on the one that a device's program brings.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(build "${SCRATCH}/build")
build_project("${CMAKE_CURRENT_LIST_DIR}/device" "${build}"
  OPTIONS "-DKELP_SOURCE_DIR=${SOURCE_DIR}")
set(library "${build}/kelp/src/libkelp_diagnosticdata.so")

# Local symbols count too: the store is not hidden in the library, it is not there.
run(defined nm --demangle --defined-only "${library}")
expect_match("the library's own symbols" "${defined}" "KELP::Diagnostic::DiagnosticReport::_create\\(")
expect_no_match("the library's own symbols" "${defined}"
  "[A-Za-z] ((vtable|typeinfo|typeinfo name) for )?KELP::OS::KeyValueStore")
run(wanted nm --demangle --dynamic --undefined-only "${library}")
expect_match("what the library wants" "${wanted}" "U KELP::OS::KeyValueStore::KeyValueStore\\(")
run(dynamic readelf --dynamic "${library}")
expect_match("the library's dynamic section" "${dynamic}" "\\(NEEDED\\)[^\n]*\\[libuuid\\.so")
expect_no_match("the library's dynamic section" "${dynamic}" "\\(NEEDED\\)[^\n]*\\[libz\\.so")

run_client("${SCRATCH}/reports" "${build}/client")

file(REMOVE_RECURSE "${SCRATCH}")
