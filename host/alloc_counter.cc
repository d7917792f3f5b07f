#include "alloc_counter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {

std::atomic<uint64_t> g_allocations{0};

inline void count() { g_allocations.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

namespace tarn_host {

uint64_t allocationCount() { return g_allocations.load(std::memory_order_relaxed); }

}  // namespace tarn_host

// The C allocator. glibc lets the main program replace these; every shared
// object in the process, dlopen'ed ones included, binds to them.
extern "C" {

void* malloc(size_t size_) {
  count();
  return __libc_malloc(size_);
}

void* calloc(size_t count_, size_t size_) {
  count();
  return __libc_calloc(count_, size_);
}

void* realloc(void* p_, size_t size_) {
  if (size_ != 0) count();
  return __libc_realloc(p_, size_);
}

void free(void* p_) { __libc_free(p_); }

void* memalign(size_t alignment_, size_t size_) {
  count();
  return __libc_memalign(alignment_, size_);
}

void* aligned_alloc(size_t alignment_, size_t size_) {
  count();
  return __libc_memalign(alignment_, size_);
}

int posix_memalign(void** pp_, size_t alignment_, size_t size_) {
  if (alignment_ % sizeof(void*) != 0 || (alignment_ & (alignment_ - 1)) != 0) return EINVAL;
  count();
  void* p = __libc_memalign(alignment_, size_);
  if (p == nullptr) return ENOMEM;
  *pp_ = p;
  return 0;
}

}  // extern "C"

// The C++ allocator, counted through malloc above (once per call).
namespace {

void* newOrThrow(size_t size_) {
  void* p = malloc(size_ ? size_ : 1);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void* newAligned(size_t size_, std::align_val_t alignment_) {
  void* p = aligned_alloc(static_cast<size_t>(alignment_), size_ ? size_ : 1);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

}  // namespace

void* operator new(size_t size_) { return newOrThrow(size_); }
void* operator new[](size_t size_) { return newOrThrow(size_); }
void* operator new(size_t size_, const std::nothrow_t&) noexcept {
  return malloc(size_ ? size_ : 1);
}
void* operator new[](size_t size_, const std::nothrow_t&) noexcept {
  return malloc(size_ ? size_ : 1);
}
void* operator new(size_t size_, std::align_val_t alignment_) {
  return newAligned(size_, alignment_);
}
void* operator new[](size_t size_, std::align_val_t alignment_) {
  return newAligned(size_, alignment_);
}
void operator delete(void* p_) noexcept { free(p_); }
void operator delete[](void* p_) noexcept { free(p_); }
void operator delete(void* p_, size_t) noexcept { free(p_); }
void operator delete[](void* p_, size_t) noexcept { free(p_); }
void operator delete(void* p_, std::align_val_t) noexcept { free(p_); }
void operator delete[](void* p_, std::align_val_t) noexcept { free(p_); }
void operator delete(void* p_, size_t, std::align_val_t) noexcept { free(p_); }
void operator delete[](void* p_, size_t, std::align_val_t) noexcept { free(p_); }
