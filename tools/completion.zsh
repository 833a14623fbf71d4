#compdef quarlo-input
# Completes quarlo-input's commands, their options and the names of files in zsh, by what --help says at that moment.

_quarlo-input() {
  local line name part text action
  local -a commands specs
  local command=
  (( CURRENT > 2 )) && command=$words[2]
  for line in "${(@f)$(_call_program options $words[1] $command --help 2>/dev/null)}"; do
    if [[ $line == *: ]]; then
      part=$line
    elif [[ $part == Subcommands: && $line =~ '^  ([a-z-]+) +(.*)' ]]; then
      commands+=("$match[1]:$match[2]")
    elif [[ $part == Positionals: && $line == '  '[a-z]* ]]; then
      specs+=('*:file:_files')
    elif [[ $line =~ '^  (-[^ ]+)( ([^ :]+)( |$))?(REQUIRED| Excludes:( --?[^ ]+)+)? *(.*)' ]]; then
      text=${${match[7]//\[/\\[}//\]/\\]}
      case $match[3] in
        '') action= ;;
        PATH|SESSION|FILE*) action=":$match[3]:_files" ;;
        *) action=":$match[3]: " ;;
      esac
      for name in ${(s:,:)match[1]}; do specs+=("${name}[$text]$action"); done
    fi
  done
  if [[ -z $command ]]; then
    _describe command commands
    _arguments $specs
  else
    shift words
    (( --CURRENT ))
    _arguments $specs
  fi
}

_quarlo-input "$@"
