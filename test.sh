#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: under the sanitizers what runs in processes of this
# machine, then everything, emulated machines included, in the build that ships.
#   ./test.sh                 all of it
#   ./test.sh -R 'world.*'    arguments go to the last run's ctest
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=scripts/packages.sh
. "$here/scripts/packages.sh"
require_packages "${test_packages[@]}"
cd "$here"

# Compiled once, found again from any other clone.
export CCACHE_BASEDIR=$here CCACHE_NOHASHDIR=1
jobs=$(nproc)
for preset in sanitizers release; do
    echo "== building ($preset)"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs" -- --quiet
done
echo "== tests under the address and undefined-behaviour sanitizers"
ctest --preset sanitizers -j "$jobs" --label-regex '^(unit|world|inventory|fuzz|tool)$' --progress
echo "== all tests"
# One more than there are processors: lint.tidy takes what the others leave of them.
ctest --preset release -j "$((jobs + 1))" "$@"
