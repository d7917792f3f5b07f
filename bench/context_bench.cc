// What creating contexts costs, against libprotobuf's Importer alone doing the
// same imports and look-ups: time, heap and allocations for one context of a
// large root, many contexts of one type and many distinct roots that share
// types, with the targets each must meet. Every run starts from a fresh
// module or Importer in a child process of its own; rounds interleave the two
// sides (each round starting with the other one) and the table shows medians
// over rounds, ratios taken within each round. Under callgrind nothing is
// timed: each run dumps its instruction counts after the first context and
// after the rest (scripts/bench-contexts.sh --instructions reads them).
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/valgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "context_workloads.h"

namespace {

using tarn_bench::RunFigures;
using tarn_bench::Side;
using tarn_bench::Workload;

// Runs one workload on one side in a child process and returns its figures.
RunFigures runApart(Side side_, const Workload& workload_, const std::string& label_) {
  int fds[2];
  if (pipe(fds) != 0) return RunFigures();
  const pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    RunFigures figures;
    try {
      figures = tarn_bench::runWorkload(side_, workload_, label_);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s: %s\n", label_.c_str(), e.what());
    }
    const ssize_t written = write(fds[1], &figures, sizeof figures);
    _exit(written == static_cast<ssize_t>(sizeof figures) ? 0 : 1);
  }
  close(fds[1]);
  RunFigures figures;
  if (child < 0 || read(fds[0], &figures, sizeof figures) != static_cast<ssize_t>(sizeof figures))
    figures = RunFigures();
  close(fds[0]);
  if (child > 0) waitpid(child, nullptr, 0);
  return figures;
}

double median(std::vector<double> values_) {
  if (values_.empty()) return 0;
  std::sort(values_.begin(), values_.end());
  const size_t n = values_.size();
  return n % 2 ? values_[n / 2] : (values_[n / 2 - 1] + values_[n / 2]) / 2;
}

struct Rounds {
  std::vector<RunFigures> module, importer;
};

double medianOf(const std::vector<RunFigures>& runs_,
                const std::function<double(const RunFigures&)>& figure_) {
  std::vector<double> values;
  for (const RunFigures& r : runs_) values.push_back(figure_(r));
  return median(values);
}

double medianRatio(const Rounds& rounds_, const std::function<double(const RunFigures&)>& figure_) {
  std::vector<double> ratios;
  for (size_t i = 0; i < rounds_.module.size(); ++i) {
    const double below = figure_(rounds_.importer[i]);
    if (below > 0) ratios.push_back(figure_(rounds_.module[i]) / below);
  }
  return median(ratios);
}

double totalSeconds(const RunFigures& r_) { return r_.firstSeconds + r_.restSeconds; }
double totalHeap(const RunFigures& r_) { return static_cast<double>(r_.firstHeap + r_.restHeap); }

std::string withUnit(double value_, const char* const units_[], const double steps_[], int n_) {
  int u = 0;
  while (u + 1 < n_ && std::abs(value_) >= steps_[u + 1]) ++u;
  char text[64];
  std::snprintf(text, sizeof text, "%.4g %s", value_ / steps_[u], units_[u]);
  return text;
}

std::string seconds(double s_) {
  static const char* const units[] = {"us", "ms", "s"};
  static const double steps[] = {1e-6, 1e-3, 1};
  return withUnit(s_, units, steps, 3);
}

std::string bytes(double b_) {
  static const char* const units[] = {"B", "KB", "MB"};
  static const double steps[] = {1, 1024, 1024 * 1024};
  return withUnit(b_, units, steps, 3);
}

const char* verdict(bool met_) { return met_ ? "met" : "MISSED"; }

void report(const Workload& workload_, const Rounds& rounds_) {
  const size_t n = workload_.contexts.size();
  const double further = n > 1 ? static_cast<double>(n - 1) : 1;
  std::printf("| %s | ", workload_.name.c_str());
  for (const std::vector<RunFigures>* side : {&rounds_.module, &rounds_.importer}) {
    std::printf("%s, %s, %.0f allocs | ", seconds(medianOf(*side, totalSeconds)).c_str(),
                bytes(medianOf(*side, totalHeap)).c_str(),
                medianOf(*side, [](const RunFigures& r_) {
                  return static_cast<double>(r_.firstAllocations + r_.restAllocations);
                }));
  }
  std::printf("%.2fx | ", medianRatio(rounds_, totalSeconds));
  if (n > 1) {
    for (const std::vector<RunFigures>* side : {&rounds_.module, &rounds_.importer}) {
      std::printf(
          "%s, %s, %.1f allocs | ",
          seconds(medianOf(*side, [&](const RunFigures& r_) { return r_.restSeconds / further; }))
              .c_str(),
          bytes(medianOf(*side,
                         [&](const RunFigures& r_) {
                           return static_cast<double>(r_.restHeap) / further;
                         }))
              .c_str(),
          medianOf(*side, [&](const RunFigures& r_) {
            return static_cast<double>(r_.restAllocations) / further;
          }));
    }
  } else {
    std::printf("- | - | ");
  }
  std::vector<double> beyond;
  for (size_t i = 0; i < rounds_.module.size(); ++i)
    beyond.push_back((totalHeap(rounds_.module[i]) - totalHeap(rounds_.importer[i])) /
                     static_cast<double>(n));
  std::printf("%s |\n", bytes(median(beyond)).c_str());
}

void targets(const Workload& large_, const Rounds& largeRounds_, const Workload& same_,
             const Rounds& sameRounds_, const std::vector<std::pair<Workload, Rounds>>& shared_) {
  const double ratio = medianRatio(largeRounds_, totalSeconds);
  std::printf("\nTargets:\n- %s: module time within 1.1x of the Importer's: %.2fx, %s\n",
              large_.name.c_str(), ratio, verdict(ratio <= 1.1));
  const double further = static_cast<double>(same_.contexts.size() - 1);
  const double time =
      medianOf(sameRounds_.module, [&](const RunFigures& r_) { return r_.restSeconds / further; });
  const double heap = medianOf(sameRounds_.module, [&](const RunFigures& r_) {
    return static_cast<double>(r_.restHeap) / further;
  });
  std::printf("- %s: each context after the first at most 10 us and 1 KB: %s, %s, %s\n",
              same_.name.c_str(), seconds(time).c_str(), bytes(heap).c_str(),
              verdict(time <= 10e-6 && heap <= 1024));
  for (const auto& [workload, rounds] : shared_) {
    std::vector<double> beyond;
    for (size_t i = 0; i < rounds.module.size(); ++i)
      beyond.push_back((totalHeap(rounds.module[i]) - totalHeap(rounds.importer[i])) /
                       static_cast<double>(workload.contexts.size()));
    const double b = median(beyond);
    std::printf("- %s: at most 4 KB of heap per context beyond the Importer: %s, %s\n",
                workload.name.c_str(), bytes(b).c_str(), verdict(b <= 4096));
  }
}

}  // namespace

int main(int argc_, char** argv_) {
  int rounds = 7;
  std::string filter;
  for (int i = 1; i < argc_; ++i) {
    if (std::strncmp(argv_[i], "--rounds=", 9) == 0) {
      rounds = std::max(1, std::atoi(argv_[i] + 9));
    } else if (std::strncmp(argv_[i], "--filter=", 9) == 0) {
      filter = argv_[i] + 9;
    } else {
      std::fprintf(stderr, "usage: tarn_context_bench [--rounds=N] [--filter=TEXT]\n");
      return 2;
    }
  }
  const bool underCallgrind = RUNNING_ON_VALGRIND != 0;
  if (underCallgrind) rounds = 1;
  tarn_bench::WorkloadSchemas schemas;
  std::vector<Workload> workloads = {
      schemas.largeRoot(),         schemas.sameType(10),
      schemas.sameType(100),       schemas.sameType(1000),
      schemas.distinctRoots(10),   schemas.distinctRoots(300),
      schemas.distinctRoots(1000), schemas.rootsOverSharedTypes(1000)};
  std::vector<Rounds> results(workloads.size());
  for (int r = 0; r < rounds; ++r) {
    for (size_t w = 0; w < workloads.size(); ++w) {
      if (!filter.empty() && workloads[w].name.find(filter) == std::string::npos) continue;
      const Side order[2] = {r % 2 ? Side::importer : Side::module,
                             r % 2 ? Side::module : Side::importer};
      for (Side side : order) {
        const std::string label = "ctx|" + std::to_string(w) + "|" + workloads[w].name + "|" +
                                  tarn_bench::sideName(side) + "|" +
                                  std::to_string(workloads[w].contexts.size());
        const RunFigures figures = runApart(side, workloads[w], label);
        if (!figures.ok) {
          std::fprintf(stderr, "%s failed\n", label.c_str());
          return 1;
        }
        (side == Side::module ? results[w].module : results[w].importer).push_back(figures);
      }
    }
  }
  if (underCallgrind) return 0;
  std::printf(
      "Context creation, %d rounds, medians (time: thread CPU time; heap: mallinfo2 "
      "bytes in use, every context kept)\n\n",
      rounds);
  std::printf(
      "| workload | module: time, heap, allocations | Importer alone | time ratio | "
      "module, each context after the first | Importer, each after the first | "
      "module heap beyond the Importer, per context |\n|---|---|---|---|---|---|---|\n");
  for (size_t w = 0; w < workloads.size(); ++w)
    if (!results[w].module.empty()) report(workloads[w], results[w]);
  if (!filter.empty()) return 0;
  std::vector<std::pair<Workload, Rounds>> shared;
  for (size_t w : {5, 6, 7}) shared.emplace_back(workloads[w], results[w]);
  targets(workloads[0], results[0], workloads[3], results[3], shared);
  return 0;
}
