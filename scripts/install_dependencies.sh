#!/bin/sh
# Installs the Debian packages that are missing, as root or through sudo.
# Usage: scripts/install_dependencies.sh [build] [test] [check] [bench] [cross] [fuzz] [package]
#        [board] [plot]
set -eu

packages=
for purpose in "$@"; do
    case $purpose in
    build)
        packages="$packages g++ cmake ninja-build pkg-config liblog4cpp5-dev"
        packages="$packages libcli11-dev libncurses-dev nlohmann-json3-dev"
        ;;
    test) packages="$packages libgtest-dev iproute2 util-linux python3-jsonschema" ;;
    check) packages="$packages clang clang-format clang-tidy git shellcheck" ;;
    bench) packages="$packages libbenchmark-dev binutils" ;;
    cross) packages="$packages g++-aarch64-linux-gnu qemu-user-static" ;;
    fuzz) packages="$packages clang libclang-rt-14-dev" ;;
    package) packages="$packages dpkg-dev file lintian man-db systemd" ;;
    board) packages="$packages mmdebstrap" ;;
    plot) packages="$packages gnuplot-nox" ;;
    *)
        echo "usage: $0 [build] [test] [check] [bench] [cross] [fuzz] [package] [board] [plot]" >&2
        exit 2
        ;;
    esac
done

missing=
for package in $packages; do
    state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$state" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=
[ "$(id -u)" -eq 0 ] || as_root=sudo
if [ -n "$as_root" ] && ! command -v sudo >/dev/null; then
    echo "$0: sudo is missing; as root: apt-get install --no-install-recommends$missing" >&2
    exit 1
fi
echo "installing:$missing"
$as_root apt-get update -qq
# shellcheck disable=SC2086 # a list of words
$as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends $missing >/dev/null
