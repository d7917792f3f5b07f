#!/usr/bin/env bash
# Counts instructions per operation, entry and field of every benchmark
# contender under valgrind's callgrind, which counts deterministically where
# the machine offers no hardware counter (and does not move with the load of
# a shared machine). The benchmark binary sees it runs under valgrind and,
# instead of timing, runs each contender a fixed number of times between
# client requests that zero and dump the counts; this script reads the dumps.
# Arguments go to the benchmark binary (--filter=TEXT, --callgrind-iterations=N);
# TARN_BASELINE_MODULE works as for scripts/bench.sh: the baseline must be built
# in Release, as the benchmark builds the module, or the module / baseline
# ratios compare two optimisation levels. Takes a minute or two.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/bench.sh" --build-only

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
valgrind --tool=callgrind --callgrind-out-file="$out/cg.out" --dump-instr=no --dump-line=no \
  "$root/build-bench/bench/tarn_bench" "$@" >"$out/stdout" 2>"$out/stderr" || {
  cat "$out/stdout" "$out/stderr" >&2
  exit 1
}

# Each dump names its contender: tarn|shape|op|id|label|iterations|units|unit.
for name in $(cd "$out" && ls cg.out.* | sort -t. -k3 -n); do
  f=$out/$name
  desc=$(grep -m1 '^desc: Trigger: Client Request: tarn|' "$f" || true)
  [ -n "$desc" ] || continue
  printf '%s|%s\n' "${desc#desc: Trigger: Client Request: }" "$(grep -m1 '^summary:' "$f" | cut -d' ' -f2)"
done | awk -F'|' '
  function ratio(a, b) { return (a in perOp && b > 0) ? sprintf("%.2fx", perOp[a] / b) : "-" }
  {
    key = $2 "." $3 "." $4
    if (!($2 in seen)) { seen[$2] = 1; shapes[++n] = $2 }
    perOp[key] = $9 / $6
    rows[$2, $3] = rows[$2, $3] sprintf("%-9s %-40s %12.0f %12s\n", $3, $5, perOp[key],
                                $8 == "op" ? "" : sprintf("%.1f/%s", perOp[key] / $7, $8))
  }
  END {
    printf "%-9s %-40s %12s %12s\n", "op", "contender", "instr/op", "instr/unit"
    for (i = 1; i <= n; ++i) {
      s = shapes[i]
      print "----------------------------------------------------------------------------"
      print s
      printf "%s%s%s%s", rows[s, "parse"], rows[s, "trace"], rows[s, "merge"], rows[s, "serialize"]
      print "  ratios of instruction counts"
      floor = perOp[s ".parse.protozero"] + perOp[s ".parse.calls"]
      printf "  %-58s %s\n", "parse: module, null host / (protozero + host calls)", ratio(s ".parse.null", floor)
      printf "  %-58s %s\n", "parse: module, null host / host calls alone", ratio(s ".parse.null", perOp[s ".parse.calls"])
      printf "  %-58s %s\n", "parse: DynamicMessage / module, discarding host", ratio(s ".parse.dynamic", perOp[s ".parse.discard"])
      printf "  %-58s %s\n", "trace: module / protozero + to_chars", ratio(s ".trace.module", perOp[s ".trace.protozero"])
      printf "  %-58s %s\n", "merge: DynamicMessage / module", ratio(s ".merge.dynamic", perOp[s ".merge.module"])
      printf "  %-58s %s\n", "merge: merge walk alone / memcpy of both", ratio(s ".merge.walk", perOp[s ".merge.memcpy"])
      printf "  %-58s %s\n", "serialize: module / memcpy, value by value", ratio(s ".serialize.module", perOp[s ".serialize.pieces"])
      split("parse.null parse.discard parse.store trace.module merge.module merge.walk serialize.module", ids, " ")
      for (j = 1; j <= 7; ++j) {
        split(ids[j], part, ".")
        base = s "." part[1] ".baseline-" part[2]
        if (base in perOp)
          printf "  %-58s %s\n", "module / baseline: " ids[j], ratio(s "." ids[j], perOp[base])
      }
    }
  }'
