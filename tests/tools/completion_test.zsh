#!/usr/bin/env -S zsh -f
# Completes command lines of quarlo-input in a zsh that has a terminal of its own, and compares what it offers.
#   usage: completion_test.zsh PROGRAM COMPLETION DIRECTORY
zmodload zsh/zpty || exit 1
scratch=$(mktemp -d)
mkdir -p $scratch/{functions,bin,input/by-id}
cp $2 $scratch/functions/_quarlo-input
ln -s ${1:A} $scratch/bin/quarlo-input
touch $scratch/input/{event0,event11,js0,mice} $scratch/input/by-id/usb-a{-event-kbd,-mouse}
cat >$scratch/start <<END
scratch=$scratch
cd ${3:A}
END
cat >>$scratch/start <<'END'
PROMPT= path=($scratch/bin $path) fpath=($scratch/functions $fpath) _quarlo_input_devices=$scratch/input
autoload -Uz compinit && compinit -u -D
# What is added is also written down, with the directory that files have before them.
compadd() {
  if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then builtin compadd "$@"; return; fi
  local -a hits
  local directory
  builtin compadd -A hits "$@"
  (( ${@[(I)-p]} )) && directory=${@[$@[(I)-p] + 1]}
  print -rl -- $directory$^hits >>$scratch/offers
  builtin compadd "$@"
}
offer() { _main_complete; print "offered ${#compstate}" }
zle -C offer list-choices offer
bindkey '^I' offer
print started
END

zpty zsh zsh -f -i
trap 'rm -r $scratch' EXIT  # of this shell
zpty -w zsh "source $scratch/start"
zpty -r zsh said '*started*'
result=0

# What the last word of a command line can become.
offers() {
  local expected=$1 said
  : >$scratch/offers
  zpty -w -n zsh "$2"$'\t'
  zpty -r zsh said '*offered*'
  zpty -w -n zsh $'\x15'
  local offered=${(j: :)${(of)"$(<$scratch/offers)"}}
  [[ $offered == $expected ]] && return
  print -u2 "$2\n  offers   $offered\n  expected $expected"
  result=1
}

offers 'record replay report' 'quarlo-input r'
offers '--mouse' 'quarlo-input monitor --m'
offers '--repeat-delay --repeat-period --repeat-timeout' 'quarlo-input tune --rep'
offers 'nec rc-5 rc-6 sirc' 'quarlo-input tune --protocol '
offers 'poll' 'quarlo-input replay --loop p'
offers "$scratch/input/by-id/usb-a-event-kbd $scratch/input/event0 $scratch/input/event11 none" 'quarlo-input monitor --mouse '
offers "$scratch/input/event0 $scratch/input/event11" "quarlo-input record --also $scratch/input/e"
offers 'none' 'quarlo-input doctor --lirc no'
offers 'sessions/sofa' 'quarlo-input replay sessions/so'
offers 'sessions/sofa' 'quarlo-input record -o sessions/so'
zpty -d zsh
exit $result
