# What quarlo-input.service can do under systemd, and what it cannot. Ends with status 0 if all is so.
unit=quarlo-input.service
units=/etc/systemd/system
status=0

check() {
  if [ "$2" = "$3" ]; then
    echo "ok: $1"
  else
    status=1
    printf 'FAILED: %s:\n%s\nnot:\n%s\n' "$1" "$2" "$3"
    cat /var/log/*
  fi
}

# Starts the service with these further lines in its unit. What it prints is in the file of this name in /var/log.
start() {
  printf '%s\n' '[Service]' "StandardOutput=truncate:/var/log/$1" "StandardError=truncate:/var/log/$1-errors" "$2" \
    >$units/$unit.d/test.conf
  systemctl daemon-reload
  systemctl start $unit
}

# Taps a key of a node.
tap() {
  for value in 1 0; do evemu-event "$1" --type EV_KEY --code "$2" --value $value --sync; done
}

# Uses the mouse, the keyboard and the remote, when the service has opened them.
use_all() {
  sleep 1
  tap /dev/input/event2 BTN_LEFT
  tap /dev/input/event1 KEY_UP
  tap /dev/input/event0 KEY_VOLUMEUP
  sleep 1
}

events_of() {
  grep -c "\"source\":\"$1\",\"kind\"" /var/log/events
}

start events
use_all
check "monitor shows the mouse's button, down and up" "$(events_of mouse)" 2
check "monitor shows the keyboard's key, down and up" "$(events_of keyboard)" 2
check "monitor shows the remote's button" "$(events_of remote)" 1
environment=$(tr '\0' '\n' <"/proc/$(systemctl show -P MainPID $unit)/environ")
check "the remote's timeouts reach it" "$(echo "$environment" | grep '^LIRC_' | sort | xargs)" \
  "LIRC_RELEASE_TIMEOUT=400 LIRC_REPEAT_TIMEOUT=100"
systemctl stop $unit
check "it ends well when it is stopped" "$(systemctl show -P Result $unit)" success

start recording 'ExecStart=
ExecStart=/usr/bin/quarlo-input record -o ${STATE_DIRECTORY}/evening'
use_all
systemctl stop $unit
check "record makes a session in the state directory" "$(ls /var/lib/quarlo-input/evening | xargs)" \
  "keyboard.evemu mouse.evemu remote.lirc"

# What a process can do, in the sandbox and in a unit that has none.
probe="Type=oneshot
ExecStart=
ExecStart=/bin/sh $PWD/probe.sh"
start sandboxed "$probe"
printf '%s\n' '[Service]' User=nobody SupplementaryGroups=input >$units/$unit
start plain "$probe"
things=$(sed -n 's/^can "\([^"]*\)".*/\1/p' probe.sh)
check "without the sandbox it can do all" "$(cat /var/log/plain)" "$(echo "$things" | sed 's/$/: yes/')"
check "in the sandbox it can read input alone" "$(cat /var/log/sandboxed)" \
  "$(echo "$things" | sed 's/$/: no/; 1s/no$/yes/')"

exit $status
