#include "report.h"

#include <algorithm>
#include <cstdio>

namespace tarn_bench {
namespace {

// The name a run was registered under, without the suffixes the library adds.
std::string baseName(const std::string& name_) { return name_.substr(0, name_.find('/')); }

double median(std::vector<double> values_) {
  std::sort(values_.begin(), values_.end());
  const size_t n = values_.size();
  return n % 2 ? values_[n / 2] : (values_[n / 2 - 1] + values_[n / 2]) / 2;
}

const Collector::Result* find(const Collector& collector_, const std::string& key_) {
  auto it = collector_.results().find(key_);
  return it == collector_.results().end() ? nullptr : &it->second;
}

// Median nanoseconds per operation, or a negative value when the row has none.
double nsPerOp(const Collector& collector_, const std::string& key_) {
  const Collector::Result* r = find(collector_, key_);
  if (r == nullptr || !r->error.empty() || r->nsPerOp.empty()) return -1;
  return median(r->nsPerOp);
}

std::string ratioText(double ratio_) {
  char text[32];
  std::snprintf(text, sizeof text, ratio_ >= 10 ? "%.1fx" : "%.2fx", ratio_);
  return text;
}

void rule() { std::printf("%s\n", std::string(100, '-').c_str()); }

}  // namespace

bool Collector::ReportContext(const Context&) { return true; }

void Collector::ReportRuns(const std::vector<Run>& runs_) {
  for (const Run& run : runs_) {
    if (run.run_type != Run::RT_Iteration) continue;
    Result& r = _results[baseName(run.benchmark_name())];
    if (run.error_occurred) {
      r.error = run.error_message;
      continue;
    }
    // Every benchmark reports in nanoseconds (set at registration).
    r.nsPerOp.push_back(run.GetAdjustedCPUTime());
    auto it = run.counters.find("allocs");
    if (it != run.counters.end()) r.allocsPerOp = std::max(r.allocsPerOp, it->second.value);
  }
  std::fputc('.', stderr);
  std::fflush(stderr);
}

int printTable(const std::vector<Row>& rows_, const std::vector<Target>& targets_,
               const std::map<std::string, std::string>& shapeNotes_, const Collector& collector_) {
  int missed = 0;
  int checked = 0;
  std::fputc('\n', stderr);
  std::printf("%-8s %-9s %-26s %9s %10s  %-26s %8s %7s %s\n", "shape", "op", "contender", "MB/s",
              "allocs/op", "module vs", "ratio", "target", "met");
  std::string lastShape;
  for (const Row& row : rows_) {
    if (find(collector_, row.key) == nullptr) continue;
    if (row.shape != lastShape) {
      rule();
      lastShape = row.shape;
      auto note = shapeNotes_.find(row.shape);
      if (note != shapeNotes_.end())
        std::printf("%s: %s\n", row.shape.c_str(), note->second.c_str());
    }
    const Collector::Result* r = find(collector_, row.key);
    const double ns = nsPerOp(collector_, row.key);
    char speed[32] = "-";
    char allocs[32] = "-";
    if (ns > 0) {
      std::snprintf(speed, sizeof speed, "%.1f", row.bytesPerOp / ns * 1e3);
      std::snprintf(allocs, sizeof allocs, "%.2f", r->allocsPerOp);
    } else if (r != nullptr && !r->error.empty()) {
      std::snprintf(speed, sizeof speed, "n/a");
    }
    std::printf("%-8s %-9s %-26s %9s %10s", row.shape.c_str(), row.op.c_str(),
                row.contender.c_str(), speed, allocs);
    if (row.module) {
      ++checked;
      const bool clean = ns > 0 && r->allocsPerOp == 0;
      if (!clean) ++missed;
      std::printf("  %-26s %8s %7s %s", "(heap allocations)", ns > 0 ? allocs : "-", "0",
                  clean ? "yes" : "NO");
    }
    if (r != nullptr && !r->error.empty()) std::printf("  [%s]", r->error.c_str());
    std::printf("\n");
    for (const Target& t : targets_) {
      if (t.key != row.key) continue;
      ++checked;
      const double peer = nsPerOp(collector_, t.peerKey);
      const bool have = ns > 0 && peer > 0;
      const double ratio = have ? peer / ns : 0;
      const bool met = have && ratio >= t.minRatio;
      if (!met) ++missed;
      std::printf("%-8s %-9s %-26s %9s %10s  %-26s %8s %7s %s\n", "", "", "", "", "",
                  t.peerLabel.c_str(), have ? ratioText(ratio).c_str() : "-",
                  ratioText(t.minRatio).c_str(), met ? "yes" : "NO");
    }
  }
  rule();
  std::printf(
      "MB/s: message bytes per second of CPU time, median of the repetitions. ratio: how\n"
      "many times faster the module row is than the peer (peer time / module time).\n");
  std::printf("targets met: %d of %d\n", checked - missed, checked);
  return missed;
}

}  // namespace tarn_bench
