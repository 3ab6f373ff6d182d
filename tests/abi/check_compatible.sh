#!/usr/bin/env bash
# Holds the library's binary interface against that of the release that the committed baseline describes: names may be
# added, but nothing that a program was built against may change. To prove that this would be seen, a source is compiled
# twice, once with a record of the header grown by a field.
# usage: check_compatible.sh LIBRARY BASELINE SOURCE_ROOT
#        check_compatible.sh --write LIBRARY BASELINE      makes a new baseline, at a new major version
set -euo pipefail

describe() {
    abidw --no-corpus-path --no-show-locs --no-comp-dir-path --no-elf-needed --drop-private-types \
        --exported-interfaces-only --headers-dir "$3" "$1" | sed "s|path='[^']*/src/|path='src/|" >"$2"
}

# 0 when a program built against the first runs with the second.
compatible() { abidiff --no-added-syms --no-show-locs "$1" "$2"; }

if [ "$1" = --write ]; then
    describe "$2" "$3" "$(dirname "$0")/../../include"
    exit 0
fi
library=$1 baseline=$2 root=$3
compatible "$baseline" "$library"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp -r "$root/include" "$scratch/changed"
sed -i 's/^    char \*generic_name;.*/&\n    uint64_t wwn;/' "$scratch/changed/torvane.h"
grep -q '^    uint64_t wwn;' "$scratch/changed/torvane.h"
for variant in "$root/include" "$scratch/changed"; do
    g++ -std=c++20 -g -shared -fPIC -fno-exceptions -fno-rtti -I"$variant" -I"$root/src" \
        -o "$scratch/$(basename "$variant").so" "$root/src/drives/list.cpp"
done
if compatible "$scratch/include.so" "$scratch/changed.so" >"$scratch/told"; then
    echo "a field put into DriveRecord was not seen"
    exit 1
fi
grep -q "DriveRecord" "$scratch/told"
echo "compatible with the baseline; a record that grew is refused"
