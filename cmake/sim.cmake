# Leads a program's libc calls to the simulated machine (sim/seam.cc) in whatever links `target`: by their plain names, by
# those that they have with 64-bit time and file offsets on a 32-bit machine, and by those of libc's checks of buffers
# (_FORTIFY_SOURCE). The seam is linked in any case, also where the machine stands before the component on the command
# line, and nothing has yet asked for a call.
function(quarlo_wrap_calls target)
  foreach(call IN ITEMS
          open close fstat read recv write pipe2 ioctl socket connect getenv
          select poll ppoll epoll_create1 epoll_ctl epoll_wait epoll_pwait
          eventfd eventfd_read eventfd_write timerfd_create timerfd_settime timerfd_gettime
          gettimeofday clock_gettime nanosleep clock_nanosleep usleep
          open64 fstat64 __fstat64_time64 __ioctl_time64 __select64 __ppoll64 __timerfd_settime64 __timerfd_gettime64
          __gettimeofday64 __clock_gettime64 __nanosleep64 __clock_nanosleep_time64
          __open_2 __open64_2 __read_chk __recv_chk __poll_chk __ppoll_chk __ppoll64_chk)
    target_link_options(${target} INTERFACE "LINKER:--wrap=${call}")
  endforeach()
  target_link_options(${target} INTERFACE "LINKER:--undefined=__wrap_open")
endfunction()
