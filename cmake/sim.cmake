# Leads a program's libc calls to the simulated machine (sim/seam.cc) in whatever links `target`. The second row has what
# the same calls are named with 64-bit time and file offsets on a 32-bit machine, the third what they are named where
# libc checks the size of buffers (_FORTIFY_SOURCE). The seam is linked in any case,
# also where the machine stands before the component on the command line, and nothing has yet asked for a call.
function(quarlo_wrap_calls target)
  foreach(call IN ITEMS
          open close read recv write pipe2 ioctl select poll socket connect gettimeofday clock_gettime getenv
          open64 __ioctl_time64 __select64 __gettimeofday64 __clock_gettime64
          __open_2 __open64_2 __read_chk __recv_chk __poll_chk)
    target_link_options(${target} INTERFACE "LINKER:--wrap=${call}")
  endforeach()
  target_link_options(${target} INTERFACE "LINKER:--undefined=__wrap_open")
endfunction()
