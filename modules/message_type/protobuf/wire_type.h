// The protobuf wire types this module reads, and the varint and zigzag rules
// the parser and the tracer share. A tag's low three bits are its wire type,
// the rest its field number. Group start and end (3, 4) and the unassigned 6
// and 7 have no name here: the parser rejects them.
#ifndef TARN_PROTOBUF_WIRE_TYPE_H
#define TARN_PROTOBUF_WIRE_TYPE_H

#include <cstdint>

enum wire_type : uint32_t {
  VARINT = 0,
  FIXED64 = 1,
  LENGTH_DELIMITED = 2,
  FIXED32 = 5,
};

const uint32_t wiretype_mask = 7;
const uint32_t wiretype_bits = 3;
const unsigned varint_component_bits = 7;

// Reads one base-128 varint, least significant group first, that must end
// before pEnd_. On success advances pSrc_ past it and returns true; a varint
// cut off by pEnd_ leaves pSrc_ alone and returns false. Past the 64th bit
// there is nowhere to put a group: it is dropped and the shift stops growing,
// so it is never applied at 64 or more and an over-long varint yields its
// value modulo 2^64.
inline bool readVarint(const char*& pSrc_, const char* pEnd_, uint64_t& value_) {
  uint64_t value = 0;
  unsigned shift = 0;
  for (const char* p = pSrc_; p < pEnd_; ++p) {
    const auto byte = static_cast<unsigned char>(*p);
    if (shift < 64) {
      value |= static_cast<uint64_t>(byte & 0x7F) << shift;
      shift += varint_component_bits;
    }
    if ((byte & 0x80) == 0) {
      pSrc_ = p + 1;
      value_ = value;
      return true;
    }
  }
  return false;
}

// The signed value of a sint32 or sint64 varint.
inline int64_t zigzagDecode(uint64_t value_) {
  return static_cast<int64_t>((value_ >> 1) ^ (0 - (value_ & 1)));
}

#endif
