#include "runner.h"

#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host/alloc_counter.h"

namespace tarn_bench {
namespace {

double medianOf(std::vector<double> values_) {
  if (values_.empty()) return -1;
  std::sort(values_.begin(), values_.end());
  const size_t n = values_.size();
  return n % 2 ? values_[n / 2] : (values_[n / 2 - 1] + values_[n / 2]) / 2;
}

// CPU time of this thread: on a shared machine the scheduler may hand the
// core to another process for a whole time slice, which wall time would
// charge to whichever contender was running.
uint64_t nowNs() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<uint64_t>(t.tv_sec) * 1000000000u + static_cast<uint64_t>(t.tv_nsec);
}

}  // namespace

InstructionCounter::InstructionCounter() {
  perf_event_attr attr;
  std::memset(&attr, 0, sizeof attr);
  attr.size = sizeof attr;
  attr.type = PERF_TYPE_HARDWARE;
  attr.config = PERF_COUNT_HW_INSTRUCTIONS;
  attr.exclude_kernel = 1;
  attr.exclude_hv = 1;
  _fd = static_cast<int>(syscall(SYS_perf_event_open, &attr, 0, -1, -1, 0));
  // Some virtual machines open the event but never count.
  if (_fd >= 0) {
    const uint64_t before = read();
    volatile uint64_t spin = 0;
    for (int i = 0; i < 1000; ++i) spin = spin + 1;
    if (read() == before) {
      close(_fd);
      _fd = -1;
    }
  }
}

InstructionCounter::~InstructionCounter() {
  if (_fd >= 0) close(_fd);
}

uint64_t InstructionCounter::read() const {
  uint64_t value = 0;
  if (_fd < 0 || ::read(_fd, &value, sizeof value) != sizeof value) return 0;
  return value;
}

int Runner::add(Contender contender_) {
  if (!_options.filter.empty() && contender_.key().find(_options.filter) == std::string::npos)
    return -1;
  _contenders.push_back(std::move(contender_));
  _measured.emplace_back();
  return static_cast<int>(_contenders.size()) - 1;
}

bool Runner::underCallgrind() const { return RUNNING_ON_VALGRIND != 0; }

void Runner::_sample(int index_, uint64_t iterations_, double& ns_, double& instructions_,
                     uint64_t& allocations_) {
  const std::function<void(uint64_t)>& run = _contenders[index_].run;
  const uint64_t allocationsBefore = tarn_host::allocationCount();
  const uint64_t instructionsBefore = _counter.read();
  const uint64_t start = nowNs();
  run(iterations_);
  const uint64_t end = nowNs();
  const uint64_t instructionsAfter = _counter.read();
  allocations_ = tarn_host::allocationCount() - allocationsBefore;
  ns_ = static_cast<double>(end - start) / static_cast<double>(iterations_);
  instructions_ = static_cast<double>(instructionsAfter - instructionsBefore) /
                  static_cast<double>(iterations_);
}

void Runner::run() {
  const double target = _options.sampleMs * 1e6;
  double ns, instructions;
  uint64_t allocations;
  // Calibration: grow the count until one sample takes a tenth of the target,
  // then scale to the target. The first call also warms caches and value sets.
  for (size_t i = 0; i < _contenders.size(); ++i) {
    uint64_t n = 1;
    for (;;) {
      _sample(static_cast<int>(i), n, ns, instructions, allocations);
      if (ns * static_cast<double>(n) >= target / 10 || n >= (uint64_t{1} << 30)) break;
      n *= 4;
    }
    _measured[i].iterations = std::max<uint64_t>(1, static_cast<uint64_t>(target / ns));
  }
  std::vector<uint64_t> allocationTotal(_contenders.size(), 0);
  std::vector<uint64_t> operationTotal(_contenders.size(), 0);
  const size_t count = _contenders.size();
  for (int round = 0; round < _options.rounds; ++round) {
    // Each round starts at a different contender, so none always runs right
    // after the same neighbour.
    for (size_t k = 0; k < count; ++k) {
      const size_t i = (k + static_cast<size_t>(round) * 7) % count;
      Measurements& m = _measured[i];
      _sample(static_cast<int>(i), m.iterations, ns, instructions, allocations);
      m.ns.push_back(ns);
      if (_counter.available()) m.instructions.push_back(instructions);
      allocationTotal[i] += allocations;
      operationTotal[i] += m.iterations;
    }
    std::fputc('.', stderr);
    std::fflush(stderr);
  }
  std::fputc('\n', stderr);
  for (size_t i = 0; i < count; ++i)
    _measured[i].allocations =
        static_cast<double>(allocationTotal[i]) / static_cast<double>(operationTotal[i]);
}

void Runner::runUnderCallgrind() {
  // The dump's name carries what the script needs to divide by.
  for (size_t i = 0; i < _contenders.size(); ++i) {
    const Contender& c = _contenders[i];
    const uint64_t n = _options.callgrindIterations;
    c.run(1);
    char name[512];
    std::snprintf(name, sizeof name, "tarn|%s|%s|%s|%s|%llu|%.0f|%s", c.shape.c_str(), c.op.c_str(),
                  c.id.c_str(), c.label.c_str(), static_cast<unsigned long long>(n), c.units,
                  c.unit.c_str());
    CALLGRIND_ZERO_STATS;
    c.run(n);
    CALLGRIND_DUMP_STATS_AT(name);
  }
}

double Runner::median(int index_, bool instructions_) const {
  if (index_ < 0) return -1;
  const Measurements& m = _measured[index_];
  return medianOf(instructions_ ? m.instructions : m.ns);
}

double Runner::ratio(int a_, const std::vector<int>& over_, bool instructions_, int parity_) const {
  if (a_ < 0) return -1;
  for (int b : over_)
    if (b < 0) return -1;
  const std::vector<double>& mine = instructions_ ? _measured[a_].instructions : _measured[a_].ns;
  std::vector<double> ratios;
  for (size_t r = 0; r < mine.size(); ++r) {
    if (parity_ >= 0 && static_cast<int>(r % 2) != parity_) continue;
    double sum = 0;
    for (int b : over_) {
      const auto& theirs = instructions_ ? _measured[b].instructions : _measured[b].ns;
      if (r >= theirs.size()) return -1;
      sum += theirs[r];
    }
    if (sum <= 0) return -1;
    ratios.push_back(mine[r] / sum);
  }
  return medianOf(ratios);
}

}  // namespace tarn_bench
