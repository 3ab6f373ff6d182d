#!/usr/bin/env bash
# Installs the library into an empty folder and builds programs outside the tree against it, by
# pkg-config and by the CMake package; all must run.
# usage: check_consumers.sh BUILD_DIRECTORY CONSUMER_DIRECTORY
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$1" --prefix "$scratch/installed" >"$scratch/install.log"
libraries=$(dirname "$(find "$scratch/installed" -name libtorvane.so)")
export LD_LIBRARY_PATH=$libraries
export PKG_CONFIG_PATH=$libraries/pkgconfig

cp -r "$2" "$scratch/consumer"
for program in consumer own_names; do
    # shellcheck disable=SC2046 # pkg-config prints words
    cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$scratch/consumer/$program.c" \
        $(pkg-config --cflags --libs libtorvane) -o "$scratch/by-pkg-config"
    echo "$program by pkg-config: $("$scratch/by-pkg-config")"
done

cmake -S "$scratch/consumer" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$scratch/installed" >"$scratch/cmake.log"
cmake --build "$scratch/build" >>"$scratch/cmake.log"
echo "consumer by CMake: $("$scratch/build/consumer")"
