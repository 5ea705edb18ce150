# The reader in the document reads what the library wrote, and the example file in the document is
# what the library writes.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

run_expecting(0 "${PROGRAM}" "${WORK}/store")
set(written "${output}")

file(READ "${DOCUMENT}" document)
capture(reader "```python\n([^`]+)```\n" "${document}")
file(WRITE "${WORK}/reader.py" "${reader}")
run_expecting(0 "${PYTHON}" "${WORK}/reader.py" "${WORK}/store")
expect_equal("${output}" "${written}" "what the reader read")

# It stops at the damage that the document describes, and not at a torn tail.
file(READ "${WORK}/store" bytes HEX)
string(LENGTH "${bytes}" digits)
run_expecting(0 "${PYTHON}" -c "
bytes = bytearray.fromhex('${bytes}')
open('${WORK}/torn', 'wb').write(bytes + bytes[8:29])
bytes[40] ^= 1
open('${WORK}/damaged', 'wb').write(bytes)")
run_expecting(0 "${PYTHON}" "${WORK}/reader.py" "${WORK}/torn")
expect_equal("${output}" "${written}" "what the reader read of a torn file")
run_expecting(1 "${PYTHON}" "${WORK}/reader.py" "${WORK}/damaged")

# The dump shows an offset and up to 16 bytes in each line.
capture(dump "```hexdump\n([^`]+)```\n" "${document}")
string(REGEX REPLACE "  [|][^\n]*" "" dump "${dump}")
string(REGEX REPLACE "(^|\n)[0-9a-f]+ " "" dump "${dump}")
string(REGEX REPLACE "[ \n]" "" dump "${dump}")
expect_equal("${dump}" "${bytes}" "the example file")
