// How one arrival of a field is read and what number its bits stand for,
// decided per field and wire type when the field tables are built, so that a
// walk makes one choice per value instead of one for the wire type and
// another for the declared type. The parser stores the number an entry
// holds from the same conversion the tracer renders, so the two never
// disagree about what a scalar's bits mean.
#ifndef TARN_PROTOBUF_VALUE_DECODER_H
#define TARN_PROTOBUF_VALUE_DECODER_H

#include <cstdint>
#include <type_traits>

#include "wire_format.h"

enum value_decoder : uint8_t {
  decode_fail,              // a wire type the field cannot arrive as
  decode_varint,            // all 64 bits as sent
  decode_varint_int32,      // the low 32 bits, sign-extended
  decode_zigzag,            // sint32, sint64
  decode_fixed64_double,    // double
  decode_fixed64_signed,    // sfixed64, and any other type but fixed64 sent as eight bytes
  decode_fixed64_unsigned,  // fixed64
  decode_fixed32_float,     // float, widened
  decode_fixed32_signed,    // sfixed32, sign-extended
  decode_fixed32_unsigned,  // any other type sent as four bytes
  decode_packed,            // a packed field's block
  decode_message,           // a nested message
  decode_block,             // strings, bytes, groups, unpacked scalars as a block
};

// One scalar's number: a double, or a 64-bit integer that is shown unsigned
// where its decoder says so.
struct scalar_value {
  bool isDouble;
  int64_t integer;
  double real;
};

// The number the raw bits_ of a scalar decoder_ stand for: a varint's value,
// or the four or eight little-endian bytes of a fixed-width value.
// REQUIRES: decoder_ is one of the scalar decoders (decode_varint to
// decode_fixed32_unsigned). Force-inlined: with a constant decoder the
// choice folds away.
TARN_ALWAYS_INLINE scalar_value decodeScalar(unsigned decoder_, uint64_t bits_) {
  scalar_value v = {false, static_cast<int64_t>(bits_), 0.0};
  switch (decoder_) {
    case decode_varint_int32:
    case decode_fixed32_signed:
      v.integer = static_cast<int32_t>(static_cast<uint32_t>(bits_));
      break;
    case decode_zigzag:
      v.integer = zigzagDecode(bits_);
      break;
    case decode_fixed32_unsigned:
      v.integer = static_cast<uint32_t>(bits_);
      break;
    case decode_fixed64_double:
      v.isDouble = true;
      v.real = asDouble(bits_);
      break;
    case decode_fixed32_float:
      v.isDouble = true;
      v.real = widenFloat(static_cast<uint32_t>(bits_));
      break;
    default:
      // varint and the fixed64 integers: all 64 bits as they are.
      break;
  }
  return v;
}

// Calls use_(std::integral_constant<value_decoder, D>()) with D the scalar
// decoder_, so that a loop over many values is compiled once per decoder and
// decides it once. Anything but a scalar decoder calls nothing.
template <value_decoder... Scalars, typename Use>
TARN_ALWAYS_INLINE void withDecoderAmong(unsigned decoder_, Use&& use_) {
  (void)((decoder_ == Scalars && (use_(std::integral_constant<value_decoder, Scalars>()), true)) ||
         ...);
}

template <typename Use>
TARN_ALWAYS_INLINE void withScalarDecoder(unsigned decoder_, Use&& use_) {
  withDecoderAmong<decode_varint, decode_varint_int32, decode_zigzag, decode_fixed64_double,
                   decode_fixed64_signed, decode_fixed64_unsigned, decode_fixed32_float,
                   decode_fixed32_signed, decode_fixed32_unsigned>(decoder_, use_);
}

// Whether the integer of decoder_ reads as an unsigned number.
inline bool decodesUnsigned(unsigned decoder_) {
  return decoder_ == decode_varint || decoder_ == decode_fixed64_unsigned ||
         decoder_ == decode_fixed32_unsigned;
}

// Bytes of the value a fixed-width decoder reads; 0 for a varint.
inline unsigned fixedWidth(unsigned decoder_) {
  return decoder_ >= decode_fixed32_float && decoder_ <= decode_fixed32_unsigned    ? 4
         : decoder_ >= decode_fixed64_double && decoder_ <= decode_fixed64_unsigned ? 8
                                                                                    : 0;
}

// The wire type of one element of a packed block whose field travels as
// travel_. REQUIRES: travelsPacked(travel_).
inline wire_type packedElementWireType(field_travel travel_) {
  return travel_ == travel_fixed32 ? FIXED32 : travel_ == travel_fixed64 ? FIXED64 : VARINT;
}

#endif
