// Prints what the runner measured as one table: per shape, every contender's
// time and instructions per operation and per unit, its heap allocations, and
// then the paired-round ratios with the targets they must reach.
#ifndef TARN_BENCH_REPORT_H
#define TARN_BENCH_REPORT_H

#include <map>
#include <string>
#include <vector>

#include "contenders.h"
#include "runner.h"

namespace tarn_bench {

// Returns the number of targets missed (ratios, and allocations of module rows).
int printReport(const Runner& runner_, const std::vector<Comparison>& comparisons_,
                const std::map<std::string, std::string>& shapeNotes_);

}  // namespace tarn_bench

#endif
