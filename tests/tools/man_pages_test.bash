#!/usr/bin/env bash
# Each command that quarlo-input's help names has a manual page with all of its options and its exit statuses.
#   usage: man_pages_test.bash PROGRAM DIRECTORY
set -euo pipefail
program=$1
directory=$2
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
  expect "quarlo-input-$command.1" '.SH EXIT STATUS'
  for option in $("$program" "$command" --help | grep -oE '^  -[^ ]+' | tr , ' '); do
    expect "quarlo-input-$command.1" "\\fB$option\\fR"
  done
done
exit $status
