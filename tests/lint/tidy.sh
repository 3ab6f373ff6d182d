#!/usr/bin/env bash
# Runs clang-tidy over library and tool, as many files at a time as there are processors. A file whose own text,
# headers and checks are unchanged since it was last found clean is passed over.
# usage: tidy.sh SOURCE_ROOT BUILD_DIRECTORY
set -euo pipefail
cd "$1"
export BUILD=$2 CLEAN=$2/tidy-clean
mkdir -p "$CLEAN"
HEADERS=$(cat .clang-tidy tools/.clang-tidy include/*.h $(find src tools -name '*.h' | sort) | sha256sum)
export HEADERS

check() {
    local stamp findings
    stamp=$CLEAN/$({ echo "$HEADERS"; cat "$1"; } | sha256sum | cut -c1-32)
    [ -e "$stamp" ] && return 0
    # The compile commands are GCC's, with warnings that clang does not know.
    if findings=$(clang-tidy -p "$BUILD" --quiet --extra-arg=-Wno-unknown-warning-option "$1" 2>/dev/null); then
        touch "$stamp"
    else
        echo "$findings"
        return 1
    fi
}
export -f check

files=$(find src tools -name '*.cpp' | sort)
# shellcheck disable=SC2016 # the inner shell expands
xargs -P "$(nproc)" -n 1 bash -c 'check "$1"' check <<<"$files"
echo "$(wc -l <<<"$files") files without findings"
