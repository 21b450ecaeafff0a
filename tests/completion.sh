#!/bin/bash
# Compares the completions of the shell with the commands and options that the program lists.
# usage: tests/completion.sh PROGRAM
set -euo pipefail
program=$1
source "$(dirname "$0")/../agent/velmroute.completion"
status=0

completions() {
   COMP_WORDS=(velmroute "$@") COMP_CWORD=$#
   _velmroute
   printf '%s\n' "${COMPREPLY[@]}" | sort -u
}
same() {
   if ! diff <(echo "$2") <(echo "$3") >&2; then
      echo "$1: listed by --help (<) and completed (>) differ" >&2
      status=1
   fi
}

commands=$("$program" --help | sed -n '/^Subcommands:/,$s/^  \([a-z]\+\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 8 ] || { echo "--help lists no subcommands" >&2; exit 1; }
same velmroute "$(sort <<<"$commands")" "$(completions '' | grep -v ^-)"
for command in $commands; do
   listed=$("$program" "$command" --help | sed -n '/^Options:/,/^$/p' |
      grep -oE '^ +(-[a-z],)?--[a-z-]+(,--[a-z-]+|, !--[a-z-]+|\{false\})*' | grep -oE -- '--[a-z-]+' | sort -u)
   same "$command" "$listed" "$(completions "$command" -)"
done
same show.views 'chip' "$(completions show ch)"
same file "$0" "$(completions agent --config "${0%.sh}")"
exit $status
