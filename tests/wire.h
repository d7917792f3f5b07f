// A tiny protobuf wire builder for tests: bodies are written as
//   wire::Body().varint(1, 150).str(2, "ab").msg(5, wire::Body().str(1, "x"))
// rather than as hand-counted bytes. hex() and fromHex() cover the byte-exact cases.
#ifndef TARN_TESTS_WIRE_H
#define TARN_TESTS_WIRE_H

#include <cctype>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace wire {

inline std::string varintBytes(uint64_t value) {
  std::string out;
  while (value >= 0x80) {
    out.push_back(static_cast<char>((value & 0x7F) | 0x80));
    value >>= 7;
  }
  out.push_back(static_cast<char>(value));
  return out;
}

// value as a varint of exactly `bytes` bytes, its groups filled out with
// continuation bits: the fixed-width length slot of a serialized submessage.
inline std::string paddedVarint(uint64_t value, size_t bytes) {
  std::string out;
  for (size_t b = 0; b < bytes; ++b)
    out.push_back(static_cast<char>(((value >> (7 * b)) & 0x7F) | (b + 1 < bytes ? 0x80 : 0)));
  return out;
}

inline uint64_t zigzag(int64_t value) {
  return (static_cast<uint64_t>(value) << 1) ^ static_cast<uint64_t>(value >> 63);
}

inline std::string fromHex(const std::string& text) {
  std::string digits, out;  // blanks between bytes are allowed
  for (char c : text)
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    out.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return out;
}

inline std::string hex(const std::string& bytes) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i) out.push_back(' ');
    unsigned char b = static_cast<unsigned char>(bytes[i]);
    out.push_back(digits[b >> 4]);
    out.push_back(digits[b & 15]);
  }
  return out;
}

class Body {
 public:
  Body& tag(uint32_t field, uint32_t wireType) {
    _bytes += varintBytes((uint64_t{field} << 3) | wireType);
    return *this;
  }
  Body& varint(uint32_t field, uint64_t value) {
    tag(field, 0);
    _bytes += varintBytes(value);
    return *this;
  }
  Body& sint(uint32_t field, int64_t value) { return varint(field, zigzag(value)); }
  Body& fixed32(uint32_t field, uint32_t value) {
    tag(field, 5);
    return raw(&value, 4);
  }
  Body& fixed64(uint32_t field, uint64_t value) {
    tag(field, 1);
    return raw(&value, 8);
  }
  Body& f32(uint32_t field, float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    return fixed32(field, bits);
  }
  Body& f64(uint32_t field, double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    return fixed64(field, bits);
  }
  Body& str(uint32_t field, const std::string& payload) {
    tag(field, 2);
    _bytes += varintBytes(payload.size());
    _bytes += payload;
    return *this;
  }
  Body& msg(uint32_t field, const Body& inner) { return str(field, inner.bytes()); }
  // Appends bytes as they stand (a packed payload, a cut-off tail, ...).
  Body& raw(const std::string& bytes) {
    _bytes += bytes;
    return *this;
  }
  Body& raw(const void* p, size_t n) {
    _bytes.append(static_cast<const char*>(p), n);
    return *this;
  }

  const std::string& bytes() const { return _bytes; }
  operator const std::string&() const { return _bytes; }

 private:
  std::string _bytes;
};

// A packed payload of varints, e.g. packedVarints({zigzag(-1), zigzag(2)}).
inline std::string packedVarints(std::initializer_list<uint64_t> values) {
  std::string out;
  for (uint64_t v : values) out += varintBytes(v);
  return out;
}

// `levels` messages nested in field 1 around `leaf` (the innermost body),
// built from the inside out in linear time (concatenating would copy
// quadratically at 100,000 levels).
inline std::string nestedChain(size_t levels, const std::string& leaf = "") {
  std::vector<size_t> payload(levels + 1, 0);  // payload[k]: length of level k's body
  payload[levels] = leaf.size();
  for (size_t k = levels; k-- > 0;)
    payload[k] = 1 + varintBytes(payload[k + 1]).size() + payload[k + 1];
  std::string out;
  out.reserve(payload[0]);
  for (size_t k = 1; k <= levels; ++k) out += "\x0A" + varintBytes(payload[k]);
  return out + leaf;
}

}  // namespace wire

#endif
