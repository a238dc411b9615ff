#!/bin/sh
# Installs what is missing, builds, and runs all tests. Usage: ./test.sh [preset], default release.
set -eu
cd "$(dirname "$0")"
preset=${1:-release}
scripts/install_dependencies.sh build test
if [ "$preset" = aarch64 ]; then
    scripts/install_dependencies.sh cross
    scripts/make_arm64_sysroot.sh
fi
cmake --preset "$preset" -DBUILD_TESTING=ON >/dev/null
cmake --build --preset "$preset"
exec ctest --preset "$preset" -j "$(nproc)"
