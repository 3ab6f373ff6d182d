#!/usr/bin/env bash
# The library's name, and that it needs nothing but libc, libm and libudev.
# usage: check_dynamic.sh LIBRARY
set -euo pipefail
dynamic=$(readelf -d "$1")
needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | sort | xargs)
soname=$(sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' <<<"$dynamic")
echo "SONAME $soname, NEEDED $needed"
[ "$soname" = libtorvane.so.2 ]
[ "$needed" = "libc.so.6 libm.so.6 libudev.so.1" ]
