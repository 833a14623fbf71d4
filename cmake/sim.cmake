# Leads the component's libc calls to the simulated machine (sim/seam.cc) in whatever links `target`. The last ones are
# what the same calls are named with 64-bit time and file offsets on a 32-bit machine. The seam is linked in any case,
# also where the machine stands before the component on the command line, and nothing has yet asked for a call.
function(quarlo_wrap_calls target)
  foreach(call IN ITEMS open close read ioctl select socket connect gettimeofday getenv
                        open64 __ioctl_time64 __select64 __gettimeofday64)
    target_link_options(${target} INTERFACE "LINKER:--wrap=${call}")
  endforeach()
  target_link_options(${target} INTERFACE "LINKER:--undefined=__wrap_open")
endfunction()
