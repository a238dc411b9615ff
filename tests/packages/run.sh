#!/bin/sh
# Builds the Debian packages and checks them the way a user meets them, in a private copy of this
# system's root: lintian, installation, systemd, manual pages, a client program of one's own, the
# arm64 packages under emulation, removal. Needs root, which the copy and its systemd take.
set -eu
cd "$(dirname "$0")/../.."
scripts/install_dependencies.sh build test cross package
rm -rf build/packages
scripts/build_packages.sh
scripts/build_packages.sh arm64

echo "== lintian"
lintian --allow-root --fail-on error,warning --tag-display-limit 0 build/packages/*.deb
echo "lintian: no error, no warning"
as_root=
[ "$(id -u)" -eq 0 ] || as_root=sudo
for checks in native arm64; do
    echo "== installed packages, $checks"
    $as_root unshare --mount --net --pid --fork --kill-child "tests/packages/$checks.sh"
done
