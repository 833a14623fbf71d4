#!/usr/bin/env bash
# Each command that quarlo-input's help names has a manual page with all of its options, its exit statuses and an example.
# What the pages refer to of the program's is there.
#   usage: man_pages_test.bash PROGRAM DIRECTORY DOCUMENTS
set -euo pipefail
program=$1
directory=$2
documents=$3
status=0

# Whether the page has a line that begins like this. The pages write a hyphen as \-.
expect() {
  local page=$directory/$1 line=${2//-/\\-}
  grep -qF -- "$line" "$page" && return
  echo "$page has no line with $line" >&2
  status=1
}

commands=$("$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 4 ] || { echo "too few commands: $commands" >&2 && exit 1; }
for command in $commands; do
  expect quarlo-input.1 "quarlo-input-$command"
  for section in 'EXIT STATUS' EXAMPLES 'SEE ALSO'; do expect "quarlo-input-$command.1" ".SH $section"; done
  for option in $("$program" "$command" --help | grep -oE '^  -[^ ]+' | tr , ' '); do
    expect "quarlo-input-$command.1" "\\fB$option\\fR"
  done
done
for command in monitor record doctor list; do expect "quarlo-input-$command.1" '\fI/dev/input/event*\fR'; done
for command in monitor replay doctor; do expect "quarlo-input-$command.1" '\fBLIRC_RELEASE_TIMEOUT\fR'; done

exist() {
  local what=$1 file
  shift
  [ $# != 0 ] || { echo "the pages name none of $what" >&2 && status=1; }
  for file in "$@"; do [ -e "$file" ] || { echo "a page refers to $file, which is not there" >&2 && status=1; }; done
}
exist "the pages" $(sed -n 's/^\.BR \(quarlo[^ ]*\) (1),\?$/\1/p' "$directory"/*.1 | tr -d '\\' | sort -u |
  sed "s|.*|$directory/&.1|")
exist "the documents" $(sed -n 's|^\.IR .*/\(docs/[^ ]*\).*|\1|p' "$directory"/*.1 | tr -d '\\' | sort -u |
  sed "s|.*|$documents/&|")
exit $status
