// Small bit helpers shared by the containers and the wire code.
#ifndef TARN_UTIL_BASE_BITOPS_H
#define TARN_UTIL_BASE_BITOPS_H

#include <cstdint>

namespace tarn {
namespace bitops {

// Leading zero bits of a 32-bit value; 32 for 0.
inline unsigned countLeadingZeros32(uint32_t value_) {
  return value_ == 0 ? 32u : static_cast<unsigned>(__builtin_clz(value_));
}

// Smallest power of two not below value_ (value_ >= 1, result fits 32 bits).
inline uint64_t nextPowerOfTwo(uint32_t value_) {
  return value_ <= 1 ? 1u : (uint64_t{1} << 32) >> countLeadingZeros32(value_ - 1);
}

}  // namespace bitops
}  // namespace tarn

#endif
