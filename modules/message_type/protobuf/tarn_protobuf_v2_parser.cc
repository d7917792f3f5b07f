// The message walker: tags, field lookup, entry preparation, linking, and the
// defaults of absent fields at the end of each level.
#include "tarn_protobuf_v2_parser.h"

#include <new>

#include "tarn_protobuf_message_type.h"
#include "tarn_protobuf_v2_parser_inline.h"

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

int tarn_protobuf_message_type::parseMessage(const char* pData_, size_t length_,
                                             tarn_message_xpath_value_set valueSet_,
                                             tarn_message_xpath_find_set findSet_) const {
  try {
    tarn_protobuf_v2_parser parser(_pRootDescriptor, valueSet_, findSet_);
    return parser.parse(pData_, length_);
  } catch (const std::bad_alloc&) {
    // Only a level with more than 16 gaps allocates; the host must not see
    // the exception, only a failed parse.
    return TARN_FAILURE;
  }
}

int tarn_protobuf_v2_parser::parse(const char* pSource_, size_t sourceLength_) {
  parse_context context;
  context._pDescriptor = _pRootDescriptor;
  context._pSrc = pSource_;
  context._srcLength = sourceLength_;
  context._baseHash = tarn_message_xpath_hash_get_base(_valueSet);
  context._rootIndex = INVALID;
  return _parseMessage(context);
}

uint64_t tarn_protobuf_v2_parser::_consumeVarintSlow(const char*& pSrc_, const char* pEnd_) {
  const auto* p = reinterpret_cast<const unsigned char*>(pSrc_);
  // With ten bytes left a varint of up to ten bytes cannot be cut off, so its
  // bytes are taken without a bound check each. Byte 9 holds bit 63 only; the
  // shift drops its higher bits, as readVarint does.
  if (pEnd_ - pSrc_ >= 10) {
    uint64_t value = 0;
    for (unsigned i = 0; i < 10; ++i) {
      const uint64_t byte = p[i];
      value |= (byte & 0x7F) << (varint_component_bits * i);
      if (byte < 0x80) {
        pSrc_ += i + 1;
        return value;
      }
    }
    // Longer than ten bytes: only the checked reading knows where it ends.
  }
  uint64_t value;
  if (!readVarint(pSrc_, pEnd_, value)) {
    pSrc_ = pEnd_;
    return 0;
  }
  return value;
}

const FieldDescriptor* tarn_protobuf_v2_parser::_findFieldSlow(const Descriptor* pDescriptor_,
                                                               int number_, int& index_) {
  const FieldDescriptor* const pField = pDescriptor_->FindFieldByNumber(number_);
  if (pField != nullptr) index_ = pField->index();
  return pField;
}

int tarn_protobuf_v2_parser::_parseMessage(parse_context& context_) {
  const char* const pEnd = context_._pSrc + context_._srcLength;
  const Descriptor* const pDescriptor = context_._pDescriptor;
  const int fieldCount = pDescriptor->field_count();
  omitted_ranges omittedRanges;
  int lastFieldSeenIndex = -1;
  // The field of the previous occurrence and its index: a repeated field
  // arrives many times in a row, and the next field is tried after it.
  const FieldDescriptor* pField = nullptr;
  int thisIndex = -1;

  while (context_._pSrc < pEnd) {
    const char* const pValueStart = context_._pSrc;
    const uint64_t typeAndTag = _consumeVarint(context_._pSrc, pEnd);
    const wire_type wiretype = static_cast<wire_type>(typeAndTag & wiretype_mask);
    // The lookup takes an int: the low 32 bits of the number, as a signed
    // value, a conversion defined for every tag. Negative numbers and numbers
    // above the largest legal field number match no field and fail like field
    // 0 from a cut-off tag.
    const int number = static_cast<int32_t>(static_cast<uint32_t>(typeAndTag >> wiretype_bits));
    if (pField == nullptr || pField->number() != number) {
      pField = _findField(pDescriptor, fieldCount, number, thisIndex + 1, thisIndex);
      if (pField == nullptr) return TARN_FAILURE;
    }

    if (thisIndex > lastFieldSeenIndex) {
      if (thisIndex > lastFieldSeenIndex + 1)
        omittedRanges.addRange(lastFieldSeenIndex + 1, thisIndex);
      lastFieldSeenIndex = thisIndex;
    } else {
      omittedRanges.splitRange(thisIndex);
    }

    tarn_message_value_set_entry entry;
    _initializeValueFromDescriptor(&entry, pField, context_);
    if (_consumeValue(&entry, pField, wiretype, context_, pValueStart, pEnd) != TARN_SUCCESS) {
      return TARN_FAILURE;
    }
  }
  return _insertDefaults(context_, omittedRanges, lastFieldSeenIndex);
}

uint32_t tarn_protobuf_v2_parser::_descend() {
  const uint32_t saved = _previousSibling;
  _previousSibling = INVALID;
  ++_depth;
  return saved;
}

void tarn_protobuf_v2_parser::_ascend(uint32_t uplevelPreviousSibling_) {
  _previousSibling = uplevelPreviousSibling_;
  --_depth;
}

void tarn_protobuf_v2_parser::omitted_ranges::splitRange(int split_) {
  for (size_type i = 0; i < _size; ++i) {
    std::pair<int, int>& range = _pArray[i];
    if (range.first <= split_ && split_ < range.second) {
      if (split_ == range.first) {
        range.first = split_ + 1;
      } else {
        const int previousEnd = range.second;
        range.second = split_;
        // push_back may move the list: `range` is not touched after it.
        if (split_ + 1 != previousEnd) addRange(split_ + 1, previousEnd);
      }
      return;
    }
  }
}

int tarn_protobuf_v2_parser::_insertDefaults(parse_context& context_, const omitted_ranges& ranges_,
                                             int lastFieldSeenIndex_) {
  const Descriptor* const pDescriptor = context_._pDescriptor;
  for (omitted_ranges::size_type r = 0; r < ranges_.size(); ++r) {
    for (int i = ranges_[r].first; i < ranges_[r].second; ++i) {
      if (_insertDefault(context_, toHandle(pDescriptor->field(i))) != TARN_SUCCESS) {
        return TARN_FAILURE;
      }
    }
  }
  const int fieldCount = pDescriptor->field_count();
  for (int i = lastFieldSeenIndex_ + 1; i < fieldCount; ++i) {
    if (_insertDefault(context_, toHandle(pDescriptor->field(i))) != TARN_SUCCESS) {
      return TARN_FAILURE;
    }
  }
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_insertDefault(parse_context& context_, field_handle omitted_) {
  const FieldDescriptor* const pField = fromHandle(omitted_);
  // Message and repeated fields never declare a default, and neither do
  // fields that rely on the implicit zero: none of them gets an entry.
  if (!pField->has_default_value()) return TARN_SUCCESS;
  tarn_message_value_set_entry entry;
  _initializeValueFromDescriptor(&entry, pField, context_);
  if (_setValueFromDescriptorDefault(&entry, pField) != TARN_SUCCESS) return TARN_FAILURE;
  _insert(&entry);
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_setValueFromDescriptorDefault(tarn_message_value_set_entry* pValue_,
                                                            const FieldDescriptor* pField_) {
  switch (pField_->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      tarn_message_value_set_entry_set_long(pValue_, pField_->default_value_int32());
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_INT64:
      tarn_message_value_set_entry_set_long(pValue_, pField_->default_value_int64());
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_UINT32:
      tarn_message_value_set_entry_set_long(pValue_, pField_->default_value_uint32());
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_UINT64:
      tarn_message_value_set_entry_set_long(pValue_,
                                            static_cast<int64_t>(pField_->default_value_uint64()));
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_DOUBLE:
      tarn_message_value_set_entry_set_double(pValue_, pField_->default_value_double());
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_FLOAT:
      tarn_message_value_set_entry_set_double(pValue_, pField_->default_value_float());
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_BOOL:
      tarn_message_value_set_entry_set_long(pValue_, pField_->default_value_bool() ? 1 : 0);
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_ENUM:
      tarn_message_value_set_entry_set_long(pValue_, pField_->default_value_enum()->number());
      return TARN_SUCCESS;
    case FieldDescriptor::CPPTYPE_STRING: {
      const std::string& text = pField_->default_value_string();
      pValue_->string_rep = text.data();
      pValue_->string_rep_length = static_cast<uint32_t>(text.size());
      return TARN_SUCCESS;
    }
    default:
      return TARN_FAILURE;
  }
}
