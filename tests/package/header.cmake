# One public header (HEADER, as clients name it) by itself: valid C++17 without warnings, and made of
# nothing but our own headers and those of the C++ standard library.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(STRINGS "${SOURCE_DIR}/include/${HEADER}" includes REGEX "^[ \t]*#[ \t]*include")
foreach(include IN LISTS includes)
  expect_match("an include of ${HEADER}" "${include}"
    "^#include <([a-z_]+|(diagnostic|os|utils)/[a-z]+\\.h)>$")
endforeach()

file(WRITE "${SCRATCH}/client.cpp" "#include <${HEADER}>\n#include <${HEADER}>\n")
run(_ "${CXX_COMPILER}" -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only
  -I "${SOURCE_DIR}/include" "${SCRATCH}/client.cpp")

file(REMOVE_RECURSE "${SCRATCH}")
