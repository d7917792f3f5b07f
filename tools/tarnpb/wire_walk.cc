#include "wire_walk.h"

#include "modules/message_type/protobuf/wire_format.h"

namespace tarnpb {

bool nextField(const char*& p_, const char* pEnd_, WireField& field_) {
  const wire_body body = {p_, pEnd_};
  wire_cursor in(body);
  // The number is shown whole, as protoc's raw view shows it; the module's
  // own lookups take it as an int (splitTag).
  uint64_t tag;
  if (!in.readVarint(tag)) return false;
  field_.pStart = p_;
  field_.number = tag >> wiretype_bits;
  field_.wireType = static_cast<uint32_t>(tag & wiretype_mask);
  field_.value = 0;
  field_.pPayload = nullptr;
  field_.length = 0;
  switch (field_.wireType) {
    case VARINT:
      if (!in.readVarint(field_.value)) return false;
      break;
    case FIXED64:
      if (!in.readFixed64(field_.value)) return false;
      break;
    case FIXED32: {
      uint32_t bits;
      if (!in.readFixed32(bits)) return false;
      field_.value = bits;
      break;
    }
    case LENGTH_DELIMITED: {
      uint64_t length;
      if (!in.readLength(length)) return false;
      field_.pPayload = in.position();
      field_.length = static_cast<size_t>(length);
      in.skip(field_.length);
      break;
    }
    case 3:
    case 4:
      break;
    default:
      return false;
  }
  p_ = in.position();
  return true;
}

std::string wireTypeName(uint32_t wireType_) {
  static const char* const names[] = {"0 (varint)",      "1 (fixed64)",   "2 (length-delimited)",
                                      "3 (group start)", "4 (group end)", "5 (fixed32)"};
  return wireType_ < 6 ? names[wireType_] : std::to_string(wireType_) + " (no such wire type)";
}

}  // namespace tarnpb
