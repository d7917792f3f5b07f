// Counts heap allocations made anywhere in a host process, for the programs
// that prove the module's calls allocate nothing (the benchmark and the
// tests), and makes chosen ones fail, for the programs that prove running out
// of memory harms nothing. Linked into the executable (the CMake object library
// tarn_alloc_counter, with -rdynamic), it defines malloc, calloc, realloc, the
// aligned allocators and the global operator new, so calls from the loaded
// module, the stand-in host and libprotobuf all land here and are counted once
// each before being handed to the C library's own allocator. Not for builds
// with a sanitizer, whose runtime owns these functions.
#ifndef TARN_HOST_ALLOC_COUNTER_H
#define TARN_HOST_ALLOC_COUNTER_H

#include <cstdint>

namespace tarn_host {

// Allocations (including reallocations) since the process started.
uint64_t allocationCount();

// Makes the nth_ allocation from now (1 is the next one) fail as if memory had
// run out: malloc and its kin return null, operator new calls the new handler
// and throws std::bad_alloc when there is none. With persistent_, every later
// allocation fails too, until stopFailing. A process-wide switch: meant for a
// single-threaded program.
void failAllocation(uint64_t nth_, bool persistent_);
void stopFailing();
// How many allocations failed by request since the last failAllocation.
uint64_t failedAllocations();

}  // namespace tarn_host

#endif
