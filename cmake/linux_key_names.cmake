# Writes to `file` a line LINUX_KEY(name) for each key code and button of the compiler's own linux/input-event-codes.h, in
# its order. A cross compiler can have the header of another version, with a few names more or less.
function(quarlo_write_linux_key_names file)
  separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
  if(CMAKE_CXX_COMPILER_TARGET)
    list(PREPEND flags --target=${CMAKE_CXX_COMPILER_TARGET})
  endif()
  file(WRITE ${file}.cc "#include <linux/input-event-codes.h>\n")
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${flags} -E -dD ${file}.cc
    OUTPUT_VARIABLE preprocessed COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "#define (KEY|BTN)_[A-Z0-9_]+" names "${preprocessed}")
  list(TRANSFORM names REPLACE "#define " "")
  list(REMOVE_ITEM names KEY_MAX KEY_CNT KEY_MIN_INTERESTING)  # limits of the codes, no keys
  list(TRANSFORM names REPLACE ".+" "LINUX_KEY(\\0)\n")
  string(JOIN "" lines ${names})
  file(CONFIGURE OUTPUT ${file} CONTENT "${lines}" @ONLY)

  string(REGEX MATCH "\"([^\"]+/input-event-codes\\.h)\"" header "${preprocessed}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_MATCH_1})
endfunction()
