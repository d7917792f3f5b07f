// The parser's per-occurrence steps, inline so that the level walk of
// tarn_protobuf_v2_parser.cc and the nested and packed decoding of
// tarn_protobuf_v2_parser_values.cc both run them without a call: entry
// preparation, storing and linking, and the decoding of one value.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_INLINE_H
#define TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_INLINE_H

#include <cstring>

#include "tarn_protobuf_v2_parser.h"

namespace tarn_parser_detail {

using google::protobuf::FieldDescriptor;

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
      out_ = zigzagDecode(v_);
      return true;
    default:
      return false;
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

}  // namespace tarn_parser_detail

TARN_ALWAYS_INLINE void tarn_protobuf_v2_parser::_initializeValueFromDescriptor(
    tarn_message_value_set_entry* pValue_, const google::protobuf::FieldDescriptor* pField_,
    parse_context& parseContext_) {
  *pValue_ = tarn_message_value_set_entry();
  const std::string& name = pField_->name();
  pValue_->hash = tarn_message_xpath_hash_string(name.data(), name.size(), parseContext_._baseHash);
  pValue_->parent = parseContext_._rootIndex;
  pValue_->first_child = INVALID;
  pValue_->next_sibling = INVALID;
  pValue_->tag_bytes = name.data();
  pValue_->tag_length = static_cast<uint32_t>(name.size());
  if (pField_->label() == google::protobuf::FieldDescriptor::LABEL_REQUIRED) {
    pValue_->value_flags = tarn_message_value_set_entry_flag_required;
  }
}

TARN_ALWAYS_INLINE uint32_t
tarn_protobuf_v2_parser::_insert(tarn_message_value_set_entry* pValue_) {
  const uint32_t previous = _previousSibling;
  const uint32_t index = tarn_message_xpath_update(_valueSet, _findSet, pValue_);
  _previousSibling = index;
  // The host may move its storage on every update, so stored entries are
  // fetched afresh and the pointers dropped at once.
  if (previous != INVALID) {
    tarn_message_value_set_entry* pPrevious = tarn_message_xpath_get(_valueSet, previous);
    if (pPrevious != nullptr) pPrevious->next_sibling = index;
    // A level's link state names a stored entry only once the level has
    // stored one, and storing the first one gave the parent its first child:
    // there is nothing left to do to the parent.
    return index;
  }
  if (pValue_->parent != INVALID) {
    tarn_message_value_set_entry* pParent = tarn_message_xpath_get(_valueSet, pValue_->parent);
    if (pParent != nullptr && pParent->first_child == INVALID) pParent->first_child = index;
  }
  return index;
}

TARN_ALWAYS_INLINE int tarn_protobuf_v2_parser::_consumeValue(
    tarn_message_value_set_entry* pValue_,
    const google::protobuf::FieldDescriptor* pFieldDescriptor_, wire_type wiretype_,
    parse_context& context_, const char* pValueStart_, const char* pEnd_) {
  using google::protobuf::FieldDescriptor;
  using namespace tarn_parser_detail;
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
      // is_packed() is a library call; it can only hold for a packable field,
      // which the inline is_packable() tells first.
      if (pFieldDescriptor_->is_packable() && pFieldDescriptor_->is_packed()) {
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

#endif
