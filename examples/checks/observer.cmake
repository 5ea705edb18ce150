include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

set(existing "0d9c5f0e-3f0b-4a53-9a3c-6f2f1f3f7a11")
set(added "7b1f6f0c-92a4-4c1e-8d55-1e0b6c8a9d22")
run_expecting(0 "${CMAKE_CURRENT_LIST_DIR}/observer.sh"
  "${PROGRAM}" "${DEMO}" "${DELETER}" "${WORK}" ${existing} ${added})
expect_equal("${errors}" "" "the log")

file(READ "${WORK}/told" told)
string(REGEX MATCHALL "${existing} [^\n]*\n" events "${told}")
expect_equal("${events}" "${existing} existing\n;${existing} removed\n" "what is told of the one")
string(REGEX MATCHALL "${added} [^\n]*\n" events "${told}")
capture(ignored "^(${added} added\n)(;${added} updated\n)+;${added} removed\n$" "${events}")
