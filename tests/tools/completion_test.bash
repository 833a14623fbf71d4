#!/usr/bin/env bash
# Completes command lines of quarlo-input in bash as readline would, and compares what is offered.
#   usage: completion_test.bash PROGRAM COMPLETION DIRECTORY
set -euo pipefail
program=$1
source "$2"
cd "$3"
status=0

# Not in the middle of a completion, it would complain.
compopt() { :; }

# What a command line's last word, the last argument, can become; bash makes a word of an equals sign.
offers() {
  local expected=$1
  shift
  COMP_WORDS=(quarlo-input "$@") COMP_CWORD=$# COMPREPLY=()
  _quarlo_input "$program" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
  [[ ${COMPREPLY[*]} == "$expected" ]] && return
  printf 'quarlo-input %s\n  offers   %s\n  expected %s\n' "$*" "${COMPREPLY[*]}" "$expected" >&2
  status=1
}

offers 'record replay report' r
offers '--version' --v
offers '--mouse' monitor --m
offers '--also' record --a
offers 'sessions/sofa' monitor --also sessions/so
offers '--realtime' replay --rea
offers 'sessions/sofa' replay --json sessions/so
offers 'sessions/sofa' record -o sessions/so
offers 'sessions/sofa' record --output = sessions/so
offers 'docs/tuning.svg' tune --plot docs/tuning.s
offers '' replay --size s
offers 'wait poll' replay --loop ''
offers 'poll' tune --loop = p
offers 'nec rc-5 rc-6 sirc' tune --protocol ''
offers 'rc-5 rc-6' tune --protocol rc
offers 'none' monitor --lirc no
offers '' monitor --loop pole

# A node, by each of its names; what has one of them in it is not expanded.
_quarlo_input_devices=$(mktemp -d)
trap 'rm -r "$_quarlo_input_devices"' EXIT
mkdir "$_quarlo_input_devices/by-id"
touch "$_quarlo_input_devices"/{event0,event11,js0,mice} "$_quarlo_input_devices/by-id"/usb-'$(x)*'{-event-kbd,-mouse}
nodes="$_quarlo_input_devices/event0 $_quarlo_input_devices/event11"
named=$_quarlo_input_devices/by-id/usb-'$(x)*'-event-kbd
offers "$nodes $named none" monitor --mouse ''
offers "$nodes $named" record --also ''
offers "$nodes" record --also "$_quarlo_input_devices/e"
offers "$named" doctor --keyboard = "$_quarlo_input_devices/by"
offers 'none' monitor --keyboard n
offers 'sessions/sofa' monitor --mouse sessions/so
offers '' nonsense --m
exit $status
