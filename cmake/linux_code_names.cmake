# Writes to `file` the names in the compiler's own linux/input.h and linux/input-event-codes.h, in their order. A cross
# compiler can have the headers of another version, with a few names more or less.
#   LINUX_TYPE(name): an event type, such as EV_KEY.
#   LINUX_CODE(type, name): a code of this type. Where several have the same number, the first ones are the names of a
#   group, such as BTN_MOUSE, and the last one is that of the code, BTN_LEFT.
#   LINUX_ALIAS(type, name): another name of such a code.
function(quarlo_write_linux_code_names file)
  separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
  if(CMAKE_CXX_COMPILER_TARGET)
    list(PREPEND flags --target=${CMAKE_CXX_COMPILER_TARGET})
  endif()
  file(WRITE ${file}.cc "#include <linux/input.h>\n")
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${flags} -E -dD ${file}.cc
    OUTPUT_VARIABLE preprocessed COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "#define (EV|SYN|KEY|BTN|REL|ABS|MSC|SW|LED|SND|REP|FF)_[A-Z0-9_]+ [A-Z0-9][A-Za-z0-9_]*"
    names "${preprocessed}")
  list(FILTER names EXCLUDE REGEX "^#define (FF_)?[A-Z]+_(MIN|MAX|MAX_EFFECTS|MIN_INTERESTING|VERSION) ")  # limits, no codes
  list(TRANSFORM names REPLACE "#define (EV_[A-Z_]+) .*" "LINUX_TYPE(\\1)\n")
  list(TRANSFORM names REPLACE "#define ([A-Z]+)(_.*) [0-9].*" "LINUX_CODE(EV_\\1, \\1\\2)\n")
  list(TRANSFORM names REPLACE "#define ([A-Z]+)(_.*) [A-Z].*" "LINUX_ALIAS(EV_\\1, \\1\\2)\n")
  list(TRANSFORM names REPLACE "EV_BTN," "EV_KEY,")
  list(TRANSFORM names REPLACE "EV_FF, FF_STATUS_" "EV_FF_STATUS, FF_STATUS_")
  string(JOIN "" lines ${names})
  file(CONFIGURE OUTPUT ${file} CONTENT "${lines}" @ONLY)

  string(REGEX MATCHALL "\"[^\"]+/linux/input[a-z-]*\\.h\"" headers "${preprocessed}")
  list(REMOVE_DUPLICATES headers)
  list(TRANSFORM headers REPLACE "\"" "")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers})
endfunction()
