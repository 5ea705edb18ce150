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

# What the library asks of the device's stores: how they are opened and whether they are ready, and each
# stage in its order, up to the first that decides.
set(creation "get report_creation_complete")
set(interaction "${creation}, get user_interaction_complete")
set(collection "${interaction}, get data_collection_complete")
set(policy "${collection}, get data_policy_applied")
set(upload "${policy}, get upload_complete")
set(collect "${creation}, get data_collection_complete")
run(questions "${build}/questions" "${SCRATCH}/questions")
expect_equal("what the library asks of its stores" "${questions}" "\
create: open metadata with 28
open: open metadata with 28, ready, get report_id
Failed to initialize metadata kv store for report: open metadata with 28, ready
collect after 0 no: ${creation}
apply after 0 no: ${creation}
upload after 0 no: ${creation}
collect after 1 yes: ${collect}
apply after 1 no: ${interaction}
upload after 1 no: ${interaction}
collect after 2 yes: ${collect}
apply after 2 no: ${collection}
upload after 2 no: ${collection}
collect after 3 no: ${collect}
apply after 3 yes: ${policy}
upload after 3 no: ${policy}
collect after 4 no: ${collect}
apply after 4 no: ${policy}
upload after 4 yes: ${upload}
collect after 5 no: ${collect}
apply after 5 no: ${policy}
upload after 5 no: ${upload}
")

file(REMOVE_RECURSE "${SCRATCH}")
