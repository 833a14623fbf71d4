# Completes quarlo-input's commands, their options and the names of files in bash, by what --help says at that moment.

_quarlo_input() {
  local program=$1 current=$2 option=$3 command='' help
  # An equals sign is a word of its own.
  if [[ $current == = ]]; then
    current=''
  elif [[ $option == = ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  if ((COMP_CWORD > 1)); then command=${COMP_WORDS[1]}; fi
  help=$("$program" ${command:+"$command"} --help 2>/dev/null) || return 0

  # Of a line such as "  -o,--output SESSION REQUIRED   The directory", the names, and what kind of value follows, if any.
  local line names values='' words=()
  while IFS= read -r line; do
    if [[ $line =~ ^'  '(-[^ ]+)(' '([^ :]+)(' '|$))? ]]; then
      names=${BASH_REMATCH[1]}
      if [[ ,$names, == *,"$option",* ]]; then values=${BASH_REMATCH[3]}; fi
      words+=(${names//,/ })
    fi
  done <<<"$help"
  if [[ -z $command ]]; then words+=($(sed -nE '/^Subcommands:/,/^$/s/^  ([a-z-]+).*/\1/p' <<<"$help")); fi

  if [[ -z $values && $current != -* && $help == *Positionals:* ]]; then values=PATH; fi
  case $values in
    '') mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$current") ;;
    PATH | SESSION | FILE*)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
  esac
}

complete -F _quarlo_input quarlo-input
