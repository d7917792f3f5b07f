// Field value decoding: which wire types a declared field type accepts, how
// each arrival becomes a long, a double or a string reference into the body,
// packed blocks as one entry per element, and the step into nested messages.
#include "tarn_protobuf_v2_parser.h"
#include "tarn_protobuf_v2_parser_inline.h"

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace {

using namespace tarn_parser_detail;

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

}  // namespace

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
