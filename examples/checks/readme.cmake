# The example in the README is the program that is built and run, word by word.
file(READ "${README}" readme)
file(READ "${SOURCE}" source)
string(FIND "${readme}" "```cpp\n${source}```\n" position)
if(position EQUAL -1)
  message(FATAL_ERROR "${README} does not show ${SOURCE} as it is")
endif()
