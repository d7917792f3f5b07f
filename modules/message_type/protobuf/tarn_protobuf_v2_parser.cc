// The message walker, whole: tags, field lookup, each arrival decoded by its
// field's value decoder and stored as a long, a double or a string reference
// into the body, packed blocks, the step into nested messages, and the
// defaults of absent fields at the end of each level. The steps taken once
// per field occurrence, and the step into a nested level, are force-inlined
// into the level walk; packed blocks and defaults are ordinary calls.
#include "tarn_protobuf_v2_parser.h"

using google::protobuf::FieldDescriptor;

// The wire rules classify field types by libprotobuf's own numbering.
static_assert(FieldDescriptor::TYPE_DOUBLE == 1 && FieldDescriptor::TYPE_INT32 == 5 &&
                  FieldDescriptor::TYPE_GROUP == 10 && FieldDescriptor::TYPE_SINT64 == 18 &&
                  FieldDescriptor::MAX_TYPE == 18,
              "field type numbers as travelOf takes them");
// The level walk indexes the tag table with any first tag byte, shifted.
static_assert(sizeof(type_table::byTag) / sizeof(type_table::byTag[0]) ==
                  (0xFFu >> wiretype_bits) + 1,
              "one tag table entry per first tag byte, shifted");

namespace {

TARN_ALWAYS_INLINE void storeScalar(tarn_message_value_set_entry* pValue_, scalar_value value_) {
  if (value_.isDouble) {
    tarn_message_value_set_entry_set_double(pValue_, value_.real);
  } else {
    tarn_message_value_set_entry_set_long(pValue_, value_.integer);
  }
}

// One varint scalar of a field that arrived unpacked, into pValue_. A varint
// cut off by the end of the level reads as 0.
template <value_decoder Decoder>
TARN_ALWAYS_INLINE void storeVarint(tarn_message_value_set_entry* pValue_, wire_cursor& in_) {
  storeScalar(pValue_, decodeScalar(Decoder, in_.valueOrZero()));
}

// One fixed-width scalar, into pValue_; false when it is cut off by the end
// of the level, which is malformed as a length prefix running past it is.
template <value_decoder Decoder>
TARN_ALWAYS_INLINE bool storeFixed(tarn_message_value_set_entry* pValue_, wire_cursor& in_) {
  uint64_t bits;
  if (fixedWidth(Decoder) == 8) {
    if (!in_.readFixed64(bits)) return false;
  } else {
    uint32_t bits32;
    if (!in_.readFixed32(bits32)) return false;
    bits = bits32;
  }
  storeScalar(pValue_, decodeScalar(Decoder, bits));
  return true;
}

}  // namespace

TARN_ALWAYS_INLINE void tarn_protobuf_v2_parser::_initializeEntry(
    tarn_message_value_set_entry* pValue_, const field_entry& field_, uint32_t hash_,
    const parse_context& parseContext_) {
  *pValue_ = field_.entry;
  pValue_->hash = hash_;
  pValue_->parent = parseContext_._rootIndex;
}

TARN_ALWAYS_INLINE uint32_t tarn_protobuf_v2_parser::_hash(const field_entry& field_,
                                                           const parse_context& context_) {
  // The host's hash is the usual case (every level outside a repeated one):
  // marked so, it falls through to the entry's fill and the memo's paths take
  // the jump.
  if (__builtin_expect(!context_._repeats || !_hashes.on(), 1))
    return tarn_message_xpath_hash_string(field_.name, field_.nameLength, context_._baseHash);
  return _hashes.hash(field_, context_._baseHash);
}

TARN_ALWAYS_INLINE uint32_t
tarn_protobuf_v2_parser::_insert(tarn_message_value_set_entry* pValue_) {
  const uint32_t previous = _previousSibling;
  const uint32_t index = tarn_message_xpath_update(_valueSet, _findSet, pValue_);
  _previousSibling = index;
  // The host may move its storage on every update, so stored entries are
  // fetched afresh and the pointers dropped at once.
  if (previous != tarn_message_value_invalid_index) {
    tarn_message_value_set_entry* pPrevious = tarn_message_xpath_get(_valueSet, previous);
    if (pPrevious != nullptr) pPrevious->next_sibling = index;
    // A level's link state names a stored entry only once the level has
    // stored one, and storing the first one gave the parent its first child:
    // there is nothing left to do to the parent.
    return index;
  }
  if (pValue_->parent != tarn_message_value_invalid_index) {
    tarn_message_value_set_entry* pParent = tarn_message_xpath_get(_valueSet, pValue_->parent);
    if (pParent != nullptr && pParent->first_child == tarn_message_value_invalid_index)
      pParent->first_child = index;
  }
  return index;
}

TARN_ALWAYS_INLINE int tarn_protobuf_v2_parser::_consumeValue(
    tarn_message_value_set_entry* pValue_, const field_entry& field_, unsigned decoder_,
    const parse_context& context_, wire_cursor& in_, const char* pValueStart_) {
  switch (decoder_) {
    case decode_varint:
      storeVarint<decode_varint>(pValue_, in_);
      break;
    case decode_varint_int32:
      storeVarint<decode_varint_int32>(pValue_, in_);
      break;
    case decode_zigzag:
      storeVarint<decode_zigzag>(pValue_, in_);
      break;
    case decode_fixed64_double:
      if (!storeFixed<decode_fixed64_double>(pValue_, in_)) return refusal_value_cut;
      break;
    case decode_fixed64_signed:
    case decode_fixed64_unsigned:
      if (!storeFixed<decode_fixed64_signed>(pValue_, in_)) return refusal_value_cut;
      break;
    case decode_fixed32_float:
      if (!storeFixed<decode_fixed32_float>(pValue_, in_)) return refusal_value_cut;
      break;
    case decode_fixed32_signed:
      if (!storeFixed<decode_fixed32_signed>(pValue_, in_)) return refusal_value_cut;
      break;
    case decode_fixed32_unsigned:
      if (!storeFixed<decode_fixed32_unsigned>(pValue_, in_)) return refusal_value_cut;
      break;
    case decode_packed: {
      const char* const pNext =
          _consumePacked(field_, pValue_, pValueStart_, context_, in_.position());
      if (pNext == nullptr) return refusal_packed_block;
      in_.moveTo(pNext);
      return TARN_SUCCESS;
    }
    case decode_message:
    case decode_block: {
      const uint64_t length = in_.lengthOrZero();
      // Compared with what is left, so no length can wrap the position.
      if (length > in_.left()) {
        return refusal_length;
      }
      if (decoder_ == decode_message) {
        return _consumeMessage(pValue_, field_, context_, in_, pValueStart_,
                               static_cast<size_t>(length));
      }
      // The payload byte for byte, unchecked.
      pValue_->string_rep = in_.position();
      pValue_->string_rep_length = static_cast<uint32_t>(length);
      in_.skip(static_cast<size_t>(length));
      break;
    }
    case decode_fail:
      return refusal_wire_type;
    default:
      // The tables hold only the decoders above: the jump needs no range
      // check of its own.
      __builtin_unreachable();
  }
  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(in_.position() - pValueStart_);
  _insert(pValue_);
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::parse(const char* pSource_, size_t sourceLength_) {
  _body.pStart = pSource_;
  _body.pEnd = pSource_ + sourceLength_;
  parse_context context = {_pRootTable,
                           _body.pStart,
                           _body.pEnd,
                           tarn_message_xpath_hash_get_base(_valueSet),
                           tarn_message_value_invalid_index,
                           0,
                           false};
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
  // The cursor lives in registers for the whole level.
  wire_cursor in(_body, context_._pSrc, context_._pEnd);
  const type_table& table = *context_._pTable;
  Absent absent;
  // The field of the previous occurrence and its path hash: a repeated field
  // arrives many times in a row, and the next field is tried after it.
  const field_entry* pField = nullptr;
  uint32_t hash = 0;
  int thisIndex = -1;

  while (in.more()) {
    const char* const pValueStart = in.position();
    // A one-byte tag of a field numbered below 16 names its field through
    // the tag table; any other tag (longer ones meet the table's null upper
    // half) is split and looked up.
    const unsigned first = in.peekByte();
    const field_entry* pThis;
    unsigned decoder;
    if ((pThis = table.byTag[first >> wiretype_bits]) != nullptr) {
      in.skip(1);
      decoder = pThis->decode[first & wiretype_mask];
    } else {
      // A cut-off tag reads as field 0, which no type has.
      const wire_tag tag = in.tagOrZero();
      if (pField != nullptr && pField->number == tag.number) {
        pThis = pField;
      } else {
        pThis = table.find(tag.number, thisIndex + 1);
        if (pThis == nullptr) {
          return _refuse(refusal_unknown_field, context_, nullptr, pValueStart);
        }
      }
      decoder = pThis->decode[tag.wireType];
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
    const int refused = _consumeValue(&entry, *pField, decoder, context_, in, pValueStart);
    if (__builtin_expect(refused != refusal_none, 0)) {
      return _refuse(refused, context_, pField, pValueStart);
    }
  }
  return absent.finish(*this, context_);
}

TARN_ALWAYS_INLINE int tarn_protobuf_v2_parser::_consumeMessage(
    tarn_message_value_set_entry* pValue_, const field_entry& field_, const parse_context& context_,
    wire_cursor& in_, const char* pValueStart_, size_t length_) {
  // Refused before the entry is stored: a level too deep leaves nothing of
  // its field behind, like every other rejected value.
  if (!mayNest(context_._depth)) {
    return refusal_too_deep;
  }

  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(in_.position() + length_ - pValueStart_);

  parse_context child;
  child._pTable = field_.nested;
  child._pSrc = in_.position();
  child._pEnd = in_.position() + length_;
  child._depth = static_cast<uint8_t>(context_._depth + 1);
  child._baseHash = tarn_message_xpath_hash_add_separator(pValue_->hash);
  child._rootIndex = _insert(pValue_);
  child._repeats = (context_._repeats || field_.is(field_repeated)) && !field_.nested->recursive;

  // The level below links its own entries; this level's newest comes back
  // after it.
  const uint32_t previousSibling = _previousSibling;
  _previousSibling = tarn_message_value_invalid_index;
  const int result = _parseMessage(child);
  _previousSibling = previousSibling;
  if (result != TARN_SUCCESS) return refusal_nested;

  in_.skip(length_);
  return TARN_SUCCESS;
}

// One entry per element, in one loop per decoder, so that the decoder is
// decided once per block. The block has been checked whole: every element
// lies inside it.
template <value_decoder Decoder>
void tarn_protobuf_v2_parser::_storeElements(tarn_message_value_set_entry* pValue_,
                                             wire_cursor& block_) {
  while (block_.more()) {
    const unsigned width = fixedWidth(Decoder);
    const uint64_t bits = width == 0   ? block_.varintOrZero()
                          : width == 4 ? loadFixed32(block_.position())
                                       : loadFixed64(block_.position());
    block_.skip(width);
    storeScalar(pValue_, decodeScalar(Decoder, bits));
    _insert(pValue_);
  }
}

const char* tarn_protobuf_v2_parser::_consumePacked(const field_entry& field_,
                                                    tarn_message_value_set_entry* pValue_,
                                                    const char* pValueStart_,
                                                    const parse_context& context_,
                                                    const char* pSrc_) {
  wire_cursor in(_body, pSrc_, context_._pEnd);
  const field_travel element = static_cast<field_travel>(field_.travel);
  const uint64_t length = in.varintOrZero();
  if (length > in.left()) return nullptr;
  // Every element must lie inside its block, and the whole block is checked
  // before the first element is stored, so a bad block leaves nothing of its
  // field behind and elements never read into the bytes after the block.
  if (!travelsPacked(element) ||
      !packedBlockWhole(element, in.position(), static_cast<size_t>(length))) {
    return nullptr;
  }
  wire_cursor block = in.nested(static_cast<size_t>(length));
  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(block.end() - pValueStart_);

  withScalarDecoder(field_.decode[packedElementWireType(element)],
                    [&](auto decoder_) { _storeElements<decoder_>(pValue_, block); });
  return block.end();
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
  switch (omitted_.defaultKind) {
    case default_long:
      tarn_message_value_set_entry_set_long(&entry, omitted_.defaultLong);
      break;
    case default_double:
      tarn_message_value_set_entry_set_double(&entry, omitted_.defaultDouble);
      break;
    case default_string:
      entry.string_rep = omitted_.defaultString;
      entry.string_rep_length = omitted_.defaultStringLength;
      break;
    default:
      return _refuse(refusal_default, context_, &omitted_, nullptr);
  }
  _insert(&entry);
  return TARN_SUCCESS;
}

int tarn_protobuf_v2_parser::_refuse(int reason_, const parse_context& context_,
                                     const field_entry* pField_, const char* pTag_) {
  // A level below has recorded its refusal already.
  if (_pRefusal == nullptr || reason_ == refusal_nested) return TARN_FAILURE;
  parse_refusal& r = *_pRefusal;
  r.reason = static_cast<parse_refusal_reason>(reason_);
  r.table = context_._pTable;
  r.field = pField_;
  r.tag = wire_tag{0, 0};
  r.pTag = r.pValue = pTag_;
  r.pLevelEnd = context_._pEnd;
  r.length = 0;
  r.depth = context_._depth;
  r.parentEntry = context_._rootIndex;
  if (pTag_ == nullptr) return TARN_FAILURE;
  // The walk keeps no more than the reason on its way out: the details are
  // read again here, as the walk read them. It reads a cut-off tag as field
  // 0, and only here does it matter whether the bytes said 0.
  wire_cursor at(_body, pTag_, context_._pEnd);
  if (!at.readTag(r.tag)) {
    r.reason = refusal_tag_cut;
    return TARN_FAILURE;
  }
  r.pValue = at.position();
  switch (r.reason) {
    case refusal_value_cut:
      r.length = fixedWidth(pField_->decode[r.tag.wireType]);
      break;
    case refusal_length:
    case refusal_packed_block:
    case refusal_too_deep:
      r.length = at.varintOrZero();
      r.pValue = at.position();
      if (r.length > at.left()) r.reason = refusal_length;
      break;
    default:
      break;
  }
  return TARN_FAILURE;
}
