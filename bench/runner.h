// The measuring instrument. Every contender runs once per round, rounds are
// repeated, and each round times every contender with the same iteration
// count it was calibrated to at start-up. Ratios are then taken round by round
// (contender A's time in round r over contender B's time in round r) and the
// median of those ratios is reported, so a slow stretch of this shared machine
// moves both sides of a ratio together instead of one of them.
//
// Beside the time, a round reads the hardware instruction counter where the
// kernel offers one, and the heap allocation counter. Under valgrind's
// callgrind the runner does not time anything: it runs each contender a fixed
// number of times between client requests that zero and dump the counts, and
// scripts/bench-instructions.sh turns the dumps into instructions per unit.
#ifndef TARN_BENCH_RUNNER_H
#define TARN_BENCH_RUNNER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tarn_bench {

// Keeps the compiler from dropping a computed value or a store to memory.
template <typename T>
inline void keep(const T& value_) {
  asm volatile("" : : "r,m"(value_) : "memory");
}

struct Contender {
  std::string shape;
  std::string op;                     // parse, trace, merge, serialize
  std::string id;                     // short name, unique within shape and op
  std::string label;                  // what the table prints
  double units = 1;                   // entries or fields in one operation
  std::string unit;                   // "entry", "field" or "op"
  bool module = false;                // the module's own row: its allocations must be 0
  std::function<void(uint64_t)> run;  // performs the operation n times

  std::string key() const { return shape + "." + op + "." + id; }
};

// Wraps one operation as a contender's loop.
template <typename F>
std::function<void(uint64_t)> repeat(F op_) {
  return [op_](uint64_t n_) mutable {
    for (uint64_t i = 0; i < n_; ++i) op_();
  };
}

// User-space instructions retired by this thread, from perf_event_open.
class InstructionCounter {
 public:
  InstructionCounter();
  ~InstructionCounter();
  InstructionCounter(const InstructionCounter&) = delete;
  InstructionCounter& operator=(const InstructionCounter&) = delete;
  bool available() const { return _fd >= 0; }
  uint64_t read() const;

 private:
  int _fd = -1;
};

struct Measurements {
  uint64_t iterations = 0;           // per round, from calibration
  std::vector<double> ns;            // per operation, one per round
  std::vector<double> instructions;  // per operation, one per round; empty without a counter
  double allocations = 0;            // per operation, over every round
};

class Runner {
 public:
  struct Options {
    int rounds = 15;
    double sampleMs = 4;  // target time of one contender's sample
    std::string filter;   // keep contenders whose key contains it
    uint64_t callgrindIterations = 20;
  };

  explicit Runner(const Options& options_) : _options(options_) {}

  // Returns the contender's index, or -1 when the filter drops it.
  int add(Contender contender_);

  bool underCallgrind() const;
  // Calibrates, then runs the rounds; a dot per round on stderr.
  void run();
  // Runs each contender between callgrind client requests; prints nothing.
  void runUnderCallgrind();

  const std::vector<Contender>& contenders() const { return _contenders; }
  const Measurements& measured(int index_) const { return _measured[index_]; }
  bool haveInstructions() const { return _counter.available(); }

  // Median over rounds of a's time (or instructions) divided by the sum of
  // the others' in the same round. Negative when a value is missing. With
  // parity_ 0 or 1, over the even or the odd rounds only: two halves of one
  // run, whose agreement tells how far a second run would land.
  double ratio(int a_, const std::vector<int>& over_, bool instructions_, int parity_ = -1) const;
  // Median per operation over rounds; negative when missing.
  double median(int index_, bool instructions_) const;

 private:
  void _sample(int index_, uint64_t iterations_, double& ns_, double& instructions_,
               uint64_t& allocations_);

  Options _options;
  std::vector<Contender> _contenders;
  std::vector<Measurements> _measured;
  InstructionCounter _counter;
};

}  // namespace tarn_bench

#endif
