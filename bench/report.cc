#include "report.h"

#include <algorithm>
#include <cstdio>

namespace tarn_bench {
namespace {

int find(const Runner& runner_, const std::string& key_) {
  const auto& all = runner_.contenders();
  for (size_t i = 0; i < all.size(); ++i)
    if (all[i].key() == key_) return static_cast<int>(i);
  return -1;
}

std::string number(double value_, const char* format_ = "%.1f") {
  if (value_ < 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, format_, value_);
  return text;
}

std::string ratio(double value_) {
  if (value_ <= 0) return "-";
  return number(value_, value_ >= 10 ? "%.1fx" : "%.2fx");
}

void rule() { std::printf("%s\n", std::string(104, '-').c_str()); }

}  // namespace

int printReport(const Runner& runner_, const std::vector<Comparison>& comparisons_,
                const std::map<std::string, std::string>& shapeNotes_) {
  const bool instructions = runner_.haveInstructions();
  int checked = 0, missed = 0;
  double worstApart = 0;  // between the ratios of the even and the odd rounds
  std::string worst;
  std::printf("%-9s %-40s %11s %12s %10s %9s  %s\n", "op", "contender", "ns/op", "ns/unit",
              "instr/unit", "allocs/op", "");
  const auto& all = runner_.contenders();
  std::string shape;
  auto printComparisons = [&](const std::string& shape_) {
    bool header = false;
    for (const Comparison& c : comparisons_) {
      if (c.shape != shape_) continue;
      const int a = find(runner_, c.key);
      std::vector<int> over;
      for (const std::string& k : c.over) over.push_back(find(runner_, k));
      const double time = runner_.ratio(a, over, false);
      if (time < 0) continue;  // filtered out
      const double count = instructions ? runner_.ratio(a, over, true) : -1;
      const double even = runner_.ratio(a, over, false, 0), odd = runner_.ratio(a, over, false, 1);
      if (even > 0 && odd > 0) {
        const double apart = std::max(even, odd) / std::min(even, odd) - 1;
        if (apart > worstApart) {
          worstApart = apart;
          worst = c.label + " on " + c.shape;
        }
      }
      if (!header) {
        std::printf("  %-56s %9s %9s %9s %s\n", "ratios, median of paired rounds", "time", "instr",
                    "target", "met");
        header = true;
      }
      std::string target = "", met = "";
      if (c.limit > 0) {
        ++checked;
        auto ok = [&c](double v_) { return v_ > 0 && (c.atMost ? v_ <= c.limit : v_ >= c.limit); };
        const bool good = ok(time) && (count < 0 || ok(count));
        if (!good) ++missed;
        target = (c.atMost ? "<= " : ">= ") + ratio(c.limit);
        met = good ? "yes" : "NO";
      }
      std::printf("  %-56s %9s %9s %9s %s\n", c.label.c_str(), ratio(time).c_str(),
                  ratio(count).c_str(), target.c_str(), met.c_str());
    }
  };
  // By shape in the order they came, then by operation, then as registered.
  std::vector<int> order;
  for (size_t i = 0; i < all.size(); ++i) {
    bool seen = false;
    for (int j : order) seen = seen || all[j].shape == all[i].shape;
    if (seen) continue;
    for (const char* op : {"parse", "trace", "merge", "serialize"})
      for (size_t k = i; k < all.size(); ++k)
        if (all[k].shape == all[i].shape && all[k].op == op) order.push_back(static_cast<int>(k));
  }
  for (int index : order) {
    const Contender& c = all[index];
    if (c.shape != shape) {
      if (!shape.empty()) printComparisons(shape);
      rule();
      shape = c.shape;
      auto note = shapeNotes_.find(shape);
      std::printf("%s: %s\n", shape.c_str(), note == shapeNotes_.end() ? "" : note->second.c_str());
    }
    const double ns = runner_.median(index, false);
    const double count = instructions ? runner_.median(index, true) : -1;
    const double allocations = runner_.measured(index).allocations;
    std::string flag;
    if (c.module) {
      ++checked;
      if (allocations != 0) {
        ++missed;
        flag = "NO: the module allocated";
      }
    }
    const std::string perUnit = number(ns / c.units, "%.2f") + "/" + c.unit;
    std::printf("%-9s %-40s %11s %12s %10s %9s  %s\n", c.op.c_str(), c.label.c_str(),
                number(ns).c_str(), c.unit == "op" ? "" : perUnit.c_str(),
                count < 0 ? "-" : number(count / c.units).c_str(),
                number(allocations, "%.2f").c_str(), flag.c_str());
  }
  if (!shape.empty()) printComparisons(shape);
  rule();
  std::printf(
      "ns: median over rounds of thread CPU time per operation; a ratio is taken within each round "
      "and\n"
      "the median of those is shown. instr: user-space instructions from the hardware counter%s.\n"
      "Module rows must allocate nothing (allocs/op 0).\n",
      instructions ? "" : " (not available here: scripts/bench-instructions.sh counts them)");
  if (!worst.empty())
    std::printf(
        "The even and the odd rounds, taken apart, give time ratios within %.1f%% of each other\n"
        "(widest: %s).\n",
        worstApart * 100, worst.c_str());
  std::printf("targets met: %d of %d\n", checked - missed, checked);
  return missed;
}

}  // namespace tarn_bench
