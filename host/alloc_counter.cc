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
// The allocation count at which failures start, 0 when none is asked for.
std::atomic<uint64_t> g_failFrom{0};
std::atomic<bool> g_failPersistent{false};
std::atomic<uint64_t> g_failed{0};

// Counts one allocation; false when it is to fail.
inline bool count() {
  const uint64_t n = g_allocations.fetch_add(1, std::memory_order_relaxed) + 1;
  const uint64_t from = g_failFrom.load(std::memory_order_relaxed);
  if (from == 0 || n < from || (n > from && !g_failPersistent.load(std::memory_order_relaxed)))
    return true;
  g_failed.fetch_add(1, std::memory_order_relaxed);
  return false;
}

}  // namespace

namespace tarn_host {

uint64_t allocationCount() { return g_allocations.load(std::memory_order_relaxed); }

void failAllocation(uint64_t nth_, bool persistent_) {
  g_failed.store(0, std::memory_order_relaxed);
  g_failPersistent.store(persistent_, std::memory_order_relaxed);
  g_failFrom.store(allocationCount() + nth_, std::memory_order_relaxed);
}

void stopFailing() { g_failFrom.store(0, std::memory_order_relaxed); }

uint64_t failedAllocations() { return g_failed.load(std::memory_order_relaxed); }

}  // namespace tarn_host

// The C allocator. glibc lets the main program replace these; every shared
// object in the process, dlopen'ed ones included, binds to them.
extern "C" {

void* malloc(size_t size_) { return count() ? __libc_malloc(size_) : nullptr; }

void* calloc(size_t count_, size_t size_) {
  return count() ? __libc_calloc(count_, size_) : nullptr;
}

void* realloc(void* p_, size_t size_) {
  if (size_ != 0 && !count()) return nullptr;
  return __libc_realloc(p_, size_);
}

void free(void* p_) { __libc_free(p_); }

void* memalign(size_t alignment_, size_t size_) {
  return count() ? __libc_memalign(alignment_, size_) : nullptr;
}

void* aligned_alloc(size_t alignment_, size_t size_) {
  return count() ? __libc_memalign(alignment_, size_) : nullptr;
}

int posix_memalign(void** pp_, size_t alignment_, size_t size_) {
  if (alignment_ % sizeof(void*) != 0 || (alignment_ & (alignment_ - 1)) != 0) return EINVAL;
  if (!count()) return ENOMEM;
  void* p = __libc_memalign(alignment_, size_);
  if (p == nullptr) return ENOMEM;
  *pp_ = p;
  return 0;
}

}  // extern "C"

// The C++ allocator, counted through malloc above (once per attempt). A failed
// attempt calls the new handler, which may free memory for another, as the
// standard operator new does.
namespace {

template <typename Allocate>
void* newWithHandler(Allocate allocate_) {
  for (;;) {
    void* p = allocate_();
    if (p != nullptr) return p;
    std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

void* newOrThrow(size_t size_) {
  return newWithHandler([size_] { return malloc(size_ ? size_ : 1); });
}

void* newAligned(size_t size_, std::align_val_t alignment_) {
  return newWithHandler(
      [=] { return aligned_alloc(static_cast<size_t>(alignment_), size_ ? size_ : 1); });
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
