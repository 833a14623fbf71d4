# The program in the README is the one that is compiled.
file(READ "${ROOT}/README.md" readme)
file(READ "${ROOT}/examples/read_events.cc" example)
string(FIND "${readme}" "```cpp\n${example}```" position)
if(position EQUAL -1)
  message(FATAL_ERROR "The program in README.md differs from examples/read_events.cc")
endif()
