#!/bin/sh
# Installs what is missing, builds, and starts the service over a simulated chip in the foreground.
set -eu
cd "$(dirname "$0")"
scripts/install_dependencies.sh build
cmake --preset release -DBUILD_TESTING=OFF >/dev/null
cmake --build --preset release
exec build/bin/si5351_app_sim
