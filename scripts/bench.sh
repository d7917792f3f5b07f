#!/usr/bin/env bash
# Builds the benchmarks in Release (in build-bench) and prints one table: per
# message shape and operation, the MB/s and heap allocations per operation of
# the module and of its peers, with the ratios the module must reach.
# Extra arguments go to the benchmark binary (e.g. --benchmark_filter=market).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=Release -DTARN_BUILD_BENCH=ON \
  -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_TOOLS=OFF >/dev/null
cmake --build "$root/build-bench" -j "$(nproc)" --target tarn_bench >/dev/null
exec "$root/build-bench/bench/tarn_bench" --benchmark_min_time=0.1 --benchmark_repetitions=3 "$@"
