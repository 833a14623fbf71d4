# The component needs nothing but these: no allocation, no thread, no C++ runtime.
set(allowed
  # libc
  abort close connect div getenv gettimeofday ioctl memcpy memset open printf putchar puts read select snprintf socket
  strchr strlen strspn strtol
  # what the compiler and libc's headers make of them
  __errno_location _GLOBAL_OFFSET_TABLE_ _gp_disp
  # the application's logging facility
  _ZN6quarlo7logging10LogMessageEPKciiS2_z _ZN6quarlo7logging14GetMinLogLevelEv
  _ZN6quarlo7logging18GetVlogLevelHelperEPKcm _ZN6quarlo7logging18GetVlogLevelHelperEPKcj)
execute_process(COMMAND ${NM} --undefined-only --format=just-symbols ${LIBRARY} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_.]*" symbols "${symbols}")
list(REMOVE_ITEM symbols linux_input_reader.cc.o)
if(NOT symbols)
  message(FATAL_ERROR "${LIBRARY} needs no symbol at all: nothing was checked")
endif()
list(REMOVE_ITEM symbols ${allowed})
if(symbols)
  message(FATAL_ERROR "The component needs symbols that it must not need: ${symbols}")
endif()
