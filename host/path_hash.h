// Path hashing: a 32-bit hash of one path component continued from a seed. It
// is pure, so equal paths hash equally in every value set with the same base.
// 0 is reserved for empty key slots, so a result of 0 is moved to a fixed
// non-zero value.
//
// A parse hashes one field name per field occurrence, so this sits on the
// parser's hottest path: it is inline, for the exported hash functions of
// every host built over this storage. Names are short: most fit one 8-byte
// word, which is folded in with a single 64x64->128-bit multiply rather than
// one multiply per byte. Every read stays inside [data, data + length).
#ifndef TARN_HOST_PATH_HASH_H
#define TARN_HOST_PATH_HASH_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tarn_host {
namespace path_hash_detail {

const uint32_t zero_replacement = 0x9E3779B9u;
const char path_separator = '/';
const uint64_t k0 = 0xA0761D6478BD642Full;
const uint64_t k1 = 0xE7037ED1A0B428DBull;
const uint64_t k2 = 0x8EBC6AF09C88C6E3ull;

inline uint64_t mix(uint64_t a_, uint64_t b_) {
  const unsigned __int128 product = static_cast<unsigned __int128>(a_) * b_;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

inline uint64_t read64(const char* p_) {
  uint64_t v;
  std::memcpy(&v, p_, sizeof v);
  return v;
}

inline uint64_t read32(const char* p_) {
  uint32_t v;
  std::memcpy(&v, p_, sizeof v);
  return v;
}

// 1 to 8 bytes as one word. With the length mixed in beside it, different
// texts of one length give different words (the two reads overlap when
// length_ < 8, and the three bytes cover every byte when length_ <= 3).
inline uint64_t shortWord(const char* p_, size_t length_) {
  if (length_ >= 4) return read32(p_) | read32(p_ + length_ - 4) << 32;
  const auto* u = reinterpret_cast<const unsigned char*>(p_);
  return static_cast<uint64_t>(u[0]) << 16 | static_cast<uint64_t>(u[length_ >> 1]) << 8 |
         u[length_ - 1];
}

}  // namespace path_hash_detail

inline uint32_t pathHash(const char* pData_, size_t length_, uint32_t seed_) {
  using namespace path_hash_detail;
  uint64_t h = (static_cast<uint64_t>(seed_) | static_cast<uint64_t>(length_) << 32) ^ k0;
  if (length_ <= 8) {
    h = mix(h, (length_ ? shortWord(pData_, length_) : 0) ^ k1);
  } else {
    const char* const pEnd = pData_ + length_;
    for (; pEnd - pData_ > 8; pData_ += 8) h = mix(h ^ k2, read64(pData_) ^ k1);
    h = mix(h ^ k2, read64(pEnd - 8) ^ k1);  // the last word may overlap the one before
  }
  const uint32_t hash = static_cast<uint32_t>(h ^ (h >> 32));
  return hash == 0 ? zero_replacement : hash;
}

// The separator a nested message's path continues with.
inline uint32_t pathHashAddSeparator(uint32_t hash_) {
  return pathHash(&path_hash_detail::path_separator, 1, hash_);
}

}  // namespace tarn_host

#endif
