// The protobuf wire types this module reads. A tag's low three bits are its
// wire type, the rest its field number. Group start and end (3, 4) and the
// unassigned 6 and 7 have no name here: the parser rejects them.
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

#endif
