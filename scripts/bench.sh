#!/usr/bin/env bash
# Builds the benchmarks in Release (in build-bench) and prints one table: per
# message shape and operation, the time, instructions (where the kernel has a
# hardware counter) and heap allocations of the module and of its peers, with
# the ratios the module must reach, all from one run of interleaved rounds.
# Extra arguments go to the benchmark binary (--rounds=N, --sample-ms=X,
# --filter=TEXT). TARN_BASELINE_MODULE=path/to/another/build.so times that
# build of the module beside this one; build it in Release, as this script
# builds the module, since a baseline built otherwise (RelWithDebInfo's -O2,
# say) skews every module / baseline ratio. --build-only stops after the build
# (of this benchmark and of scripts/bench-contexts.sh's).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=Release -DTARN_BUILD_BENCH=ON \
  -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_TOOLS=OFF >/dev/null
cmake --build "$root/build-bench" -j "$(nproc)" --target tarn_bench tarn_context_bench >/dev/null
[ "${1:-}" != --build-only ] || exit 0
exec "$root/build-bench/bench/tarn_bench" "$@"
