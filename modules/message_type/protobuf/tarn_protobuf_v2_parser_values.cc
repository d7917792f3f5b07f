// Field value decoding: which wire types a declared field type accepts, how
// each arrival becomes a long, a double or a string reference into the body,
// packed blocks as one entry per element, and the step into nested messages.
#include <cstring>

#include "tarn_protobuf_v2_parser.h"

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace {

// Little-endian on the wire, read byte by byte: no alignment is assumed.
inline uint32_t loadFixed32(const char* p_) {
  const auto* p = reinterpret_cast<const unsigned char*>(p_);
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t loadFixed64(const char* p_) {
  return static_cast<uint64_t>(loadFixed32(p_)) | static_cast<uint64_t>(loadFixed32(p_ + 4)) << 32;
}

inline double asDouble(uint64_t bits_) {
  double value;
  std::memcpy(&value, &bits_, sizeof value);
  return value;
}

inline double widenFloat(uint32_t bits_) {
  float value;
  std::memcpy(&value, &bits_, sizeof value);
  return value;
}

// The value a varint carries for a field type, or false for a type that
// cannot arrive as a varint.
inline bool varintAs(FieldDescriptor::Type type_, uint64_t v_, int64_t& out_) {
  switch (type_) {
    case FieldDescriptor::TYPE_INT64:
    case FieldDescriptor::TYPE_UINT64:
    case FieldDescriptor::TYPE_BOOL:
    case FieldDescriptor::TYPE_UINT32:
    case FieldDescriptor::TYPE_ENUM:
      // All 64 bits as sent: a bool keeps its number, a uint32 is not cut.
      out_ = static_cast<int64_t>(v_);
      return true;
    case FieldDescriptor::TYPE_INT32:
      out_ = static_cast<int32_t>(static_cast<uint32_t>(v_));
      return true;
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      out_ = static_cast<int64_t>((v_ >> 1) ^ (0 - (v_ & 1)));
      return true;
    default:
      return false;
  }
}

enum class packed_element { none, varint, fixed32, fixed64 };

inline packed_element packedElementOf(FieldDescriptor::Type type_) {
  switch (type_) {
    case FieldDescriptor::TYPE_DOUBLE:
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      return packed_element::fixed64;
    case FieldDescriptor::TYPE_FLOAT:
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
      return packed_element::fixed32;
    case FieldDescriptor::TYPE_INT64:
    case FieldDescriptor::TYPE_UINT64:
    case FieldDescriptor::TYPE_INT32:
    case FieldDescriptor::TYPE_BOOL:
    case FieldDescriptor::TYPE_UINT32:
    case FieldDescriptor::TYPE_ENUM:
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      return packed_element::varint;
    default:
      return packed_element::none;
  }
}

inline void setFixed64(tarn_message_value_set_entry* pValue_, FieldDescriptor::Type type_,
                       uint64_t bits_) {
  if (type_ == FieldDescriptor::TYPE_DOUBLE) {
    tarn_message_value_set_entry_set_double(pValue_, asDouble(bits_));
  } else {
    tarn_message_value_set_entry_set_long(pValue_, static_cast<int64_t>(bits_));
  }
}

inline void setFixed32(tarn_message_value_set_entry* pValue_, FieldDescriptor::Type type_,
                       uint32_t bits_) {
  if (type_ == FieldDescriptor::TYPE_FLOAT) {
    tarn_message_value_set_entry_set_double(pValue_, widenFloat(bits_));
  } else if (type_ == FieldDescriptor::TYPE_SFIXED32) {
    tarn_message_value_set_entry_set_long(pValue_, static_cast<int32_t>(bits_));
  } else {
    tarn_message_value_set_entry_set_long(pValue_, bits_);
  }
}

}  // namespace

int tarn_protobuf_v2_parser::_consumeValue(tarn_message_value_set_entry* pValue_,
                                           const FieldDescriptor* pFieldDescriptor_,
                                           wire_type wiretype_, parse_context& context_,
                                           const char* pValueStart_, const char* pEnd_) {
  const FieldDescriptor::Type type = pFieldDescriptor_->type();
  switch (wiretype_) {
    case VARINT: {
      int64_t value;
      if (!varintAs(type, _consumeVarint(context_._pSrc, pEnd_), value)) return TARN_FAILURE;
      tarn_message_value_set_entry_set_long(pValue_, value);
      break;
    }
    case FIXED64:
      // A value cut off by the end of the level is malformed, as a length
      // prefix running past it is; nothing beyond the level is read.
      if (pEnd_ - context_._pSrc < 8) return TARN_FAILURE;
      setFixed64(pValue_, type, loadFixed64(context_._pSrc));
      context_._pSrc += 8;
      break;
    case FIXED32:
      if (pEnd_ - context_._pSrc < 4) return TARN_FAILURE;
      setFixed32(pValue_, type, loadFixed32(context_._pSrc));
      context_._pSrc += 4;
      break;
    case LENGTH_DELIMITED: {
      if (pFieldDescriptor_->is_packed()) {
        return _consumePacked(pFieldDescriptor_, pValue_, context_, pValueStart_, pEnd_);
      }
      const uint64_t length = _consumeVarint(context_._pSrc, pEnd_);
      // Compared with what is left, so no length can wrap the position.
      if (length > static_cast<uint64_t>(pEnd_ - context_._pSrc)) return TARN_FAILURE;
      if (type == FieldDescriptor::TYPE_MESSAGE) {
        return _consumeMessage(pValue_, pFieldDescriptor_, context_, pValueStart_,
                               static_cast<size_t>(length));
      }
      // Strings, bytes, groups and unpacked scalars sent as a block: the
      // payload byte for byte, unchecked.
      pValue_->string_rep = context_._pSrc;
      pValue_->string_rep_length = static_cast<uint32_t>(length);
      context_._pSrc += length;
      break;
    }
    default:
      return TARN_FAILURE;
  }
  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(context_._pSrc - pValueStart_);
  _insert(pValue_);
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_consumeMessage(tarn_message_value_set_entry* pValue_,
                                             const FieldDescriptor* pFieldDescriptor_,
                                             parse_context& context_, const char* pValueStart_,
                                             size_t length_) {
  const Descriptor* const pType = pFieldDescriptor_->message_type();
  if (pType == nullptr) return TARN_FAILURE;
  // Refused before the entry is stored: a level too deep leaves nothing of
  // its field behind, like every other rejected value.
  if (_depth >= max_nesting_depth) return TARN_FAILURE;

  const char* const pPayload = context_._pSrc;
  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(pPayload + length_ - pValueStart_);

  parse_context child;
  child._pDescriptor = pType;
  child._pSrc = pPayload;
  child._srcLength = length_;
  child._baseHash = tarn_message_xpath_hash_add_separator(pValue_->hash);
  child._rootIndex = _insert(pValue_);

  const uint32_t uplevelPreviousSibling = _descend();
  const int result = _parseMessage(child);
  _ascend(uplevelPreviousSibling);
  if (result != TARN_SUCCESS) return TARN_FAILURE;

  context_._pSrc = pPayload + length_;
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_consumePacked(const FieldDescriptor* pFieldDescriptor_,
                                            tarn_message_value_set_entry* pValue_,
                                            parse_context& context_, const char* pValueStart_,
                                            const char* pEnd_) {
  const FieldDescriptor::Type type = pFieldDescriptor_->type();
  const packed_element element = packedElementOf(type);
  if (element == packed_element::none) return TARN_FAILURE;

  const uint64_t length = _consumeVarint(context_._pSrc, pEnd_);
  if (length > static_cast<uint64_t>(pEnd_ - context_._pSrc)) return TARN_FAILURE;
  const char* const pBlockEnd = context_._pSrc + length;

  // Every element must lie inside its block, and the whole block is checked
  // before the first element is stored, so a bad block leaves nothing of its
  // field behind. For varints it is enough that the block's last byte ends a
  // varint: then every element ends at or before it. Elements never read into
  // the bytes after the block.
  switch (element) {
    case packed_element::varint:
      if (length != 0 && (static_cast<unsigned char>(pBlockEnd[-1]) & 0x80) != 0) {
        return TARN_FAILURE;
      }
      break;
    case packed_element::fixed32:
      if (length % 4 != 0) return TARN_FAILURE;
      break;
    case packed_element::fixed64:
      if (length % 8 != 0) return TARN_FAILURE;
      break;
    case packed_element::none:
      return TARN_FAILURE;
  }

  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(pBlockEnd - pValueStart_);

  const char*& pSrc = context_._pSrc;
  while (pSrc < pBlockEnd) {
    switch (element) {
      case packed_element::varint: {
        int64_t value = 0;
        (void)varintAs(type, _consumeVarint(pSrc, pBlockEnd), value);
        tarn_message_value_set_entry_set_long(pValue_, value);
        break;
      }
      case packed_element::fixed32:
        setFixed32(pValue_, type, loadFixed32(pSrc));
        pSrc += 4;
        break;
      case packed_element::fixed64:
        setFixed64(pValue_, type, loadFixed64(pSrc));
        pSrc += 8;
        break;
      case packed_element::none:
        return TARN_FAILURE;
    }
    _insert(pValue_);
  }
  return TARN_SUCCESS;
}
