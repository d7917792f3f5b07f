// Collects the benchmark runs and prints them as one table: per shape and
// operation, the throughput and allocations of every contender, and under each
// module row the ratios against its peers with the ratio each must reach.
#ifndef TARN_BENCH_REPORT_H
#define TARN_BENCH_REPORT_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace tarn_bench {

// One benchmark: a contender doing one operation on one shape.
struct Row {
  std::string shape;
  std::string op;
  std::string contender;
  std::string key;    // the benchmark's registered name
  double bytesPerOp;  // what MB/s is counted over
  bool module;        // the module's row: its allocations must be 0
};

// The module row `key` must be at least `minRatio` times as fast as `peerKey`.
struct Target {
  std::string key;
  std::string peerKey;
  std::string peerLabel;
  double minRatio;
};

// Keeps every repetition of every benchmark; prints a dot per run on stderr.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context_) override;
  void ReportRuns(const std::vector<Run>& runs_) override;

  struct Result {
    std::vector<double> nsPerOp;
    double allocsPerOp = 0;
    std::string error;
  };
  const std::map<std::string, Result>& results() const { return _results; }

 private:
  std::map<std::string, Result> _results;
};

// Prints the table to stdout; returns the number of targets missed (ratios
// and allocations together).
// `shapeNotes_` gives a line printed above each shape's rows.
int printTable(const std::vector<Row>& rows_, const std::vector<Target>& targets_,
               const std::map<std::string, std::string>& shapeNotes_, const Collector& collector_);

}  // namespace tarn_bench

#endif
