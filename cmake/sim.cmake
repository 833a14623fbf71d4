# Leads a program's libc calls to the simulated machine (sim/seam.cc) in whatever links `target`: by their plain names, by
# those that they have with 64-bit time and file offsets on a 32-bit machine, and by those of libc's checks of buffers
# (_FORTIFY_SOURCE), which sim/wrapped_calls.txt lists. The seam is linked in any case, also where the machine stands
# before the component on the command line, and nothing has yet asked for a call.
function(quarlo_wrap_calls target)
  set(list ${PROJECT_SOURCE_DIR}/sim/wrapped_calls.txt)
  file(STRINGS ${list} calls)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  foreach(call IN LISTS calls)
    target_link_options(${target} INTERFACE "LINKER:--wrap=${call}")
  endforeach()
  target_link_options(${target} INTERFACE "LINKER:--undefined=__wrap_open")
endfunction()
