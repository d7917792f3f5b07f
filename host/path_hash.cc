// Path hashing: 32-bit FNV-1a continued from a seed. It is pure, so equal paths
// hash equally in every value set with the same base. 0 is reserved for empty
// key slots, so a result of 0 is moved to a fixed non-zero value.
#include "host_export.h"

namespace {

const uint32_t fnv_prime = 16777619u;
const uint32_t zero_replacement = 0x9E3779B9u;
const char path_separator = '/';

inline uint32_t fnv1a(const char* pData_, size_t length_, uint32_t seed_) {
  uint32_t hash = seed_;
  for (size_t i = 0; i < length_; ++i) {
    hash ^= static_cast<unsigned char>(pData_[i]);
    hash *= fnv_prime;
  }
  return hash == 0 ? zero_replacement : hash;
}

}  // namespace

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_string(const char* data, size_t length, tarn_message_xpath_hash seed) {
  return fnv1a(data, length, seed);
}

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_add_separator(tarn_message_xpath_hash hash) {
  return fnv1a(&path_separator, 1, hash);
}
