#!/bin/sh
# Builds and runs the service under three clients, a console user and a failing bus, with every result
# checked. Usage: tests/soak.sh [commands, default 10000000]; 20,000 commands take about a second.
set -eu
cd "$(dirname "$0")/.."
scripts/install_dependencies.sh build test
cmake --preset release -DBUILD_TESTING=ON >/dev/null
cmake --build --preset release
SOAK_COMMANDS=${1:-10000000} exec tests/in_sandbox.sh build/bin/soak
