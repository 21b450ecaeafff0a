#!/bin/sh
# Installs the built tree and moves the result to another directory. Then builds and runs two
# programs that use only the installed package, with find_package and with pkg-config, and compiles every
# installed header.
# usage: use-installed.sh CMAKE PKG_CONFIG COMPILER FLAGS BUILD_DIR LIBDIR WORK_DIR
set -eu
cmake=$1 pkg_config=$2 compiler=$3 flags=$4 build=$5 libdir=$6 work=$7
user=$(dirname "$0")/user
expect() {
   case $1 in
   user*) expected='group 0
VlanId::value < 1 or > 4094 not allowed' ;;
   agent*) expected='waitingEntry: no free route entry (failure code 1024); waits for a deletion' ;;
   esac
   if [ "$2" != "$expected" ]; then
      printf '%s printed:\n%s\ninstead of:\n%s\n' "$1" "$2" "$expected"
      exit 1
   fi
}

rm -rf "$work"
mkdir -p "$work"
"$cmake" --install "$build" --prefix "$work/staged" >"$work/install.log"
prefix="$work/moved prefix"
mv "$work/staged" "$prefix"
test "$(readlink "$prefix/$libdir/libVelMroute.so")" = libVelMroute.so.0

"$cmake" -S "$user" -B "$work/by-cmake" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
   -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_PREFIX_PATH="$prefix"
"$cmake" --build "$work/by-cmake"
expect "user, built by find_package," "$("$work/by-cmake/user")"
expect "agent, built by find_package," "$("$work/by-cmake/agent")"

# pkg-config quotes its output for a shell, so the shell must evaluate it.
PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
export PKG_CONFIG_PATH
build_by_pkg_config() {
   eval "set -- $1.cpp $("$pkg_config" --cflags --libs "$2")"
   (cd "$user" && "$compiler" $flags "$@" -o "$work/by-pkg-config")
   LD_LIBRARY_PATH="$prefix/$libdir" "$work/by-pkg-config"
}
expect "user, built by pkg-config," "$(build_by_pkg_config main velmroute)"
expect "agent, built by pkg-config," "$(build_by_pkg_config agent velmroute-programmer)"

# If the program was built, the installed program must find the library in the prefix.
if [ -e "$build/bin/velmroute" ]; then
   "$prefix/bin/velmroute" --version
fi

# The installed headers need no file of the source tree, cause no warnings, and bring no macro of the
# library's own sources.
include=$prefix/include/VelMroute
(cd "$include" && find . -name '*.h') | sort | sed 's|^\./\(.*\)$|#include "\1"|' \
   >"$work/every-header.cpp"
"$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$include" \
   "$work/every-header.cpp"
macros=$("$compiler" -std=c++20 -E -dM -I"$include" "$work/every-header.cpp" |
   grep '^#define VEL_') || true
if [ -n "$macros" ]; then
   printf 'The installed headers define:\n%s\n' "$macros"
   exit 1
fi
