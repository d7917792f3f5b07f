#include "schema_text.h"

#include <pthread.h>

namespace schema_text {

namespace {

// What the module assumes is left when the thread's stack bounds are unknown:
// the smallest default any common platform gives a new thread.
constexpr size_t unknown_stack_left = 128 * 1024;

}  // namespace

nesting scanNesting(const char* pText_, size_t length_, unsigned limit_) {
  nesting result = {0, -1, -1};
  unsigned depth = 0;
  int line = 0;
  size_t lineStart = 0;
  for (size_t i = 0; i < length_; ++i) {
    const char c = pText_[i];
    if (c == '\n') {
      ++line;
      lineStart = i + 1;
    } else if (c == '/' && i + 1 < length_ && pText_[i + 1] == '/') {
      while (i + 1 < length_ && pText_[i + 1] != '\n') ++i;
    } else if (c == '/' && i + 1 < length_ && pText_[i + 1] == '*') {
      // Lines inside the comment still count for the position.
      for (i += 2; i < length_ && !(pText_[i] == '*' && i + 1 < length_ && pText_[i + 1] == '/');
           ++i) {
        if (pText_[i] == '\n') {
          ++line;
          lineStart = i + 1;
        }
      }
      ++i;
    } else if (c == '"' || c == '\'') {
      // A string ends at its quote or, unterminated, at the end of the line,
      // as the tokenizer ends it.
      while (i + 1 < length_ && pText_[i + 1] != c && pText_[i + 1] != '\n') {
        if (pText_[i + 1] == '\\' && i + 2 < length_ && pText_[i + 2] != '\n') ++i;
        ++i;
      }
      if (i + 1 < length_ && pText_[i + 1] == c) ++i;
    } else if (c == '{' || c == '[' || c == '<') {
      ++depth;
      if (depth > result.deepest) result.deepest = depth;
      if (depth > limit_ && result.line < 0) {
        result.line = line;
        result.column = static_cast<int>(i - lineStart);
      }
    } else if ((c == '}' || c == ']' || c == '>') && depth > 0) {
      --depth;
    }
  }
  return result;
}

unsigned allowedNesting(size_t stackLeft_) {
  if (stackLeft_ < stack_per_file) return 0;
  const size_t levels = (stackLeft_ - stack_per_file) / stack_per_level;
  return levels < max_nesting ? static_cast<unsigned>(levels) : max_nesting;
}

uintptr_t stackLimit() {
  // The last thread's answer, kept: the C library's query allocates, and when
  // that allocation fails it crashes instead of failing. Creations run on one
  // thread at a time, usually the same one, which start-up already asked for.
  static pthread_t s_owner;
  static uintptr_t s_lowest = 0, s_highest = 0;
  const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (s_lowest != 0 && pthread_equal(s_owner, pthread_self()) && here > s_lowest &&
      here < s_highest)
    return s_lowest;
  // Initialised first although the call fills it: the call reads parts of it.
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return 0;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
    pthread_attr_destroy(&attributes);
    return 0;
  }
  void* pLowest = nullptr;
  size_t size = 0;
  const int status = pthread_attr_getstack(&attributes, &pLowest, &size);
  pthread_attr_destroy(&attributes);
  if (status != 0) return 0;
  s_owner = pthread_self();
  s_lowest = reinterpret_cast<uintptr_t>(pLowest);
  s_highest = s_lowest + size;
  return s_lowest;
}

size_t stackLeft(uintptr_t limit_) {
  const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (limit_ == 0) return unknown_stack_left;
  return here > limit_ ? here - limit_ : 0;
}

}  // namespace schema_text
