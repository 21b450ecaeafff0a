#!/bin/sh
# Installs the built tree, moves the result to another directory, and uses the package there.
# usage: use-installed.sh CMAKE COMPILER FLAGS BUILD_DIR LIBDIR WORK_DIR
set -eu
cmake=$1 compiler=$2 flags=$3 build=$4 libdir=$5 work=$6
here=$(cd "$(dirname "$0")" && pwd)

rm -rf "$work"
mkdir -p "$work"
"$cmake" --install "$build" --prefix "$work/staged" >"$work/install.log"
prefix="$work/moved prefix"
mv "$work/staged" "$prefix"
test "$(readlink "$prefix/$libdir/libVelMroute.so")" = libVelMroute.so.0

mkdir "$work/path"
[ ! -e "$prefix/bin/velmroute" ] || ln -s "$prefix/bin/velmroute" "$work/path/"
CXX=$compiler CXXFLAGS="$flags" CMAKE_GENERATOR=Ninja CMAKE_PREFIX_PATH=$prefix \
   PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig PATH=$work/path:$PATH \
   sh "$here/use-package.sh" "$work" "$prefix/$libdir"

# The installed headers bring no macro of the library's own sources.
include=$prefix/include/VelMroute
macros=$( (cd "$include" && find . -name '*.h' | sed 's|^\./\(.*\)$|#include "\1"|') |
   "$compiler" -std=c++20 -E -dM -I"$include" -x c++ - | grep '^#define VEL_') || true
if [ -n "$macros" ]; then
   printf 'The installed headers define:\n%s\n' "$macros"
   exit 1
fi
