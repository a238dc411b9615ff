#!/bin/sh
# Installs what is missing, builds, and prints the benchmarks' tables. The service runs in namespaces
# of its own, with a /config of its own. Usage: scripts/bench.sh [IDLE_SECONDS], default 60.
set -eu
cd "$(dirname "$0")/.."

# A folder for the logging file must be there to be covered; without the right to make it, the
# comparison would measure another set-up than it says.
if [ ! -d /config ]; then
    mkdir /config 2>/dev/null ||
        { echo "$0: the folder /config is missing; as root: mkdir /config" >&2 && exit 1; }
    trap 'rmdir /config' EXIT
    trap 'exit 1' HUP INT TERM # sh ends on these without EXIT
fi
scripts/install_dependencies.sh build test bench
cmake --preset release -B build/bench -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
    -DBUILD_BENCHMARKS=ON >/dev/null
cmake --build build/bench
bin=$PWD/build/bench/bin
tests/in_sandbox.sh "$bin/engine_bench" --benchmark_min_time=0.2
tests/in_sandbox.sh sh -c 'mkdir -p /config/logconf && exec "$@"' sh \
    "$bin/end_to_end" "$bin/si5351_app_null" "$bin/bare_echo" "$bin/bare_process" "${1:-60}"
strip -o "$bin/si5351_app.stripped" "$bin/si5351_app"
echo "Stripped program: $(stat -c %s "$bin/si5351_app.stripped") bytes"
