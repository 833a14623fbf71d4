# The component and InputLoop need nothing but these: no allocation, no thread, no C++ runtime.
set(allowed
  # what the compiler and libc's headers make of what is below
  __errno_location _GLOBAL_OFFSET_TABLE_ _gp_disp
  # the application's logging facility
  _ZN6quarlo7logging10LogMessageEPKciiS2_z _ZN6quarlo7logging14GetMinLogLevelEv
  _ZN6quarlo7logging18GetVlogLevelHelperEPKcm _ZN6quarlo7logging18GetVlogLevelHelperEPKcj)
set(allowed_linux_input_reader.cc.o
  # libc
  abort close connect div getenv gettimeofday ioctl memcpy memset open printf putchar puts read select snprintf socket
  strchr strlen strspn strtol)
set(allowed_input_loop.cc.o
  # libc
  close gettimeofday memchr memcpy memmove memset pipe2 poll read recv write
  # the component's public functions
  _ZN6quarlo10components5input16LinuxInputReader11getModifierEi
  _ZN6quarlo10components5input16LinuxInputReader12getLircEventEiRNS2_10InputEventE
  _ZN6quarlo10components5input16LinuxInputReader14translateEventEP11input_eventRNS2_10InputEventE)
execute_process(COMMAND ${NM} --undefined-only --format=just-symbols ${LIBRARY} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_.]*" symbols "${symbols}")
list(REMOVE_ITEM symbols ${OBJECT})
if(NOT symbols)
  message(FATAL_ERROR "${LIBRARY} needs no symbol at all: nothing was checked")
endif()
list(REMOVE_ITEM symbols ${allowed} ${allowed_${OBJECT}})
if(symbols)
  message(FATAL_ERROR "${OBJECT} needs symbols that it must not need: ${symbols}")
endif()
