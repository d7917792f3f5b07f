#!/usr/bin/env bash
# tarnpb on a large real message, against protoc --decode of the same file, at
# one and eight times the size: wall time and peak memory of parse, trace,
# merge and serialize, and the ratios, all measured in one run.
#
#   scripts/tool-scaling.sh [BUILD_DIR] [MB] [ROUNDS]
#
# The message is a FileDescriptorSet that protoc builds from the .proto files
# under /usr/include, repeated until it is about MB megabytes (default 9): the
# concatenation of serialized FileDescriptorSets is itself one. It is made in a
# scratch directory and removed afterwards. The machine is shared, so every
# contender runs once per round, in turn, and the median of ROUNDS (default 3)
# is reported; memory is the largest peak resident size seen. With
# INSTRUCTIONS=1 each contender also runs once on the 1x file under
# callgrind, whose instruction counts do not depend on the machine's load (no
# hardware counter is available here); a small MB keeps that quick.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build}
mb=${2:-9}
rounds=${3:-3}
[ -x /usr/bin/time ] || bash "$root/scripts/setup.sh"
[ -x "$root/$build/tools/tarnpb" ] || bash "$root/scripts/build.sh" "$build"
cmake --build "$root/$build" --target tarnpb -j 2 >/dev/null
tarnpb="$root/$build/tools/tarnpb"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
protos=$(cd /usr/include && find . -name '*.proto' | sed 's|^\./||' | sort)
protoc -I/usr/include --include_imports --include_source_info -o "$work/one.pb" $protos
one=$(stat -c %s "$work/one.pb")
copies=$(((mb * 1000000 + one - 1) / one))
for ((i = 0; i < copies; ++i)); do cat "$work/one.pb"; done >"$work/x1.pb"
for ((i = 0; i < 8; ++i)); do cat "$work/x1.pb"; done >"$work/x8.pb"

type=google.protobuf.FileDescriptorSet
schema=(-q --proto /usr/include/google/protobuf/descriptor.proto --type $type)
run() {  # size name command...: one line "size name seconds kilobytes"
  local size=$1 name=$2
  shift 2
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/err" ||
    { echo "$name failed:" >&2; cat "$work/err" >&2; exit 1; }
  echo "$size $name $(cat "$work/time")" >>"$work/results"
}
for size in 1 8; do
  f="$work/x$size.pb"
  # The tree's first line counts the entries; the rest is not read.
  entries=$({ "$tarnpb" parse "${schema[@]}" "$f" || true; } | head -1 |
    sed 's/.*bytes, \([0-9]*\) entries.*/\1/')
  echo "${size}x: $(stat -c %s "$f") bytes, $entries entries"
done
for ((r = 1; r <= rounds; ++r)); do
  for size in 1 8; do
    f="$work/x$size.pb"
    run $size protoc sh -c "protoc -I/usr/include google/protobuf/descriptor.proto --decode=$type <'$f'"
    run $size parse "$tarnpb" parse "${schema[@]}" "$f"
    run $size parse-json "$tarnpb" parse --json "${schema[@]}" "$f"
    run $size trace "$tarnpb" trace "${schema[@]}" "$f"
    run $size merge "$tarnpb" merge "${schema[@]}" -o /dev/null "$f" "$f"
    run $size serialize "$tarnpb" serialize "${schema[@]}" -o /dev/null "$f"
  done
done

if [ "${INSTRUCTIONS:-0}" = 1 ]; then
  count() {  # name command...: instructions executed, from callgrind's summary
    local name=$1
    shift
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>"$work/cg" >/dev/null \
      <"$work/stdin" || { echo "$name failed under callgrind" >&2; exit 1; }
    echo "$name $(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$work/cg")" >>"$work/instructions"
  }
  f="$work/x1.pb"
  cp "$f" "$work/stdin"
  count protoc protoc -I/usr/include google/protobuf/descriptor.proto --decode=$type
  : >"$work/stdin"
  count parse "$tarnpb" parse "${schema[@]}" "$f"
  count parse-json "$tarnpb" parse --json "${schema[@]}" "$f"
  count trace "$tarnpb" trace "${schema[@]}" "$f"
  count merge "$tarnpb" merge "${schema[@]}" -o /dev/null "$f" "$f"
  count serialize "$tarnpb" serialize "${schema[@]}" -o /dev/null "$f"
  awk 'NR == 1 { base = $2 } { printf "%-11s %14d instructions %6.2fx protoc\n", $1, $2, $2 / base }' \
    "$work/instructions"
fi

python3 - "$work/results" <<'EOF'
import statistics, sys
times, peaks = {}, {}
for line in open(sys.argv[1]):
    size, name, seconds, kb = line.split()
    times.setdefault((size, name), []).append(float(seconds))
    peaks[(size, name)] = max(peaks.get((size, name), 0), int(kb))
med = {k: statistics.median(v) for k, v in times.items()}
names = ["protoc", "parse", "parse-json", "trace", "merge", "serialize"]
print(f"{'':11} {'1x time':>8} {'x protoc':>8} {'1x peak':>9} {'8x time':>8} {'x protoc':>8}"
      f" {'8x peak':>9} {'8x/1x t':>8} {'8x/1x m':>8}")
for n in names:
    t1, t8 = med[("1", n)], med[("8", n)]
    m1, m8 = peaks[("1", n)], peaks[("8", n)]
    p1, p8 = med[("1", "protoc")], med[("8", "protoc")]
    print(f"{n:11} {t1:7.2f}s {t1 / p1:7.2f}x {m1 / 1024:7.0f}MB {t8:7.2f}s {t8 / p8:7.2f}x"
          f" {m8 / 1024:7.0f}MB {t8 / t1:7.2f}x {m8 / m1:7.2f}x")
print(f"median of {len(times[('1', 'protoc')])} interleaved rounds; peak = largest resident size")
EOF
