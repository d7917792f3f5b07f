// The protobuf wire rules, each written once, for every engine of the module
// (parser, tracer, serializer and merge) and for the merge room a host links.
// A leaf: it includes no class of the module and no libprotobuf header, and it
// compiles as C++11, since a host of any later standard may include it.
//
// Reading. Every engine and tool reads through one wire_cursor (below): the
// position, the end of the level being read and the bounds of the whole body
// travel together, and the cursor never looks at a byte outside the body nor
// takes a value's bytes from past its level's end. A varint or fixed-width
// value cut off by the end is reported, not guessed; what the caller does then
// (fail the parse, end a trace level) is the caller's rule.
//
// Writing. The varint writers below are the only ones: the serializer's
// length slots, the merge's length prefixes and the tools' streams all use
// them.
//
// Nesting. One limit and one way of counting for every engine: the body is
// level 0 and a message field read at level d opens level d + 1, which is
// allowed while d < max_nesting_depth, so 100 nested levels are entered and
// the 101st is not. What each engine does at the limit:
// - the parser fails the whole parse (a deeper level is malformed input);
// - the tracer ends the level that holds the too-deep field, before its key,
//   and goes on with the levels around it;
// - the merge stops merging: the update's nested message replaces the stored
//   one whole, as it does when one side has no children.
// Without the limit a body of nested length prefixes, a few bytes each, could
// exhaust the host's stack through any engine's recursion.
#ifndef TARN_PROTOBUF_WIRE_FORMAT_H
#define TARN_PROTOBUF_WIRE_FORMAT_H

#include <cstddef>
#include <cstdint>

#define TARN_ALWAYS_INLINE inline __attribute__((always_inline))
#define TARN_NOINLINE __attribute__((noinline))
#define TARN_NODISCARD __attribute__((warn_unused_result))

// The wire types this module reads. A tag's low three bits are its wire type,
// the rest its field number. Group start and end (3, 4) and the unassigned 6
// and 7 have no name here: the parser rejects them.
enum wire_type : uint32_t {
  VARINT = 0,
  FIXED64 = 1,
  LENGTH_DELIMITED = 2,
  FIXED32 = 5,
};

const uint32_t wiretype_mask = 7;
const uint32_t wiretype_bits = 3;
const unsigned varint_component_bits = 7;
// A 64-bit value never needs more than ten varint bytes.
const unsigned max_varint_bytes = 10;

const unsigned max_nesting_depth = 100;

// A tag split under the one rule every reader applies: the wire type is the
// low three bits, the field number the low 32 bits of the rest taken as a
// signed int. Numbers that are negative or above the largest legal field
// number match no field of any schema.
struct wire_tag {
  int32_t number;
  uint32_t wireType;
};

inline wire_tag splitTag(uint64_t tag_) {
  const wire_tag tag = {static_cast<int32_t>(static_cast<uint32_t>(tag_ >> wiretype_bits)),
                        static_cast<uint32_t>(tag_ & wiretype_mask)};
  return tag;
}

// Whether a message field read at `level_` (the body being 0) may be entered.
inline bool mayNest(unsigned level_) { return level_ < max_nesting_depth; }

// The checked reading of one varint, least significant group first, used when
// fewer than ten bytes remain or the varint is longer than ten bytes. Past the
// 64th bit there is nowhere to put a group: it is dropped and the shift stops
// growing, so an over-long varint yields its value modulo 2^64.
inline bool readVarintChecked(const char*& pSrc_, const char* pEnd_, uint64_t& value_) {
  uint64_t value = 0;
  unsigned shift = 0;
  for (const char* p = pSrc_; p < pEnd_; ++p) {
    const unsigned char byte = static_cast<unsigned char>(*p);
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

// The fixed-width loads come first: the varint reader below takes eight bytes
// at once.
//
// Fixed-width values are little-endian on the wire and sit at any byte
// position. On a little-endian host they are copied as they are, which is one
// unaligned load whatever the surrounding code (assembling bytes is left to
// the compiler to fuse, and it does not always, e.g. at negative offsets);
// elsewhere they are assembled from single bytes. The caller has checked that
// the bytes are there.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
inline uint32_t loadFixed32(const char* p_) {
  uint32_t value;
  __builtin_memcpy(&value, p_, sizeof value);
  return value;
}

inline uint64_t loadFixed64(const char* p_) {
  uint64_t value;
  __builtin_memcpy(&value, p_, sizeof value);
  return value;
}
#else
inline uint32_t loadFixed32(const char* p_) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(p_);
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t loadFixed64(const char* p_) {
  return static_cast<uint64_t>(loadFixed32(p_)) | static_cast<uint64_t>(loadFixed32(p_ + 4)) << 32;
}
#endif

// The double a fixed64 carries, and the float a fixed32 carries widened to a
// double: the bits as they are, whatever they encode.
inline double asDouble(uint64_t bits_) {
  double value;
  __builtin_memcpy(&value, &bits_, sizeof value);
  return value;
}

inline double widenFloat(uint32_t bits_) {
  float value;
  __builtin_memcpy(&value, &bits_, sizeof value);
  return value;
}

// The seven-bit groups of the eight bytes in word_ (the first byte lowest),
// packed together in three steps: pairs of groups, then pairs of pairs, then
// the two halves. Continuation bits are dropped.
inline uint64_t packVarintGroups(uint64_t word_) {
  uint64_t v = word_ & 0x7F7F7F7F7F7F7F7Full;
  v = (v & 0x007F007F007F007Full) | ((v & 0x7F007F007F007F00ull) >> 1);
  v = (v & 0x00003FFF00003FFFull) | ((v & 0x3FFF00003FFF0000ull) >> 2);
  return (v & 0x000000000FFFFFFFull) | ((v & 0x0FFFFFFF00000000ull) >> 4);
}

// The high bit of every byte of word_ that carries no continuation bit: the
// bytes a varint read from word_ may end at.
inline uint64_t varintEnds(uint64_t word_) { return ~word_ & 0x8080808080808080ull; }

// Those of them among the first left_ (0 to 7) bytes only: where a varint
// may end when its level ends left_ bytes in.
inline uint64_t varintEndsWithin(uint64_t word_, unsigned left_) {
  return varintEnds(word_) & ((uint64_t{1} << (8 * left_)) - 1);
}

// The two-byte varint at the start of word_ (its first byte continues, its
// second does not).
inline uint64_t twoByteVarint(uint64_t word_) { return (word_ & 0x7F) | ((word_ >> 1) & 0x3F80); }

// The varint at the start of word_, given ends_: the high bit of every byte
// of word_ that may end it and has no continuation bit (not 0). Everything
// above the first end is masked off; returns the varint's value and sets
// length_ to its bytes.
inline uint64_t varintInWord(uint64_t word_, uint64_t ends_, size_t& length_) {
  length_ = (static_cast<unsigned>(__builtin_ctzll(ends_)) + 1) >> 3;
  // ends_ ^ (ends_ - 1): every bit up to the first end.
  return packVarintGroups(word_ & (ends_ ^ (ends_ - 1)));
}

// Varints of any length, most usefully two bytes or more. A varint's length
// varies from value to value in a real feed, so a branch per byte would be
// mispredicted once per varint: when the varint ends within eight bytes it
// is decoded from one load without a branch on its length. With eight bytes
// left they are loaded from pSrc_; with fewer, the eight bytes that end at
// pEnd_ are loaded, when pFloor_ (the first byte the caller may read, or
// null) says they are all readable, and the bytes before pSrc_ are shifted
// out. Nine and ten bytes take one more byte each; past ten bytes only the
// checked reading knows where the varint ends. Past the 64th bit there is
// nowhere to put a group: byte 9 adds bit 63 only, as the checked loop does.
// Plain inline, so that a caller's own out-of-line slow path can hold it
// without a second call.
inline bool readVarintLong(const char*& pSrc_, const char* pEnd_, uint64_t& value_,
                           const char* pFloor_ = nullptr) {
  const ptrdiff_t left = pEnd_ - pSrc_;
  size_t length;
  if (left >= 8) {
    const uint64_t word = loadFixed64(pSrc_);
    const uint64_t ends = varintEnds(word);
    // Two bytes, the most common length past one (small counts, lengths of
    // short payloads), for a few instructions.
    if ((ends & 0xFFFF) == 0x8000) {
      pSrc_ += 2;
      value_ = twoByteVarint(word);
      return true;
    }
    if (ends != 0) {
      value_ = varintInWord(word, ends, length);
      pSrc_ += length;
      return true;
    }
    // Each of the two last bytes is read once the level is known to hold
    // it, so a long varint that ends its level (a large sint64 or a negative
    // int64 sent last in its message) is not left to the checked loop.
    if (left >= 9) {
      uint64_t v = packVarintGroups(word);
      const uint64_t byte8 = static_cast<unsigned char>(pSrc_[8]);
      v |= (byte8 & 0x7F) << 56;
      if (byte8 < 0x80) {
        pSrc_ += 9;
        value_ = v;
        return true;
      }
      if (left >= static_cast<ptrdiff_t>(max_varint_bytes)) {
        const uint64_t byte9 = static_cast<unsigned char>(pSrc_[9]);
        if (byte9 < 0x80) {
          pSrc_ += 10;
          value_ = v | byte9 << 63;
          return true;
        }
      }
    }
  } else if (left > 0 && pFloor_ != nullptr && pEnd_ - pFloor_ >= 8) {
    const unsigned before = static_cast<unsigned>(8 - left) * 8;
    const uint64_t word = loadFixed64(pEnd_ - 8) >> before;
    // Only the bytes left may end the varint; none does when it is cut off.
    const uint64_t ends = varintEndsWithin(word, static_cast<unsigned>(left));
    if (ends == 0) return false;
    value_ = varintInWord(word, ends, length);
    pSrc_ += length;
    return true;
  }
  return readVarintChecked(pSrc_, pEnd_, value_);
}

// A varint's value and the position after it, both returned in registers, so
// that a caller's read position never has to live in memory.
struct varint_read {
  uint64_t value;
  const char* pNext;
};

// The general varint read, out of line: the one-byte case is by far the most
// common, and a caller's loop stays small without the rest. A varint cut off
// by pEnd_ reads as 0 with a null pNext; pFloor_ as for readVarintLong.
TARN_NOINLINE inline varint_read readVarintOutOfLine(const char* pSrc_, const char* pEnd_,
                                                     const char* pFloor_) {
  varint_read read;
  if (readVarintLong(pSrc_, pEnd_, read.value, pFloor_)) {
    read.pNext = pSrc_;
  } else {
    read.value = 0;
    read.pNext = nullptr;
  }
  return read;
}

// The bytes of one whole body: every byte from pStart up to pEnd may be read.
struct wire_body {
  const char* pStart;
  const char* pEnd;
};

// The reader every engine walks a body with, as a value type whose members
// stay in registers: the read position and the end of the level being read,
// with the bounds of the whole body it lies in. Every read stays inside the
// level; the body's bounds only let a short read near the level's end be
// made with one eight-byte load of bytes that are known to be readable, with
// the bytes outside the level shifted or masked off. They are kept behind a
// pointer, as the walks need them only on those rare reads.
//
// Two families of reads. The checked ones (readTag, readVarint, readFixed32,
// readFixed64, readLength) report a value cut off by the level's end and then
// leave the position alone. The lenient ones (tagOrZero, varintOrZero,
// valueOrZero, lengthOrZero) are the parser's: a cut-off varint reads as 0
// and leaves the position at the level's end, where the walk then meets
// field 0 (which no schema has) or a level that has ended.
class wire_cursor {
 public:
  // REQUIRES: body_ outlives the cursor and every cursor made from it.
  // Postcondition: the level is the whole body, read from its first byte.
  explicit wire_cursor(const wire_body& body_)
      : _p(body_.pStart), _pEnd(body_.pEnd), _pBody(&body_) {}

  // The level [pStart_, pEnd_) of body_, read from its first byte.
  // REQUIRES: body_ outlives the cursor; the level lies inside body_.
  wire_cursor(const wire_body& body_, const char* pStart_, const char* pEnd_)
      : _p(pStart_), _pEnd(pEnd_), _pBody(&body_) {}

  // The length_ bytes at the position, as a level of the same body.
  // REQUIRES: length_ <= left().
  wire_cursor nested(size_t length_) const {
    wire_cursor level(*this);
    level._pEnd = _p + length_;
    return level;
  }

  const char* position() const { return _p; }
  const char* end() const { return _pEnd; }
  bool more() const { return _p < _pEnd; }
  size_t left() const { return static_cast<size_t>(_pEnd - _p); }

  // REQUIRES: more().
  unsigned peekByte() const { return static_cast<unsigned char>(*_p); }
  // REQUIRES: n_ <= left().
  void skip(size_t n_) { _p += n_; }
  // REQUIRES: p_ lies between the position and end().
  void moveTo(const char* p_) { _p = p_; }

  // Checked reads. On success the position is past the value; on a value cut
  // off by the level's end the result is false and the position unchanged.
  TARN_NODISCARD TARN_ALWAYS_INLINE bool readVarint(uint64_t& value_) {
    if (__builtin_expect(_p < _pEnd && static_cast<unsigned char>(*_p) < 0x80, 1)) {
      value_ = static_cast<unsigned char>(*_p++);
      return true;
    }
    const varint_read read = readVarintOutOfLine(_p, _pEnd, _pBody->pStart);
    if (read.pNext == nullptr) return false;
    value_ = read.value;
    _p = read.pNext;
    return true;
  }
  TARN_NODISCARD TARN_ALWAYS_INLINE bool readTag(wire_tag& tag_) {
    uint64_t raw;
    if (!readVarint(raw)) return false;
    tag_ = splitTag(raw);
    return true;
  }
  TARN_NODISCARD TARN_ALWAYS_INLINE bool readFixed32(uint32_t& bits_) {
    if (_pEnd - _p < 4) return false;
    bits_ = loadFixed32(_p);
    _p += 4;
    return true;
  }
  TARN_NODISCARD TARN_ALWAYS_INLINE bool readFixed64(uint64_t& bits_) {
    if (_pEnd - _p < 8) return false;
    bits_ = loadFixed64(_p);
    _p += 8;
    return true;
  }
  // A length prefix. Postcondition on success: length_ <= left(), compared
  // with what is left so that no length can wrap the position.
  TARN_NODISCARD TARN_ALWAYS_INLINE bool readLength(uint64_t& length_) {
    const char* const pStart = _p;
    if (!readVarint(length_)) return false;
    if (length_ <= left()) return true;
    _p = pStart;
    return false;
  }

  // Lenient reads: a cut-off varint reads as 0 with the position at end().
  TARN_ALWAYS_INLINE uint64_t varintOrZero() {
    if (__builtin_expect(_p < _pEnd && static_cast<unsigned char>(*_p) < 0x80, 1)) {
      return static_cast<unsigned char>(*_p++);
    }
    return _outOfLineOrZero();
  }
  TARN_ALWAYS_INLINE wire_tag tagOrZero() { return splitTag(varintOrZero()); }

  // A varint value, as opposed to a tag or a length: its length varies from
  // field to field with the number sent, so with eight bytes in the level it
  // is taken from one load whatever its length, without a one-byte test
  // first. A field often ends its level (the last of a nested message): then
  // only the bytes up to the level's end may end the varint, and the load
  // still starts at the varint while the body holds eight bytes from there.
  TARN_ALWAYS_INLINE uint64_t valueOrZero() {
    const ptrdiff_t left = _pEnd - _p;
    if (__builtin_expect(left >= 8, 1)) {
      const uint64_t word = loadFixed64(_p);
      const uint64_t ends = varintEnds(word);
      if (__builtin_expect(ends != 0, 1)) return _takeFromWord(word, ends);
    } else if (left > 0 && static_cast<unsigned char>(*_p) < 0x80) {
      return static_cast<unsigned char>(*_p++);
    } else if (_pBody->pEnd - _p >= 8) {
      // A second copy of the decode above rather than one shared with it:
      // the compiler then keeps the common case free of the masking this
      // one needs.
      const uint64_t word = loadFixed64(_p);
      const uint64_t ends = varintEndsWithin(word, static_cast<unsigned>(left));
      if (ends != 0) return _takeFromWord(word, ends);
    }
    return varintOrZero();
  }

  // A length prefix: one byte for short payloads, two for most nested
  // messages (a payload of 128 bytes to 16 KiB). Both are taken here without
  // a call; longer prefixes, and prefixes near the end of the level, go the
  // general way. Not compared with what is left: the caller does that.
  TARN_ALWAYS_INLINE uint64_t lengthOrZero() {
    if (__builtin_expect(_p < _pEnd && static_cast<unsigned char>(*_p) < 0x80, 1)) {
      return static_cast<unsigned char>(*_p++);
    }
    if (_pEnd - _p >= 8) {
      const uint64_t word = loadFixed64(_p);
      if ((word & 0x8000) == 0) {
        _p += 2;
        return twoByteVarint(word);
      }
    }
    return _outOfLineOrZero();
  }

 private:
  TARN_ALWAYS_INLINE uint64_t _outOfLineOrZero() {
    const varint_read read = readVarintOutOfLine(_p, _pEnd, _pBody->pStart);
    _p = read.pNext != nullptr ? read.pNext : _pEnd;
    return read.value;
  }
  TARN_ALWAYS_INLINE uint64_t _takeFromWord(uint64_t word_, uint64_t ends_) {
    size_t length;
    const uint64_t value = varintInWord(word_, ends_, length);
    _p += length;
    return value;
  }

  const char* _p;
  const char* _pEnd;
  const wire_body* _pBody;
};

// Bytes of the minimal varint of value_; 0 takes one byte.
inline size_t varintSize(uint64_t value_) {
  size_t count = 0;
  do {
    ++count;
    value_ >>= varint_component_bits;
  } while (value_ != 0);
  return count;
}

// The minimal varint of value_ at pDst_, which ends just past it.
// REQUIRES: varintSize(value_) bytes are writable at pDst_.
inline void writeVarint(char*& pDst_, uint64_t value_) {
  while ((value_ >> varint_component_bits) != 0) {
    *pDst_++ = static_cast<char>((value_ & 0x7F) | 0x80);
    value_ >>= varint_component_bits;
  }
  *pDst_++ = static_cast<char>(value_);
}

// value_ as a varint of exactly bytes_ bytes: its groups, then zero groups,
// every byte but the last with the continuation bit, so that any reader
// decodes it to the same value. It fills a length slot reserved before the
// length was known.
// REQUIRES: bytes_ bytes are writable at pDst_.
// Postcondition: true with pDst_ advanced by bytes_; or, when the minimal
// form is longer than bytes_, false with nothing written and pDst_ unchanged.
inline bool writeFixedSizeVarint(char*& pDst_, uint64_t value_, unsigned bytes_) {
  const size_t bytesNeeded = varintSize(value_);
  if (bytesNeeded > bytes_) return false;
  writeVarint(pDst_, value_);
  size_t fill = bytes_ - bytesNeeded;
  if (fill == 0) return true;
  --pDst_;
  while (fill-- != 0) {
    *pDst_ = static_cast<char>(static_cast<unsigned char>(*pDst_) | 0x80);
    ++pDst_;
    *pDst_ = 0x00;
  }
  ++pDst_;
  return true;
}

// Length of the tag varint at the start of a field's encoding: every byte up
// to and including the first without the continuation bit. 0 when the bytes
// hold no complete tag (absent, or cut off), so a caller never reads past the
// length it was given.
inline size_t tagLength(const char* pRaw_, size_t rawLength_) {
  if (pRaw_ == nullptr) return 0;
  for (size_t i = 0; i < rawLength_; ++i)
    if ((static_cast<unsigned char>(pRaw_[i]) & 0x80) == 0) return i + 1;
  return 0;
}

// The signed value of a sint32 or sint64 varint.
inline int64_t zigzagDecode(uint64_t value_) {
  return static_cast<int64_t>((value_ >> 1) ^ (0 - (value_ & 1)));
}

// How a declared field type travels on the wire. Takes the plain type numbers
// 1..18 (double, float, int64, uint64, int32, fixed64, fixed32, bool, string,
// group, message, bytes, uint32, enum, sfixed32, sfixed64, sint32, sint64),
// which libprotobuf's FieldDescriptor::Type uses too; anything else is
// travel_none. Only the first four kinds can be packed.
enum field_travel : uint8_t {
  travel_varint,   // plain varint: int32/64, uint32/64, bool, enum
  travel_zigzag,   // zigzag varint: sint32, sint64
  travel_fixed32,  // float, fixed32, sfixed32
  travel_fixed64,  // double, fixed64, sfixed64
  travel_length,   // string, bytes, message
  travel_group,    // group start and end tags
  travel_none,     // not a field type
};

// A switch rather than a table, so that a caller's own switch on the result
// folds into one jump on the type number.
// clang-format off
inline field_travel travelOf(int type_) {
  switch (type_) {
    // int64, uint64, int32, bool, uint32, enum
    case 3: case 4: case 5: case 8: case 13: case 14:
      return travel_varint;
    // sint32, sint64
    case 17: case 18:
      return travel_zigzag;
    // float, fixed32, sfixed32
    case 2: case 7: case 15:
      return travel_fixed32;
    // double, fixed64, sfixed64
    case 1: case 6: case 16:
      return travel_fixed64;
    // string, message, bytes
    case 9: case 11: case 12:
      return travel_length;
    case 10:
      return travel_group;
    default:
      return travel_none;
  }
}
// clang-format on

// Whether a field of this type may arrive as one packed block of elements.
inline bool travelsPacked(field_travel travel_) { return travel_ <= travel_fixed64; }

// Whether a packed block of length_ bytes at pBlock_ holds only whole elements
// of its kind: fixed-width elements fill it exactly, and varints all end
// inside it, for which it is enough that its last byte ends a varint. An empty
// block holds none and is whole. Kinds that cannot be packed never are.
inline bool packedBlockWhole(field_travel element_, const char* pBlock_, size_t length_) {
  switch (element_) {
    case travel_varint:
    case travel_zigzag:
      return length_ == 0 || (static_cast<unsigned char>(pBlock_[length_ - 1]) & 0x80) == 0;
    case travel_fixed32:
      return length_ % 4 == 0;
    case travel_fixed64:
      return length_ % 8 == 0;
    default:
      return false;
  }
}

#endif
