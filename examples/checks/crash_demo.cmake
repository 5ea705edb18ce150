include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

# What is said of the report that all roles work on.
set(uuid "[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+")

# Takes the lines of the observer out of `output`, where they stand anywhere between those of the
# others. Fails unless they tell of the whole life of one report, and of nothing else.
function(take_events created)
  set(line "observer +[0-9]+ *\\| ([^\n]*)\n")
  string(REGEX MATCHALL "${line}" lines "${output}")
  string(REGEX REPLACE "${line}" "\\1\n" lines "${lines}")
  string(REGEX REPLACE "${line}" "" output "${output}")
  set(output "${output}" PARENT_SCOPE)

  set(told "by the [a-z]+, told within [0-9]+[.][0-9][0-9] ms\n")
  capture(events "^observes /[^\n]+/reports\n(.*);the report is gone\n$" "${lines}")
  string(REPLACE "${created}" "ID" events "${events}")
  capture(ignored "^(;  REPORT_ADDED      ID  ${told})(;  REPORT_UPDATED    ID  [0-9]+ times ${told})+;  REPORT_REMOVED    ID  ${told}$"
    "${events}")
endfunction()

# --- A run without a directory, in one of its own ---------------------------------------------------
run_expecting(0 "${PROGRAM}")
expect_equal("${errors}" "" "the log")
capture(created "watcher [^\n]*\\| created report (${uuid})\n" "${output}")
take_events("${created}")

# The process that the report is about is the one that crashed, where it said that it was reading.
capture(worker "worker +([0-9]+) *\\| reading block 4 at 0x" "${output}")
capture(address "reading block 4 at (0x[0-9a-f]+)\n" "${output}")
capture(killed "watcher [^\n]*\\| process ([0-9]+) is dead, killed by SIGSEGV\n" "${output}")
capture(recorded "viewer [^\n]*  process id +([0-9]+)\n" "${output}")
capture(dropped "policy [^\n]*  dropped +fault_address at level 20: (0x[0-9a-f]+)\n" "${output}")
expect_equal("${killed}" "${worker}" "the process that died")
expect_equal("${recorded}" "${worker}" "the recorded process")
expect_equal("${dropped}" "${address}" "the address that was recorded, and dropped")
expect_absent("block 4 adds up" "${output}" "what the worker said after its crash")

# One report went through all hands.
foreach(role IN ITEMS collector filter consent policy uploader)
  capture(opened "${role} [^\n]*\\| opened report (${uuid}) and took the write lock\n" "${output}")
  expect_equal("${opened}" "${created}" "the report of the ${role}")
endforeach()
capture(shown "viewer [^\n]*  identifier +(${uuid})\n" "${output}")
capture(deleted "viewer [^\n]*\\| deleted report (${uuid})\n" "${output}")
expect_equal("${shown}" "${created}" "the report that is shown")
expect_equal("${deleted}" "${created}" "the report that is deleted")

foreach(line IN ITEMS
    "consent [^\n]*\\| the user lowered the consent level from 20 to 10\n"
    "viewer [^\n]*\\| counted 1 and listed 1 under "
    "viewer [^\n]*  process name +faulty_worker\n"
    "viewer [^\n]*  description +SIGSEGV \\(11\\): access not permitted at the address\n"
    "viewer [^\n]*  library +/[^\n]*libc[.-][^\n]*\n"
    "viewer [^\n]*  consent +10\n"
    "viewer [^\n]*  maximum consent +20\n"
    "viewer [^\n]*  creation +complete\n"
    "viewer [^\n]*  user interaction +complete\n"
    "viewer [^\n]*  data collection +complete\n"
    "viewer [^\n]*  data policy +complete\n"
    "viewer [^\n]*  upload +complete\n"
    "(demo [^\n]*\\| all steps succeeded\n)$")
  capture(ignored "${line}" "${output}")
endforeach()

# The viewer shows every property with what the policy has left of it.
string(REGEX REPLACE "(^|\n)[^|\n]*[|] " "\\1" said "${output}")
string(REGEX REPLACE " +" " " said "${said}")
string(REGEX REPLACE "[0-9]+ bytes" "N bytes" said "${said}")
string(REGEX REPLACE "level 0 0\\.[0-9]+\n" "level 0 SECONDS\n" said "${said}")
capture(shown "\n( signal INTEGER .*)deleted report" "${said}")
expect_equal("${shown}" " signal INTEGER (crash)
 level 0 11
 fault_address STRING (crash)
 level 0 0x0 from the start of its page
 uptime DOUBLE (crash)
 level 0 SECONDS
 core_dumped BOOLEAN (crash)
 level 0 false
 memory_map FILE text/plain (crash, memory)
 (no variations)
 system FILE text/plain (system)
 level 0 file system.txt, N bytes
 log FILE text/plain (crash)
 level 10 file log.txt, N bytes
" "what the viewer shows of the contents")

capture(directory "demo [^\n]*\\| works in (/[^\n]+)\n" "${output}")
if(EXISTS "${directory}")
  message(FATAL_ERROR "${directory} was left")
endif()

# --- A run in a directory that is given, with another report in it ---------------------------------
set(kept "${WORK}/kept")
file(MAKE_DIRECTORY "${kept}/reports/other")
run_expecting(0 "${PROGRAM}" "${kept}")
expect_equal("${errors}" "" "the log")
capture(ignored "counted 2 and listed 1 under " "${output}")
capture(address "reading block 4 at (0x[0-9a-f]+)\n" "${output}")
capture(id "created report (${uuid})\n" "${output}")
take_events("${id}")
file(GLOB left "${kept}/reports/*")
expect_equal("${left}" "${kept}/reports/other" "what is left of the reports")

# The log that the worker wrote, less what the filter and the policy are there for, went out; what
# was dropped did not.
file(GLOB log "${kept}/logs/*")
file(READ "${log}" written)
string(REGEX MATCHALL "[^\n]*(/home/|token=)[^\n]*\n" private "${written}")
list(LENGTH private lines)
expect_equal("${lines}" 5 "the number of private lines in the worker's log")
string(REGEX REPLACE "[^\n]*(/home/|token=)[^\n]*\n" "" harmless "${written}")

set(outbox "${kept}/outbox/${id}")
expect_files("${outbox}" log.txt system.txt values.txt)
file(READ "${outbox}/log.txt" sent)
expect_equal("${sent}" "${harmless}" "the log that was sent")
file(READ "${outbox}/values.txt" values)
capture(ignored "^(signal = 11
fault_address = 0x0 from the start of its page
uptime = [0-9.]+(e-[0-9]+)?
core_dumped = false
)$" "${values}")
file(READ "${outbox}/system.txt" system)
foreach(private IN ITEMS "/home/" "/root/" "token=" "${address}")
  expect_absent("${private}" "${sent}${values}${system}" "what was sent")
endforeach()

# --- One role after the other, with a look at the disk between them ----------------------------------
set(steps "${WORK}/steps")
set(id "0d9c5f0e-3f0b-4a53-9a3c-6f2f1f3f7a11")
set(report "${steps}/reports/${id}")
function(play status role)
  run_expecting(${status} "${PROGRAM}" --role ${role} "${steps}" ${id})
  set(errors "${errors}" PARENT_SCOPE)
endfunction()

play(0 watcher)
expect_files("${report}/contentfiles" memory_map/20/memory_map.txt)
file(READ "${report}/contentfiles/memory_map/20/memory_map.txt" map)
capture(ignored "r-xp [^\n]*/libc[.-]" "${map}")

# An observer that starts late is told that the report exists. It ends with its input.
execute_process(COMMAND "${PROGRAM}" --role observer "${steps}" ${id} INPUT_FILE /dev/null
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
expect_equal("${result}${errors}" "0" "the end of the observer")
capture(ignored "(\\|   REPORT_EXISTING   ${id}  was there\n[^\n]*\\| observes ${steps}/reports\n[^\n]*\\| there is no more input\n)$" "${output}")

play(0 collector)
expect_files("${report}/contentfiles"
  log/20/log.txt memory_map/20/memory_map.txt system/0/system.txt)
file(GLOB log "${steps}/logs/*")
file(READ "${log}" written)
file(READ "${report}/contentfiles/log/20/log.txt" collected)
expect_equal("${collected}" "${written}" "the log that was collected")

play(0 filter)
expect_files("${report}/contentfiles"
  log/10/log.txt log/20/log.txt memory_map/20/memory_map.txt system/0/system.txt)
file(READ "${report}/contentfiles/log/20/log.txt" withoutSecrets)
file(READ "${report}/contentfiles/log/10/log.txt" withoutHomes)
string(REGEX REPLACE "[^\n]*token=[^\n]*\n" "" expected "${written}")
expect_equal("${withoutSecrets}" "${expected}" "the log without secrets")
string(REGEX REPLACE "[^\n]*/home/[^\n]*\n" "" expected "${expected}")
expect_equal("${withoutHomes}" "${expected}" "the log without home directories")
expect_files("${report}/tmp")

# No stage can be left out.
play(1 policy)
capture(ignored "(policy [^\n]*\\| failed: being allowed to apply the policy\n)$" "${errors}")
play(0 consent)
play(1 uploader)
capture(ignored "(uploader [^\n]*\\| failed: being allowed to upload\n)$" "${errors}")
if(EXISTS "${steps}/outbox")
  message(FATAL_ERROR "something was sent before the policy was applied")
endif()

play(0 policy)
expect_files("${report}/contentfiles" log/10/log.txt system/0/system.txt)
play(0 uploader)
expect_files("${steps}/outbox/${id}" log.txt system.txt values.txt)
play(0 viewer)
file(GLOB left "${steps}/reports/*")
expect_equal("${left}" "" "what is left of the reports")

# --- A directory that is given relative to the current one ----------------------------------------------
run_expecting(0 "${CMAKE_COMMAND}" -E chdir "${WORK}" "${PROGRAM}" relative)
expect_equal("${errors}" "" "the log")
capture(id "created report (${uuid})\n" "${output}")
expect_files("${WORK}/relative/outbox/${id}" log.txt system.txt values.txt)

# --- A directory in which no report can be made ---------------------------------------------------------
set(broken "${WORK}/broken")
file(MAKE_DIRECTORY "${broken}")
file(WRITE "${broken}/reports" "")
run_expecting(1 "${PROGRAM}" "${broken}")
capture(ignored "(watcher [^\n]*\\| failed: creating the report\n)" "${errors}")
capture(ignored "(demo [^\n]*\\| failed: the watcher\n)$" "${errors}")
