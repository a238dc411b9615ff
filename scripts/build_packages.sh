#!/bin/sh
# Builds the Debian packages into build/packages. Usage: scripts/build_packages.sh [arm64]
# Without an argument for this machine; for arm64 with the dependencies of the native package, which
# must have been built before.
set -eu
cd "$(dirname "$0")/.."
scripts/install_dependencies.sh build package

architecture=$(dpkg --print-architecture)
version=$(dpkg-parsechangelog -l packaging/debian/changelog -S Version)
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l packaging/debian/changelog -S Timestamp)
export SOURCE_DATE_EPOCH # the same sources make the same packages
grep -q "^project(.* VERSION $version " CMakeLists.txt ||
    { echo "$0: the changelog is of another version than the project" >&2; exit 1; }

preset=release
dependencies=
libraries=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
if [ "${1:-$architecture}" != "$architecture" ]; then
    [ "$1" = arm64 ] || { echo "usage: $0 [arm64]" >&2; exit 2; }
    scripts/install_dependencies.sh cross
    scripts/make_arm64_sysroot.sh
    dependencies=$(dpkg-deb -f "build/packages/si5351-clock-service_${version}_$architecture.deb" Depends)
    architecture=arm64
    preset=aarch64
    libraries=lib/aarch64-linux-gnu
fi

# Debian's flags for hardened programs; without debug information, which the packages do not carry.
flags() {
    DEB_HOST_ARCH=$architecture DEB_BUILD_MAINT_OPTIONS=hardening=+all DEB_CXXFLAGS_MAINT_STRIP=-g \
        dpkg-buildflags --get "$1"
}
folder=build/package_$architecture
cmake --preset "$preset" -B "$folder" -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=None \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="$libraries" \
    -DCMAKE_CXX_FLAGS="$(flags CXXFLAGS) $(flags CPPFLAGS)" \
    -DCMAKE_EXE_LINKER_FLAGS="$(flags LDFLAGS)" \
    ${dependencies:+-DSERVICE_DEPENDS="$dependencies"} >/dev/null
cmake --build "$folder"
(cd "$folder" && cpack)
