#!/bin/sh
# Makes build/arm64_sysroot: what the cross build links with, and what its programs run on. Debian's
# log4cpp -dev package cannot be installed for two architectures at a time, so all lies in a folder.
set -eu
cd "$(dirname "$0")/.."
exec scripts/unpack_packages.sh arm64 build/arm64_sysroot \
    libc6 libgcc-s1 libstdc++6 liblog4cpp5v5 liblog4cpp5-dev libgtest-dev \
    libcli11-dev libncurses-dev libncursesw6 libtinfo6 nlohmann-json3-dev
