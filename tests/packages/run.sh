#!/bin/sh
# Builds the Debian packages and checks of them what no board shows: lintian, manual pages, links
# between documents, limits of the unit, programs built with the libraries, a private prefix.
set -eu
cd "$(dirname "$0")/../.."
scripts/install_dependencies.sh build cross package
rm -rf build/packages build/unpacked build/trial
scripts/build_packages.sh
scripts/build_packages.sh arm64
fail() {
    echo "FAILED: $*" >&2
    exit 1
}

libraries=$(cd packaging && echo *.pc.in | sed 's/\.pc\.in//g')

# build_with_each HEADERS COMPILER...: all headers, and each library whole and with all it asks for,
# in a shared object, as the plug-ins of audio programs are.
build_with_each() {
    headers=$1
    shift
    (cd "$headers" && find . -name '*.h' | sed 's|^\./\(.*\)|#include <\1>|') >build/trial/all.cpp
    for library in $libraries; do
        # shellcheck disable=SC2046 # a list of options
        "$@" -std=c++17 -Wall -Wextra -Werror -shared -fPIC -Wl,-z,defs -o build/trial/all.so \
            $(pkg-config --cflags "$library") build/trial/all.cpp \
            -Wl,--whole-archive $(pkg-config --libs "$library") -Wl,--no-whole-archive
        echo "$1: $library"
    done
}

echo "== lintian"
lintian --allow-root --fail-on error,warning --tag-display-limit 0 build/packages/*.deb
cp -al build/arm64_sysroot build/unpacked
for package in build/packages/*_arm64.deb; do dpkg-deb -x "$package" build/unpacked; done
mkdir -p build/trial

echo "== documents"
for page in build/unpacked/usr/share/man/man*/*; do
    warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >build/trial/page)
    [ -z "$warnings" ] || fail "man $page: $warnings"
    [ -s build/trial/page ] || fail "man $page shows nothing"
done
for text in build/unpacked/usr/share/doc/si5351-clock-service*/*.md; do
    grep -o '](\([^)#:]*\))' "$text" | tr -d '()]' | while read -r link; do
        [ -e "${text%/*}/$link" ] || fail "$text has a link to $link, which is in another package"
    done
done

echo "== unit"
systemd-analyze security --offline=true --threshold=20 >build/trial/unit \
    build/unpacked/usr/lib/systemd/system/si5351_app.service || fail "$(tail -n 1 build/trial/unit)"

echo "== programs with the libraries"
(
    export PKG_CONFIG_SYSROOT_DIR="$PWD/build/unpacked"
    export PKG_CONFIG_LIBDIR="$PWD/build/unpacked/usr/lib/aarch64-linux-gnu/pkgconfig"
    build_with_each build/unpacked/usr/include/si5351 \
        aarch64-linux-gnu-g++ -Wl,-rpath-link,build/unpacked/usr/lib/aarch64-linux-gnu
)

echo "== private prefix"
prefix=$PWD/build/trial/prefix
architecture=$(dpkg --print-architecture)
cmake --install "build/package_$architecture" --prefix "$prefix" >/dev/null
grep -q "^ExecStart=$prefix/sbin/si5351_app$" "$prefix/lib/systemd/system/si5351_app.service" ||
    fail "the unit names another program"
[ -f "$prefix/config/logconf/si5351_app.conf" ] || fail "the logging file is not in the prefix"
PKG_CONFIG_PATH=$(echo "$prefix"/lib/*/pkgconfig)
export PKG_CONFIG_PATH
build_with_each "$prefix/include/si5351" g++
awk '/^```/ { fence++; next } fence == 1' docs/genlock.md >build/trial/newcomer.cpp
cat >build/trial/CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(player LANGUAGES CXX)
add_executable(player $prefix/share/doc/si5351-clock-service-dev/examples/fifo_follower.cpp)
add_executable(newcomer newcomer.cpp)
foreach(library $libraries)
    find_package(\${library} REQUIRED)
    target_link_libraries(player PRIVATE \${library}::\${library})
    target_link_libraries(newcomer PRIVATE \${library}::\${library})
endforeach()
END
cmake -S build/trial -B build/trial/player -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build/trial/player
