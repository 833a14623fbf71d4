# What a process can do here, one thing a line.
can() {
  if eval "$2" 2>/dev/null; then echo "$1: yes"; else echo "$1: no"; fi
}

can "read a node" 'true </dev/input/event1'
can "write to a node" 'true >>/dev/input/event1'
can "open another device" 'true </dev/uinput'
can "read a file at home" '[ "$(cat /home/tv/note)" = holiday ]'
can "write to a directory that everyone may write to" 'true >/srv/open/file'
can "see the first process" '[ -e /proc/1/status ]'
can "connect to a port" 'nc 127.0.0.1 7 </dev/null'
can "make a namespace" 'unshare -U true'
can "leave a core dump" '[ "$(ulimit -Hc)" != 0 ]'
