#!/bin/sh
# Builds the service and runs it for long against the model, with growth of memory and descriptors
# measured. Usage: tests/soak.sh [rounds of 500 datagrams, default 20000: seven minutes]
set -eu
cd "$(dirname "$0")/.."
scripts/install_dependencies.sh build test
cmake --preset release -DBUILD_TESTING=ON >/dev/null
cmake --build --preset release
RANDOM_ROUNDS=${1:-20000} exec tests/in_sandbox.sh build/bin/service_test --gtest_filter='*WhateverIsSentOrTyped'
