#!/bin/sh
# Unpacks the arm64 packages over the libraries that a board has, builds the client programs for it,
# and lets the service and a client run under emulation.
set -eu
cd "$(dirname "$0")/../.."
project=$PWD
. tests/packages/common.sh

root=$project/build/arm64_sysroot
cover "$root" "$root"
for package in build/packages/*_arm64.deb; do
    dpkg-deb -x "$package" "$root"
done

echo "-- client programs"
PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_LIBDIR=$root/usr/lib/aarch64-linux-gnu/pkgconfig \
    CLIENT_ROOT=$root CXXFLAGS=-Wl,-rpath-link,$root/usr/lib/aarch64-linux-gnu \
    sh tests/packages/client.sh arm64 /mnt/player -DCMAKE_TOOLCHAIN_FILE="$project/cmake/aarch64.cmake"
file -b /mnt/player/plugin.so "$root/usr/sbin/si5351_app" | cut -d, -f 1,2

echo "-- under emulation"
mkdir -p "$root/tmp" "$root/var/log" "$root/dev" "$root/proc" "$root/usr/bin"
cp "$(command -v qemu-aarch64-static)" /mnt/player/by_pkg_config /mnt/player/build/by_cmake "$root/usr/bin"
mount --rbind /dev "$root/dev"
mount -t proc proc "$root/proc"
ip link set lo up
emulate() {
    chroot "$root" /usr/bin/qemu-aarch64-static "$@"
}
emulate /usr/sbin/si5351_app &
service=$!
for client in "by_pkg_config 2 80 1" "by_cmake 1 -80 1"; do
    # shellcheck disable=SC2086 # program and arguments
    emulate /usr/bin/${client} || fail "$client"
done
[ "$(grep -c 'Unable to send data' "$root/var/log/si5351_app.log")" -ge 103 ] || fail "bring-up"
cat "$root/tmp/genlock.json"
echo
kill -0 $service || fail "the service ended by itself"
kill $service
