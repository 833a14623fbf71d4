#compdef quarlo-input
# Completes quarlo-input's commands, their options, and what these take, in zsh, by what --help says at that moment.

: ${_quarlo_input_devices:=/dev/input}

# What an option takes, as --help has it: words to type are in small letters, kinds in capitals ("NODE|none").
_quarlo-input-value() {
  local value
  local -a words nodes
  for value in ${(s:|:)1}; do
    case $value in
      [a-z]*) words+=($value) ;;
      NODE)
        nodes=($_quarlo_input_devices/event*(N) $_quarlo_input_devices/by-id/*event*(N))
        _wanted nodes expl node compadd -a nodes || _files
        ;;
      PATH|SOCKET|SESSION|FILE*) _files ;;
    esac
  done
  (( $#words )) && _wanted values expl value compadd -a words
}

_quarlo-input() {
  local line name part text action
  local -a commands described files
  local command=
  (( CURRENT > 2 )) && command=$words[2]
  for line in "${(@f)$(_call_program options $words[1] $command --help 2>/dev/null)}"; do
    if [[ $line == [A-Z]*: ]]; then
      part=$line
    elif [[ $part == Subcommands: && $line =~ '^  ([a-z-]+) +(.*)' ]]; then
      commands+=("$match[1]:$match[2]")
    elif [[ $part == Positionals: && $line == '  '[a-z]* ]]; then
      files=('*:file:_files')
    elif [[ "$line " =~ '^  (-[^ ]+) (([^ :]+) )?(REQUIRED|Excludes:( --?[^ ]+)+)? *(.*)' ]]; then
      text=${${${match[6]% }//\[/\\[}//\]/\\]}
      action=
      [[ -z $match[3] ]] || action=":$match[3]: _quarlo-input-value '$match[3]'"
      for name in ${(s:,:)match[1]}; do described+=("$name${text:+[$text]}$action"); done
    fi
  done
  if [[ -z $command ]]; then
    _describe command commands
    _arguments $described
  else
    shift words
    (( --CURRENT ))
    _arguments $described $files
  fi
}

_quarlo-input "$@"
