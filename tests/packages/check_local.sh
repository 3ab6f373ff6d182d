#!/usr/bin/env bash
# Installs into an empty /usr/local, seen by this test alone: everything works without another step. Into a folder that
# the run-time linker does not know the tool still runs, and the installation says what other programs need.
# usage: check_local.sh BUILD_DIRECTORY SOURCE_ROOT
set -euo pipefail
if [ "${TORVANE_INSIDE:-}" != yes ]; then
    alone=(--mount --propagation private)
    [ "$(id -u)" -eq 0 ] || alone+=(--map-root-user)
    TORVANE_INSIDE=yes exec unshare "${alone[@]}" bash "$0" "$@"
fi
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
unset LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH PYTHONPATH MANPATH DESTDIR
scratch=$(mktemp -d)
trap 'umount "$scratch"; rmdir "$scratch"' EXIT
mount -t tmpfs tmpfs "$scratch"
mkdir "$scratch"/{upper,work,local,cache,programs}
mount --bind "$scratch/local" /usr/local
mount --bind "$scratch/cache" /var/cache/ldconfig
# ldconfig writes its cache beside the old one.
mount -t overlay overlay -o "lowerdir=/etc,upperdir=$scratch/upper,workdir=$scratch/work" /etc
trap 'umount /etc /var/cache/ldconfig /usr/local "$scratch"; rmdir "$scratch"' EXIT

cmake --install "$1" --prefix /usr/local >"$scratch/log"
if grep -E 'ldconfig|LD_LIBRARY_PATH' "$scratch/log"; then
    echo "the installation asks for another step"
    exit 1
fi
cp "$2"/tests/abi/consumer/* "$scratch/programs"
sh "$2/tests/packages/installed" "$scratch/programs" /usr/local/share/doc/torvane/html
cmake --install "$1" --prefix "$scratch/elsewhere" >"$scratch/log"
grep -F "LD_LIBRARY_PATH=$scratch/elsewhere/lib" "$scratch/log"
rm -r "${scratch:?}/local/lib"
ldconfig
"$scratch/elsewhere/bin/torvane" --version
