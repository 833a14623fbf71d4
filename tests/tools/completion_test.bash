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

offers 'record replay' r
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
offers '' nonsense --m
exit $status
