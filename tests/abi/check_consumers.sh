#!/usr/bin/env bash
# Installs the library into an empty folder and builds a program outside the tree against it, once by
# pkg-config and once by the CMake package; both must run.
# usage: check_consumers.sh BUILD_DIRECTORY CONSUMER_DIRECTORY
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$1" --prefix "$scratch/installed" >"$scratch/install.log"
libraries=$(dirname "$(find "$scratch/installed" -name libtorvane.so)")
export LD_LIBRARY_PATH=$libraries
export PKG_CONFIG_PATH=$libraries/pkgconfig

cp -r "$2" "$scratch/consumer"
# shellcheck disable=SC2046 # pkg-config prints words
cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$scratch/consumer/consumer.c" \
    $(pkg-config --cflags --libs libtorvane) -o "$scratch/by-pkg-config"
echo "by pkg-config: $("$scratch/by-pkg-config")"

cmake -S "$scratch/consumer" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$scratch/installed" >"$scratch/cmake.log"
cmake --build "$scratch/build" >>"$scratch/cmake.log"
echo "by CMake: $("$scratch/build/consumer")"
