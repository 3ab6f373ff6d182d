#!/usr/bin/env bash
# Builds torvane, installing what is missing first, and lists this machine's drives. Arguments go to torvane:
#   ./run.sh              ./run.sh list --json              ./run.sh show /dev/sda
# What it does is told on standard error, so that the output can be piped on.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=scripts/packages.sh
. "$here/scripts/packages.sh"
require_packages "${build_packages[@]}"

build=$here/build/run
if [ ! -f "$build/build.ninja" ]; then
    echo "configuring $build" >&2
    cmake -S "$here" -B "$build" -G Ninja -DTORVANE_TESTS=OFF >&2
fi
# Ninja says what it builds, or that there is nothing to do.
cmake --build "$build" -- --quiet >&2
exec "$build/tools/torvane/torvane" "$@"
