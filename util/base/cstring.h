// A read-only view of bytes that need not end in NUL and may hold any byte.
#ifndef TARN_UTIL_BASE_CSTRING_H
#define TARN_UTIL_BASE_CSTRING_H

#include <cstddef>

namespace tarn {

struct cstring {
  const char* _p;
  size_t _len;
};

}  // namespace tarn

#endif
