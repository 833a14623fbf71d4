# The component, InputLoop and InputSources need nothing but these: no allocation, no thread, no C++ runtime.
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
  _ZN6quarlo10components5input16LinuxInputReader14translateEventEP11input_eventRNS2_10InputEventE
  # of InputSources, where it is linked: there is no further node without it
  _ZN6quarlo10components5input9InputLoop12drainFurtherERNS1_16LinuxInputReader10InputEventE)
set(allowed_input_sources.cc.o
  # libc
  close fstat gettimeofday ioctl memcpy memset poll
  # the component's public functions
  _ZN6quarlo10components5input16LinuxInputReader10openDeviceEPKcb
  _ZN6quarlo10components5input16LinuxInputReader11getModifierEi
  _ZN6quarlo10components5input16LinuxInputReader14openLircSocketEPKc
  # InputLoop's
  _ZN6quarlo10components5input9InputLoop5drainERNS2_4NodeERNS1_16LinuxInputReader10InputEventE
  _ZN6quarlo10components5input9InputLoop7msSinceERK7timeval
  _ZN6quarlo10components5input9InputLoop11findSourcesEv)
execute_process(COMMAND ${NM} --undefined-only --print-file-name ${LIBRARY} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL ":${OBJECT}: +[A-Za-z] [A-Za-z0-9_.]+" symbols "${symbols}")
list(TRANSFORM symbols REPLACE ".* " "")
if(NOT symbols)
  message(FATAL_ERROR "${OBJECT} needs no symbol at all: nothing was checked")
endif()
list(REMOVE_ITEM symbols ${allowed} ${allowed_${OBJECT}})
if(symbols)
  message(FATAL_ERROR "${OBJECT} needs symbols that it must not need: ${symbols}")
endif()
