// The message walker: tags, field lookup, each arrival as a long, a double
// or a string reference into the body, the step into nested messages, and the
// defaults of absent fields at the end of each level. The steps taken once
// per field occurrence (tarn_protobuf_v2_parser_steps.h), and the step into
// a nested level, are force-inlined into the level walk; packed blocks
// (tarn_protobuf_v2_packed.cc) and defaults are ordinary calls.
#include "tarn_protobuf_v2_parser_steps.h"

using google::protobuf::FieldDescriptor;

// The wire rules classify field types by libprotobuf's own numbering.
static_assert(FieldDescriptor::TYPE_DOUBLE == 1 && FieldDescriptor::TYPE_INT32 == 5 &&
                  FieldDescriptor::TYPE_GROUP == 10 && FieldDescriptor::TYPE_SINT64 == 18 &&
                  FieldDescriptor::MAX_TYPE == 18,
              "field type numbers as travelOf takes them");

tarn_protobuf_v2_parser::varint_read tarn_protobuf_v2_parser::_consumeVarintSlow(
    const char* pSrc_, const char* pEnd_, const char* pFloor_) {
  varint_read read;
  if (readVarintLong(pSrc_, pEnd_, read.value, pFloor_)) {
    read.pNext = pSrc_;
  } else {
    read.value = 0;
    read.pNext = pEnd_;
  }
  return read;
}

TARN_ALWAYS_INLINE int tarn_protobuf_v2_parser::_consumeValue(
    tarn_message_value_set_entry* pValue_, const field_entry& field_, unsigned decoder_,
    const parse_context& context_, const char*& pSrc_, const char* pValueStart_,
    const char* pEnd_) {
  const char*& pSrc = pSrc_;
  switch (decoder_) {
    case decode_varint:
      tarn_message_value_set_entry_set_long(
          pValue_, static_cast<int64_t>(_consumeVarintValue(pSrc, pEnd_, _pBody, _pBodyEnd)));
      break;
    case decode_varint_int32:
      tarn_message_value_set_entry_set_long(
          pValue_, static_cast<int32_t>(
                       static_cast<uint32_t>(_consumeVarintValue(pSrc, pEnd_, _pBody, _pBodyEnd))));
      break;
    case decode_zigzag:
      tarn_message_value_set_entry_set_long(
          pValue_, zigzagDecode(_consumeVarintValue(pSrc, pEnd_, _pBody, _pBodyEnd)));
      break;
    // A value cut off by the end of the level is malformed, as a length
    // prefix running past it is; nothing beyond the level is read.
    case decode_fixed64_double:
      if (pEnd_ - pSrc < 8) return TARN_FAILURE;
      tarn_message_value_set_entry_set_double(pValue_, asDouble(loadFixed64(pSrc)));
      pSrc += 8;
      break;
    case decode_fixed64_long:
      if (pEnd_ - pSrc < 8) return TARN_FAILURE;
      tarn_message_value_set_entry_set_long(pValue_, static_cast<int64_t>(loadFixed64(pSrc)));
      pSrc += 8;
      break;
    case decode_fixed32_float:
      if (pEnd_ - pSrc < 4) return TARN_FAILURE;
      tarn_message_value_set_entry_set_double(pValue_, widenFloat(loadFixed32(pSrc)));
      pSrc += 4;
      break;
    case decode_fixed32_signed:
      if (pEnd_ - pSrc < 4) return TARN_FAILURE;
      tarn_message_value_set_entry_set_long(pValue_, static_cast<int32_t>(loadFixed32(pSrc)));
      pSrc += 4;
      break;
    case decode_fixed32_unsigned:
      if (pEnd_ - pSrc < 4) return TARN_FAILURE;
      tarn_message_value_set_entry_set_long(pValue_, loadFixed32(pSrc));
      pSrc += 4;
      break;
    case decode_packed:
      pSrc = _consumePacked(field_, pValue_, pValueStart_, pSrc, pEnd_);
      return pSrc != nullptr ? TARN_SUCCESS : TARN_FAILURE;
    case decode_message:
    case decode_block: {
      const uint64_t length = _consumeLength(pSrc, pEnd_, _pBody);
      // Compared with what is left, so no length can wrap the position.
      if (length > static_cast<uint64_t>(pEnd_ - pSrc)) return TARN_FAILURE;
      if (decoder_ == decode_message) {
        return _consumeMessage(pValue_, field_, context_, pSrc, pValueStart_,
                               static_cast<size_t>(length));
      }
      // The payload byte for byte, unchecked.
      pValue_->string_rep = pSrc;
      pValue_->string_rep_length = static_cast<uint32_t>(length);
      pSrc += length;
      break;
    }
    case decode_fail:
      return TARN_FAILURE;
    default:
      // The tables hold only the decoders above: the jump needs no range
      // check of its own.
      __builtin_unreachable();
  }
  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(pSrc - pValueStart_);
  _insert(pValue_);
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::parse(const char* pSource_, size_t sourceLength_) {
  _pBody = pSource_;
  _pBodyEnd = pSource_ + sourceLength_;
  parse_context context;
  context._pTable = _pRootTable;
  context._pSrc = pSource_;
  context._pEnd = pSource_ + sourceLength_;
  context._depth = 0;
  context._baseHash = tarn_message_xpath_hash_get_base(_valueSet);
  context._rootIndex = INVALID;
  context._repeats = false;
  return _parseMessage(context);
}

// Which fields a level left absent, kept only for a type that declares
// defaults: a level of a type without any pays nothing for it, not even the
// set-up of the range list.
class tarn_protobuf_v2_parser::absent_fields {
 public:
  absent_fields() : _lastFieldSeenIndex(-1) {}
  TARN_ALWAYS_INLINE void seen(int index_) {
    if (index_ > _lastFieldSeenIndex) {
      if (index_ > _lastFieldSeenIndex + 1) _ranges.addRange(_lastFieldSeenIndex + 1, index_);
      _lastFieldSeenIndex = index_;
    } else {
      _ranges.splitRange(index_);
    }
  }
  int finish(tarn_protobuf_v2_parser& parser_, parse_context& context_) const {
    return parser_._insertDefaults(context_, _ranges, _lastFieldSeenIndex);
  }

 private:
  omitted_ranges _ranges;
  int _lastFieldSeenIndex;
};

struct tarn_protobuf_v2_parser::no_defaults {
  void seen(int) {}
  int finish(tarn_protobuf_v2_parser&, parse_context&) const { return TARN_SUCCESS; }
};

int tarn_protobuf_v2_parser::_parseMessage(parse_context& context_) {
  if (context_._pTable->anyDefault) return _parseLevel<absent_fields>(context_);
  return _parseLevel<no_defaults>(context_);
}

template <typename Absent>
int tarn_protobuf_v2_parser::_parseLevel(parse_context& context_) {
  // The read position lives in a register for the whole level.
  const char* p = context_._pSrc;
  const char* const pEnd = context_._pEnd;
  const type_table& table = *context_._pTable;
  Absent absent;
  // The field of the previous occurrence and its path hash: a repeated field
  // arrives many times in a row, and the next field is tried after it.
  const field_entry* pField = nullptr;
  uint32_t hash = 0;
  int thisIndex = -1;

  while (p < pEnd) {
    const char* const pValueStart = p;
    // A one-byte tag of a field numbered below 16 names its field through
    // the tag table; any other tag is split and looked up.
    const unsigned first = static_cast<unsigned char>(*pValueStart);
    const field_entry* pThis;
    unsigned decoder;
    if (first < 0x80 && (pThis = table.byTag[first >> wiretype_bits]) != nullptr) {
      ++p;
      decoder = pThis->decode[first & wiretype_mask];
    } else {
      const uint64_t typeAndTag = _consumeVarint(p, pEnd, _pBody);
      // The lookup takes an int: the low 32 bits of the number, as a signed
      // value, a conversion defined for every tag. Negative numbers and
      // numbers above the largest legal field number match no field and fail
      // like field 0 from a cut-off tag.
      const int number = static_cast<int32_t>(static_cast<uint32_t>(typeAndTag >> wiretype_bits));
      if (pField != nullptr && pField->number == number) {
        pThis = pField;
      } else {
        pThis = table.find(number, thisIndex + 1);
        if (pThis == nullptr) return TARN_FAILURE;
      }
      decoder = pThis->decode[typeAndTag & wiretype_mask];
    }
    // A field again in a row keeps its hash and has been seen already.
    if (pThis != pField) {
      pField = pThis;
      thisIndex = pField->index;
      hash = _hash(*pField, context_);
      absent.seen(thisIndex);
    }

    tarn_message_value_set_entry entry;
    _initializeEntry(&entry, *pField, hash, context_);
    if (_consumeValue(&entry, *pField, decoder, context_, p, pValueStart, pEnd) != TARN_SUCCESS) {
      return TARN_FAILURE;
    }
  }
  return absent.finish(*this, context_);
}

TARN_ALWAYS_INLINE int tarn_protobuf_v2_parser::_consumeMessage(
    tarn_message_value_set_entry* pValue_, const field_entry& field_, const parse_context& context_,
    const char*& pSrc_, const char* pValueStart_, size_t length_) {
  // Refused before the entry is stored: a level too deep leaves nothing of
  // its field behind, like every other rejected value.
  if (!mayNest(context_._depth)) return TARN_FAILURE;

  const char* const pPayload = pSrc_;
  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(pPayload + length_ - pValueStart_);

  parse_context child;
  child._pTable = field_.nested;
  child._pSrc = pPayload;
  child._pEnd = pPayload + length_;
  child._depth = static_cast<uint8_t>(context_._depth + 1);
  child._repeats = (context_._repeats || field_.is(field_repeated)) && !field_.nested->recursive;
  child._baseHash = tarn_message_xpath_hash_add_separator(pValue_->hash);
  child._rootIndex = _insert(pValue_);

  // The level below links its own entries; this level's newest comes back
  // after it.
  const uint32_t previousSibling = _previousSibling;
  _previousSibling = INVALID;
  const int result = _parseMessage(child);
  _previousSibling = previousSibling;
  if (result != TARN_SUCCESS) return TARN_FAILURE;

  pSrc_ = child._pEnd;
  return TARN_SUCCESS;
}

void tarn_protobuf_v2_parser::omitted_ranges::splitRange(int split_) {
  for (size_type i = 0; i < _size; ++i) {
    index_range& range = _pArray[i];
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
  const type_table& table = *context_._pTable;
  for (omitted_ranges::size_type r = 0; r < ranges_.size(); ++r) {
    for (int i = ranges_[r].first; i < ranges_[r].second; ++i) {
      if (_insertDefault(context_, table.fieldArray[i]) != TARN_SUCCESS) return TARN_FAILURE;
    }
  }
  const int fieldCount = table.fieldCount();
  for (int i = lastFieldSeenIndex_ + 1; i < fieldCount; ++i) {
    if (_insertDefault(context_, table.fieldArray[i]) != TARN_SUCCESS) {
      return TARN_FAILURE;
    }
  }
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_insertDefault(parse_context& context_, const field_entry& omitted_) {
  // Message and repeated fields never declare a default, and neither do
  // fields that rely on the implicit zero: none of them gets an entry.
  if (!omitted_.is(field_has_default)) return TARN_SUCCESS;
  tarn_message_value_set_entry entry;
  _initializeEntry(&entry, omitted_, _hash(omitted_, context_), context_);
  if (_setDefault(&entry, omitted_) != TARN_SUCCESS) return TARN_FAILURE;
  _insert(&entry);
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_setDefault(tarn_message_value_set_entry* pValue_,
                                         const field_entry& field_) {
  switch (field_.defaultKind) {
    case default_long:
      tarn_message_value_set_entry_set_long(pValue_, field_.defaultLong);
      return TARN_SUCCESS;
    case default_double:
      tarn_message_value_set_entry_set_double(pValue_, field_.defaultDouble);
      return TARN_SUCCESS;
    case default_string:
      pValue_->string_rep = field_.defaultString;
      pValue_->string_rep_length = field_.defaultStringLength;
      return TARN_SUCCESS;
    default:
      return TARN_FAILURE;
  }
}
