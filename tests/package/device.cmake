# Without the host's platform the library has no key-value store and no file observer in it, nor what
# only those need, and works on the ones that a device's program brings.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(build "${SCRATCH}/build")
build_project("${CMAKE_CURRENT_LIST_DIR}/device" "${build}"
  OPTIONS "-DKELP_SOURCE_DIR=${SOURCE_DIR}")
set(library "${build}/kelp/src/libkelp_diagnosticdata.so")

# Local symbols count too: they are not hidden in the library, they are not there.
run(defined nm --demangle --defined-only "${library}")
expect_match("the library's own symbols" "${defined}" "KELP::Diagnostic::DiagnosticReport::_create\\(")
expect_no_match("the library's own symbols" "${defined}"
  "[A-Za-z] ((vtable|typeinfo|typeinfo name) for )?KELP::OS::(KeyValueStore|FileObserver::)")
run(wanted nm --demangle --dynamic --undefined-only "${library}")
expect_match("what the library wants" "${wanted}" "U KELP::OS::KeyValueStore::KeyValueStore\\(")
expect_match("what the library wants" "${wanted}" "U KELP::OS::FileObserver::FileObserver\\(")
expect_no_match("what the library wants" "${wanted}" "U (inotify_|eventfd)")
run(dynamic readelf --dynamic "${library}")
expect_match("the library's dynamic section" "${dynamic}" "\\(NEEDED\\)[^\n]*\\[libuuid\\.so")
expect_no_match("the library's dynamic section" "${dynamic}" "\\(NEEDED\\)[^\n]*\\[libz\\.so")

run_client("${SCRATCH}/reports" "${build}/client")

file(REMOVE_RECURSE "${SCRATCH}")
