#!/bin/sh
# Compiles each installed header by itself, with the warnings of a strict user. As C++17 each header
# has to fail with the one error that names the standard.
# usage: check-headers.sh COMPILER JOBS INCLUDE_DIR
set -eu
cd "$3"
find . -name '*.h' -printf '%P\n' | xargs -P "$2" -n 1 sh -c '
   compile() { printf "#include \"%s\"\n" "$header" | "$compiler" "$@" -I. -x c++ - 2>&1; }
   compiler=$0 header=$1
   if ! errors=$(compile -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only); then
      printf "%s alone does not compile:\n%s\n" "$header" "$errors"
      exit 1
   fi
   case $(compile -std=c++17 -fsyntax-only) in
   *"headers of libVelMroute need C++20"*"No such file"*) ;;
   *) printf "%s as C++17 does not ask for C++20 first\n" "$header"; exit 1 ;;
   esac' "$1"
