#include "tarn_protobuf_v2_tracer.h"

#include <climits>

#include "util/base/cstring.h"
#include "wire_format.h"

using google::protobuf::FieldDescriptor;

namespace {

// One scalar that travels as travel_ (a varint or a fixed-width value) and
// must end before pEnd_, as raw bits; false when it is cut off.
TARN_ALWAYS_INLINE bool readScalar(field_travel travel_, const char*& pSrc_, const char* pEnd_,
                                   uint64_t& bits_) {
  if (travel_ == travel_varint || travel_ == travel_zigzag) return readVarint(pSrc_, pEnd_, bits_);
  const unsigned width = travel_ == travel_fixed64 ? 8 : 4;
  if (pEnd_ - pSrc_ < static_cast<ptrdiff_t>(width)) return false;
  bits_ = width == 8 ? loadFixed64(pSrc_) : loadFixed32(pSrc_);
  pSrc_ += width;
  return true;
}

}  // namespace

void tarn_protobuf_v2_tracer::trace(const tarn_trace_buffer* pMessage_) {
  _os << "protobuf(";
  _trace(pMessage_, *_root);
  _os << ')';
}

void tarn_protobuf_v2_tracer::_trace(const tarn_trace_buffer* pMessage_, const type_table& table_,
                                     unsigned depth_) {
  const char* p = pMessage_->data;
  const char* const pe = pMessage_->length ? p + pMessage_->length : p;
  _os << '{';
  bool first = true;
  int hint = 0;
  while (p < pe) {
    uint64_t tag;
    if (!readVarint(p, pe, tag)) break;
    // Numbers beyond int cannot be fields; refuse them rather than let the
    // narrowing alias a real one.
    const uint64_t number = tag >> wiretype_bits;
    if (number > INT_MAX) break;
    const field_entry* pField = table_.find(static_cast<int>(number), hint);
    // An unknown field's extent cannot be trusted, so the rest of the level is skipped.
    if (pField == nullptr) break;
    hint = pField->index + 1;
    if (!_traceField(*pField, static_cast<uint32_t>(tag & wiretype_mask), p, pe, first, depth_))
      break;
    first = false;
  }
  _os << '}';
}

trace_output_stream& tarn_protobuf_v2_tracer::_separator(bool first_) {
  if (!first_) _os << ',';
  return _os;
}

// One write of the whole key where it fits; where it does not, the pieces
// that fit are written before the stream gives up, as for any other text.
TARN_ALWAYS_INLINE void tarn_protobuf_v2_tracer::_key(const field_entry& field_, bool first_) {
  const unsigned skip = first_ ? 1 : 0;
  if (__builtin_expect(_os.tryWrite(field_.traceKey + skip, field_.traceKeyLength - skip), 1))
    return;
  _keyInPieces(field_, first_);
}

void tarn_protobuf_v2_tracer::_keyInPieces(const field_entry& field_, bool first_) {
  _separator(first_) << '"' << tarn::cstring{field_.name, field_.nameLength} << '"' << ':';
}

TARN_ALWAYS_INLINE void tarn_protobuf_v2_tracer::_scalar(field_travel travel_, Type type_,
                                                         uint64_t bits_, bool packed_) {
  switch (travel_) {
    case travel_varint:
      _os << bits_;
      return;
    case travel_zigzag:
      _os << zigzagDecode(bits_);
      return;
    case travel_fixed32:
      if (type_ == FieldDescriptor::TYPE_FLOAT) {
        _os << widenFloat(static_cast<uint32_t>(bits_));
      } else if (!packed_ || type_ == FieldDescriptor::TYPE_SFIXED32) {
        _os << static_cast<int32_t>(static_cast<uint32_t>(bits_));
      } else {
        _os << static_cast<uint32_t>(bits_);
      }
      return;
    default:
      if (type_ == FieldDescriptor::TYPE_DOUBLE) {
        _os << asDouble(bits_);
      } else if (!packed_ || type_ == FieldDescriptor::TYPE_SFIXED64) {
        _os << static_cast<int64_t>(bits_);
      } else {
        _os << bits_;
      }
      return;
  }
}

// Each value is read before its key is written, so that a value cut off by the
// end of the level leaves no dangling key behind.
TARN_ALWAYS_INLINE bool tarn_protobuf_v2_tracer::_traceField(const field_entry& field_,
                                                             uint32_t wireType_, const char*& pSrc_,
                                                             const char* pEnd_, bool first_,
                                                             unsigned depth_) {
  switch (wireType_) {
    case VARINT:
    case FIXED64:
    case FIXED32: {
      // Outside a packed list the wire type decides how a value is read and
      // shown, whatever the field's declared type.
      const field_travel travel = wireType_ == VARINT    ? travel_varint
                                  : wireType_ == FIXED64 ? travel_fixed64
                                                         : travel_fixed32;
      uint64_t bits;
      if (!readScalar(travel, pSrc_, pEnd_, bits)) return false;
      _key(field_, first_);
      _scalar(travel, static_cast<Type>(field_.type), bits, false);
      return true;
    }
    case LENGTH_DELIMITED: {
      uint64_t declared;
      if (!readVarint(pSrc_, pEnd_, declared)) return false;
      const auto left = static_cast<size_t>(pEnd_ - pSrc_);
      const size_t length = declared < left ? static_cast<size_t>(declared) : left;
      if (field_.is(field_packed)) {
        _key(field_, first_);
        _tracePacked(static_cast<Type>(field_.type), pSrc_, length);
      } else if (field_.is(field_message)) {
        if (!mayNest(depth_)) return false;
        _key(field_, first_);
        const tarn_trace_buffer nested = {pSrc_, length};
        _trace(&nested, *field_.nested, depth_ + 1);
      } else {
        _key(field_, first_);
        if (!_os.tryWriteQuoted(pSrc_, length)) _os << '"' << tarn::cstring{pSrc_, length} << '"';
      }
      pSrc_ += length;
      return true;
    }
    default:
      // Group start and end and the unassigned wire types carry nothing we
      // can render: the key stands alone and reading goes on after the tag.
      _key(field_, first_);
      return true;
  }
}

void tarn_protobuf_v2_tracer::_tracePacked(Type type_, const char* pSrc_, size_t length_) {
  const char* p = pSrc_;
  const char* const pe = length_ ? p + length_ : p;
  // Strings, bytes and messages cannot be declared packed: their list stays
  // empty.
  const field_travel travel = travelOf(type_);
  _os << '[';
  // An element cut off by the end of the payload closes the list; the level
  // goes on after the payload.
  uint64_t bits;
  for (bool first = true; travelsPacked(travel) && p < pe && readScalar(travel, p, pe, bits);
       first = false) {
    _separator(first);
    _scalar(travel, type_, bits, true);
  }
  _os << ']';
}
