# Writes to `file` a line KEY_NAME(Name) for each constant kName of a key in msg/key_input.h, in its order; kNone, 0, is
# none. That header is the keys' one list, for people too, so it is read instead of being made from another.
function(quarlo_write_key_names file)
  set(header ${PROJECT_SOURCE_DIR}/msg/key_input.h)
  file(READ ${header} text)
  string(REGEX MATCHALL "static constexpr Key k[A-Za-z0-9]+ = [1-9]" constants "${text}")
  list(TRANSFORM constants REPLACE ".* k([A-Za-z0-9]+) = .*" "KEY_NAME(\\1)\n")
  string(JOIN "" lines ${constants})
  file(CONFIGURE OUTPUT ${file} CONTENT "${lines}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
endfunction()
