#!/usr/bin/env bash
# What creating contexts costs against libprotobuf's Importer alone doing the
# same imports and look-ups: builds the benchmarks in Release (in build-bench)
# and prints the table of bench/context_bench.cc with its targets (~10 s).
# Arguments go to the binary (--rounds=N, --filter=TEXT). With --instructions
# first, it runs under valgrind's callgrind instead and prints the instructions
# of the first context and of each further one, per workload and side (the
# counts are deterministic; a minute or two). TARN_MODULE=path/to/another.so
# measures that build of the module.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/bench.sh" --build-only
bin=$root/build-bench/bench/tarn_context_bench
[ "${1:-}" = --instructions ] || exec "$bin" "$@"
shift

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
valgrind --tool=callgrind --callgrind-out-file="$out/cg.%p" --dump-instr=no --dump-line=no \
  "$bin" "$@" >"$out/stdout" 2>"$out/stderr" || {
  cat "$out/stdout" "$out/stderr" >&2
  exit 1
}
# Each dump names its run: ctx|workload number|workload|side|contexts|part.
for f in "$out"/cg.*.*; do
  desc=$(grep -m1 '^desc: Trigger: Client Request: ctx|' "$f" || true)
  [ -n "$desc" ] || continue
  printf '%s|%s\n' "${desc#desc: Trigger: Client Request: }" "$(grep -m1 '^summary:' "$f" | cut -d' ' -f2)"
done | sort -t'|' -k2,2n -k4,4r | awk -F'|' '
  {
    key = $3 "|" $4
    if (!(key in n)) { order[++rows] = key; n[key] = $5 }
    count[key, $6] = $7
  }
  END {
    printf "| workload | side | first context | each further context |\n|---|---|---|---|\n"
    for (i = 1; i <= rows; ++i) {
      k = order[i]; split(k, part, "|")
      further = n[k] > 1 ? sprintf("%.0f", count[k, "rest"] / (n[k] - 1)) : "-"
      printf "| %s | %s | %d | %s |\n", part[1], part[2], count[k, "first"], further
    }
  }'
