// One field of wire format at a time, with the module's own wire rules
// (modules/message_type/protobuf/wire_format.h): the tool's schema-guided
// checks and its schema-less view read bodies through this, not through a
// reader of their own.
#ifndef TARN_TOOLS_TARNPB_WIRE_WALK_H
#define TARN_TOOLS_TARNPB_WIRE_WALK_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarnpb {

struct WireField {
  const char* pStart = nullptr;  // the tag's first byte
  uint64_t number = 0;           // the tag shifted right by three
  uint32_t wireType = 0;
  uint64_t value = 0;              // a varint's value, or a fixed-width value's bits
  const char* pPayload = nullptr;  // a length-delimited value's bytes
  size_t length = 0;
};

// Reads the field at p_ (its tag and its value) and advances p_ past it.
// Returns false, p_ unchanged, when the bytes before pEnd_ hold no whole
// field: a varint cut off, a fixed-width value or payload running past pEnd_,
// or wire type 6 or 7. Group start and end tags (3, 4) carry no value.
bool nextField(const char*& p_, const char* pEnd_, WireField& field_);

// "2 (length-delimited)": a wire type as messages name it; "6 (no such wire
// type)" for 6 and 7.
std::string wireTypeName(uint32_t wireType_);

}  // namespace tarnpb

#endif
