# What the scripts need from Debian 12, and its installation. To be sourced; needs bash.

# To build and run library and tool.
build_packages=(cmake g++ ninja-build pkg-config libudev-dev libsmartcols-dev libmount-dev libcli11-dev nlohmann-json3-dev)

# To test them, on emulated machines too.
test_packages=(
    "${build_packages[@]}" ccache clang clang-format clang-tidy libgtest-dev libclang-rt-14-dev python3
    python3-jsonschema python3-prometheus-client python3-clang
    man-db mandoc binutils abigail-tools
    qemu-system-x86 busybox-static cpio kmod udev lsscsi sg3-utils mdadm lvm2 cryptsetup-bin
    tgt open-iscsi pciutils hdparm libbenchmark-dev valgrind strace
    fdisk dosfstools mtools e2fsprogs genisoimage usbutils util-linux procps zstd xz-utils zsh fish dpkg-dev
)

# To measure them: bench/run. What other tools are compared with, when they can be had.
bench_packages=("${build_packages[@]}" libbenchmark-dev valgrind strace qemu-system-x86 busybox-static cpio kmod
    udev fdisk lsscsi util-linux python3)
optional_bench_packages=(smartmontools)

# To build and judge the Debian packages (scripts/packages-test).
package_packages=(
    "${build_packages[@]}" ccache dpkg-dev fakeroot debhelper dh-python lintian mmdebstrap mandoc python3
    python3-clang
)

# require_packages PACKAGE...: installs those that are missing.
require_packages() {
    local package missing=()
    local installed
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null || true)
    for package in "$@"; do
        grep -qx "installed $package" <<<"$installed" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    echo "installing: ${missing[*]}" >&2
    "${as_root[@]}" apt-get update -qq >&2
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -qq -y --no-install-recommends "${missing[@]}" </dev/null >&2
}
