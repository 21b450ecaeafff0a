#!/bin/sh
# Builds and runs two programs that use only the installed package, with find_package and with
# pkg-config, and compares the versions that the parts of the package state. Builds the installed
# examples likewise: the agent has a route in hardware on both paths, and the program, if it is
# installed, opens the modules of the chip and names their mistakes.
# usage: use-package.sh WORK_DIR [LIBRARY_DIR]
# The environment selects the compiler (CXX, CXXFLAGS) and the place of the package: CMAKE_PREFIX_PATH,
# PKG_CONFIG_PATH, PATH. LIBRARY_DIR is needed for a place that the loader does not know.
set -eu
work=$1 library_dir=${2:-}
user=$(dirname "$0")/user
compiler=${CXX:-c++} flags="-std=c++20 ${CXXFLAGS:-}"
pkg_config=$(command -v pkgconf || command -v pkg-config)

expect() {
   if [ "$2" != "$3" ]; then
      printf '%s printed:\n%s\ninstead of:\n%s\n' "$1" "$2" "$3"
      exit 1
   fi
}

version=$("$pkg_config" --modversion velmroute)
number=$(echo "$version" | (IFS=. read -r major minor patch
   echo $((major * 10000 + minor * 100 + patch))))
user_text="version $version ($number)
group 0
VlanId::value < 1 or > 4094 not allowed"
agent_text="version $version
waitingEntry: no free route entry (failure code 1024); waits for a deletion"

cmake -S "$user" -B "$work/by-cmake"
cmake --build "$work/by-cmake"
expect "find_package" "$(cat "$work/by-cmake/version")" "$version"
expect "user, built by find_package," "$("$work/by-cmake/user")" "$user_text"
expect "agent, built by find_package," "$("$work/by-cmake/agent")" "$agent_text"

# pkg-config quotes its output for a shell, so the shell must evaluate it.
build_by_pkg_config() {
   eval "set -- $1.cpp $("$pkg_config" --cflags --libs "$2")"
   (cd "$user" && "$compiler" $flags "$@" -o "$work/by-pkg-config")
   LD_LIBRARY_PATH=$library_dir "$work/by-pkg-config"
}
expect "user, built by pkg-config," "$(build_by_pkg_config main velmroute)" "$user_text"
expect "agent, built by pkg-config," "$(build_by_pkg_config agent velmroute-programmer)" "$agent_text"
for pc in velmroute-programmer velmroute-kit; do
   expect "$pc.pc" "$("$pkg_config" --modversion $pc)" "$version"
done

eval "prefix=$("$pkg_config" --variable=prefix velmroute)"
examples=$prefix/share/doc/velmroute/examples
for example in chip embed; do
   cmake -S "$examples/$example" -B "$work/$example"
   cmake --build "$work/$example"
done
for path in async sync; do
   expect "the agent in examples/embed, path $path," \
      "$(echo 'join 10.0.0.1 239.1.1.1 et1 et2 et3' | "$work/embed/agent" "$path" | tail -n 1)" \
      "(10.0.0.1, 239.1.1.1) is inHardware"
done

# The program is not a part of each build.
if ! command -v velmroute; then exit 0; fi
expect "velmroute --version" "$(velmroute --version)" "velmroute $version"
for chip in arraychip arraychip-sync; do
   run="velmroute run --check-hooks --platform $work/chip/lib$chip.so"
   $run "$examples/chip/routes.jsonl"
   names() {
      expect "$chip with the mistake $1" \
         "$($run:mistake="$1" "$examples/chip/routes.jsonl" 2>&1 | grep -c "$2")" "$3"
   }
   check="velmroute check --tap --platform $work/chip/lib$chip.so"
   $check
   fails() {
      expect "velmroute check of $chip with the mistake $1" \
         "$($check:mistake="$1" | grep -c "^not ok [0-9]* - $2\$")" 1
   }
   fails handle-twice calls
   fails rewrite-ignored rewrite-in-place
   fails free-ignored room-for-sets
   names handle-twice "rule 9 entry-twice: handle 0 is given out for" 7
   names rewrite-ignored "expected cpu rtr5, found cpu rtr3" 1
done
