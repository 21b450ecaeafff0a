#!/bin/sh
# Checks the file of the built library: the soname, the needed libraries, and the exported names.
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

# Prints the values of one kind of entry in the dynamic section, for example "libstdc++.so.6".
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
[ -z "$others" ] || fail "exported names outside the public namespaces:
$others"

# Without an exported name the check above would pass, so some names are required.
for name in 'Qor::throwRange(std::' 'vtable for Qor::RangeException' \
   'typeinfo for Qor::RangeException'; do
   printf '%s\n' "$exported" | grep -qF "$name" || fail "$name... is not exported"
done

exit $((failures > 0))
