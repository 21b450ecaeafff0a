#!/bin/sh
# Checks the built library from outside: its soname, the libraries it needs, the names it exports.
# usage: check-library.sh NM READELF LIBRARY RUNTIME_LIBRARY...
set -eu
nm=$1 readelf=$2 library=$3
shift 3
runtime=" $* "
failures=0

fail() {
   printf '%s\n' "$*"
   failures=$((failures + 1))
}

# The values of one kind of entry in the dynamic section, as [libstdc++.so.6].
dynamic() {
   "$readelf" -dW "$library" | sed -n "s/.*($1).*\[\(.*\)\]$/\1/p"
}

[ "$(dynamic SONAME)" = libVelMroute.so.0 ] || fail "the soname is $(dynamic SONAME)"

for needed in $(dynamic NEEDED); do
   case $runtime in
   *" ${needed%%[-.]*} "*) ;;
   *) fail "the library needs $needed" ;;
   esac
done

exported=$("$nm" -DC --defined-only "$library" | cut -d ' ' -f 3-)
namespaces='Bfd|Bridging|FlexCounters|Hux|Interface|IntfVlanId|Ip|L3|Lnet|MrouteLib|Qor|Routing|Vel|VelHelper|Wisp'
special='(construction vtable|guard variable|typeinfo name|typeinfo|vtable|VTT) for '
thunk='(non-virtual|virtual|covariant return) thunk to '
others=$(printf '%s\n' "$exported" | grep -Ev "^($special|$thunk)?($namespaces)::") || true
[ -z "$others" ] || fail "names of no public namespace are exported:
$others"

# A check that everything passes when nothing is exported would prove little.
for name in 'Qor::throwRange(std::' 'vtable for Qor::RangeException' \
   'typeinfo for Qor::RangeException'; do
   printf '%s\n' "$exported" | grep -qF "$name" || fail "$name... is not exported"
done

exit $((failures > 0))
