// Counts heap allocations made anywhere in a host process, for the programs
// that prove the module's calls allocate nothing (the benchmark and the
// tests). Linked into the executable (the CMake object library
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

}  // namespace tarn_host

#endif
