#!/bin/bash
# Compares the completions of the shell with the commands and options that the program lists.
# usage: tests/completion.sh PROGRAM
set -euo pipefail
program=$1
source "$(dirname "$0")/../agent/velmroute.completion"
status=0

completions() {
   COMP_WORDS=("${agent:-velmroute}" "$@") COMP_CWORD=$#
   COMP_LINE="${COMP_WORDS[*]}" COMP_POINT=1000
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
# An agent that has three routes, and that prints the line it is asked for.
agent() {
   echo "${*: -1}" >>"$log"
   printf '%s\n' "10.0.0.2,239.1.1.1 " "10.0.0.2,239.1.1.2 " "2001:db8::2,"
}
log=$(mktemp)
trap 'rm -f "$log"' EXIT
timeout() { shift && "$@"; }
agent=agent
same explain.route '10.0.0.2,239.1.1.1 ' "$(completions explain -j --control /x 10.0 | head -1)"
same explain.v6 'db8::2,' "$(completions explain vrf red 2001:d | tail -1)"
same lines "$(printf 'explain 10.0\nexplain vrf red 2001:d')" "$(cat "$log")"
exit $status
