# Completes quarlo-input's commands, their options, and what these take, in bash, by what --help says at that moment.

_quarlo_input_devices=/dev/input

# Offers those of some words that begin with another one.
_quarlo_input_offer() {
  local current=$1 word
  shift
  for word in "$@"; do
    if [[ $word == "$current"* ]]; then COMPREPLY+=("$word"); fi
  done
}

# What means something to the shell in the name of a file gets quoted.
_quarlo_input_files() {
  compopt -o filenames
  local files
  mapfile -t files < <(compgen -f -- "$1")
  COMPREPLY+=("${files[@]}")
}

# The nodes, by both names; where none begins like this, files.
_quarlo_input_nodes() {
  compopt -o filenames
  local node
  for node in "$_quarlo_input_devices"/event* "$_quarlo_input_devices"/by-id/*event*; do
    if [[ -e $node ]]; then _quarlo_input_offer "$1" "$node"; fi
  done
  if ((${#COMPREPLY[@]} == 0)); then _quarlo_input_files "$1"; fi
}

_quarlo_input() {
  local program=$1 current=$2 option=$3 command='' help
  COMPREPLY=()
  # An equals sign is a word of its own.
  if [[ $current == = ]]; then
    current=''
  elif [[ $option == = ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  if ((COMP_CWORD > 1)); then command=${COMP_WORDS[1]}; fi
  help=$("$program" ${command:+"$command"} --help 2>/dev/null) || return 0

  # Of a line such as "  -o,--output SESSION REQUIRED   The directory", the names, and what follows, if anything.
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
  if [[ -z $values ]]; then _quarlo_input_offer "$current" "${words[@]}"; fi
  # "NODE|none": words to type are in small letters, kinds in capitals.
  local value
  for value in ${values//|/ }; do
    case $value in
      [a-z]*) _quarlo_input_offer "$current" "$value" ;;
      NODE) _quarlo_input_nodes "$current" ;;
      PATH | SOCKET | SESSION | FILE*) _quarlo_input_files "$current" ;;
    esac
  done
}

complete -F _quarlo_input quarlo-input
