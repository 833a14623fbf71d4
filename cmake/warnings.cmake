# Our own targets build without a warning; CI makes every one an error (CMAKE_COMPILE_WARNING_AS_ERROR in the presets).
function(quarlo_enable_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
endfunction()
