#!/bin/sh
# Builds the fuzzers and runs each from its seeds. Usage: fuzz/run.sh [seconds, default 20] [name...]
# What a fuzzer finds stays in build/fuzz/found as name.crash-*; what it learns, in build/fuzz/corpus.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-20}
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || set -- console wan_page
scripts/install_dependencies.sh build fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

export UBSAN_OPTIONS=print_stacktrace=1
for name in "$@"; do
    corpus=build/fuzz/corpus/$name
    mkdir -p "$corpus" build/fuzz/found
    echo "== fuzz $name, $seconds s"
    log=build/fuzz/$name.log
    tests/in_sandbox.sh "build/fuzz/bin/${name}_fuzz" -max_total_time="$seconds" -timeout=10 \
        -max_len=4096 -rss_limit_mb=1024 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/found/$name." "$corpus" "fuzz/seeds/$name" >"$log" 2>&1 ||
        { tail -n 100 "$log" >&2; exit 1; }
    grep -E 'DONE|number_of_executed_units|peak_rss' "$log"
done
