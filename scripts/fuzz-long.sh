#!/usr/bin/env bash
# Runs the libFuzzer targets of a sanitizer build for a while and fails on the
# first crash, leak, hang or sanitizer report.
#   fuzz-long.sh [--build DIR] [--seconds N | --runs N] [--jobs J [--workers W]]
#                [--seed S] [target...]
# Defaults: build-asan (configured and built if missing), 600 s per target, one
# job, every target. With --jobs J each target runs J processes, W at a time
# (default: J, at most the number of cores), on one shared corpus; --seconds
# and --runs then apply to each process. Many short processes suit the context
# target: the schema pool is process-wide, so every run of one process makes
# its later runs slower (e.g. --runs 10000 --jobs 1000 --workers 2 context). The growing corpus lives in DIR/fuzz-work/<target>; the
# committed seeds in fuzz/corpus/<target> are only read. A crashing input is
# written to DIR/fuzz-work/artifacts/; copy it to fuzz/regressions/<target>/
# so that ctest replays it from then on.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=build-asan
limit=(-max_total_time=600)
jobs=1
workers=0
seed=()
targets=()
while [ $# -gt 0 ]; do
  case $1 in
    --build) build=$2; shift 2 ;;
    --seconds) limit=(-max_total_time="$2"); shift 2 ;;
    --runs) limit=(-runs="$2"); shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    --workers) workers=$2; shift 2 ;;
    --seed) seed=(-seed="$2"); shift 2 ;;
    -*) echo "unknown option $1" >&2; exit 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
[ ${#targets[@]} -gt 0 ] || targets=(parse partial_parse trace merge serialize context)

[ "$workers" -gt 0 ] || workers=$(( jobs < $(nproc) ? jobs : $(nproc) ))
dir="$root/$build"
if [ ! -x "$dir/fuzz/fuzz_${targets[0]}" ]; then
  "$root/scripts/build.sh" "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DTARN_SANITIZE=address,undefined -DTARN_BUILD_FUZZ=ON
fi
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
work="$dir/fuzz-work"
mkdir -p "$work/artifacts" "$work/tmp.$$"
# The context target writes its schema files below TMPDIR; a run stopped by its
# time limit cannot clean up, so they go where this script can.
export TMPDIR="$work/tmp.$$"

status=0
for t in "${targets[@]}"; do
  mkdir -p "$work/$t"
  log="$work/$t.log"
  echo "-- fuzz_$t (${limit[*]}, $jobs job(s), $workers at a time); log $log"
  args=("${limit[@]}" ${seed[@]+"${seed[@]}"} -timeout=10 -rss_limit_mb=4096 -max_len=4096
        -artifact_prefix="$work/artifacts/$t-" -print_final_stats=1)
  # After every input that leaves more allocations than it found, libFuzzer
  # scans the whole heap for leaks. Each context creation does so on purpose
  # (the schema pool keeps what it imported), and that scan took four fifths
  # of the context target's time. Leaks are still looked for at process exit.
  [ "$t" = context ] && args+=(-detect_leaks=0)
  if [ "$jobs" -gt 1 ]; then
    # -jobs writes one fuzz-N.log per job into the working directory and
    # copies each to its own output when the job ends.
    (cd "$TMPDIR" && "$dir/fuzz/fuzz_$t" "${args[@]}" -jobs="$jobs" -workers="$workers" \
       "$work/$t" "$root/fuzz/corpus/$t") >"$log" 2>&1 || status=1
    rm -f "$TMPDIR"/fuzz-*.log
  else
    "$dir/fuzz/fuzz_$t" "${args[@]}" "$work/$t" "$root/fuzz/corpus/$t" >"$log" 2>&1 || status=1
  fi
  grep -h "^Done [0-9]* runs" "$log" |
    awk '{ runs += $2; n++ } END { printf "   %d run(s) in %d process(es)\n", runs, n }'
  if grep -q "ERROR: \|runtime error\|FUZZ CHECK FAILED\|Test unit written" "$log"; then
    status=1
    grep -h -m3 "ERROR: \|runtime error\|FUZZ CHECK FAILED\|Test unit written" "$log" | sed 's/^/   /'
  fi
done
rm -rf "$work/tmp.$$"
[ $status -eq 0 ] || { echo "fuzzing found a problem; inputs in $work/artifacts" >&2; exit 1; }
