// Counts heap allocations made anywhere in the benchmark process. The
// executable defines malloc, calloc, realloc, the aligned allocators and the
// global operator new, so calls from the loaded module, the stand-in host and
// libprotobuf all land here and are counted once each before being handed to
// the C library's own allocator.
#ifndef TARN_BENCH_ALLOC_COUNTER_H
#define TARN_BENCH_ALLOC_COUNTER_H

#include <cstdint>

namespace tarn_bench {

// Allocations (including reallocations) since the process started.
uint64_t allocationCount();

}  // namespace tarn_bench

#endif
