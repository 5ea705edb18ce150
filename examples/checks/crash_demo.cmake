include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

# --- A run without a root, in a directory of its own ------------------------------------------------
run_expecting(0 "${PROGRAM}")
expect_equal("${errors}" "" "the log")

# The process that the report is about is the one that crashed, where it said that it was reading.
capture(worker "worker +([0-9]+) *\\| reading block 4 at 0x" "${output}")
capture(address "reading block 4 at (0x[0-9a-f]+)\n" "${output}")
capture(killed "watcher [^\n]*\\| process ([0-9]+) is dead, killed by SIGSEGV\n" "${output}")
capture(recorded "viewer [^\n]*  process id +([0-9]+)\n" "${output}")
capture(description "viewer [^\n]*  description +([^\n]+)\n" "${output}")
expect_equal("${killed}" "${worker}" "the process that died")
expect_equal("${recorded}" "${worker}" "the recorded process")
expect_equal("${description}"
  "SIGSEGV (11) at address ${address}: access not permitted there" "the description")
string(FIND "${output}" "block 4 adds up" survived)
expect_equal("${survived}" -1 "what the worker said after its crash")

# One report went through all hands.
set(uuid "[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+")
capture(created "watcher [^\n]*\\| created report (${uuid})\n" "${output}")
capture(opened "consent [^\n]*\\| opened report (${uuid})\n" "${output}")
capture(shown "viewer [^\n]*  identifier +(${uuid})\n" "${output}")
capture(deleted "viewer [^\n]*\\| deleted report (${uuid})\n" "${output}")
foreach(id IN ITEMS "${opened}" "${shown}" "${deleted}")
  expect_equal("${id}" "${created}" "the report")
endforeach()

foreach(line IN ITEMS
    "viewer [^\n]*\\| counted 1 and listed 1 under "
    "viewer [^\n]*  process name +faulty_worker\n"
    "viewer [^\n]*  library +/[^\n]*libc[.-][^\n]*\n"
    "viewer [^\n]*  consent +20\n"
    "viewer [^\n]*  maximum consent +20\n"
    "viewer [^\n]*  creation +complete\n"
    "viewer [^\n]*  user interaction +complete\n"
    "viewer [^\n]*  data collection +complete\n"
    "viewer [^\n]*  data policy +complete\n"
    "viewer [^\n]*  upload +complete\n"
    "(demo [^\n]*\\| all steps succeeded\n)$")
  capture(ignored "${line}" "${output}")
endforeach()

capture(root "demo [^\n]*\\| keeps reports under (/[^\n]+)\n" "${output}")
if(EXISTS "${root}")
  message(FATAL_ERROR "${root} was left")
endif()

# --- A run under a root that is given, and that holds another report ---------------------------------
file(MAKE_DIRECTORY "${WORK}/other")
run_expecting(0 "${PROGRAM}" "${WORK}")
expect_equal("${errors}" "" "the log")
capture(ignored "counted 2 and listed 1 under " "${output}")
file(GLOB left "${WORK}/*")
expect_equal("${left}" "${WORK}/other" "what is left under the root")

# --- A root that cannot be one ---------------------------------------------------------------------------
file(WRITE "${WORK}/file" "")
run_expecting(1 "${PROGRAM}" "${WORK}/file")
capture(ignored "(watcher [^\n]*\\| failed: creating the report\n)" "${errors}")
capture(ignored "(demo [^\n]*\\| failed: the watcher\n)$" "${errors}")
