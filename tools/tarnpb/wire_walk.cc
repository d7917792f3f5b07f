#include "wire_walk.h"

#include "modules/message_type/protobuf/wire_format.h"

namespace tarnpb {

bool nextField(const char*& p_, const char* pEnd_, WireField& field_) {
  const char* p = p_;
  uint64_t tag;
  if (!readVarint(p, pEnd_, tag)) return false;
  field_.pStart = p_;
  field_.number = tag >> wiretype_bits;
  field_.wireType = static_cast<uint32_t>(tag & wiretype_mask);
  field_.value = 0;
  field_.pPayload = nullptr;
  field_.length = 0;
  switch (field_.wireType) {
    case VARINT:
      if (!readVarint(p, pEnd_, field_.value)) return false;
      break;
    case FIXED64:
      if (pEnd_ - p < 8) return false;
      field_.value = loadFixed64(p);
      p += 8;
      break;
    case FIXED32:
      if (pEnd_ - p < 4) return false;
      field_.value = loadFixed32(p);
      p += 4;
      break;
    case LENGTH_DELIMITED: {
      uint64_t length;
      if (!readVarint(p, pEnd_, length) || length > static_cast<uint64_t>(pEnd_ - p)) return false;
      field_.pPayload = p;
      field_.length = static_cast<size_t>(length);
      p += length;
      break;
    }
    case 3:
    case 4:
      break;
    default:
      return false;
  }
  p_ = p;
  return true;
}

const char* wireTypeName(uint32_t wireType_) {
  static const char* const names[] = {"0 (varint)",      "1 (fixed64)",   "2 (length-delimited)",
                                      "3 (group start)", "4 (group end)", "5 (fixed32)"};
  return wireType_ < 6 ? names[wireType_] : "no such wire type";
}

}  // namespace tarnpb
