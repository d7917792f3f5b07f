#include "tarn_protobuf_v2_tracer.h"

#include "util/base/cstring.h"
#include "value_decoder.h"
#include "wire_format.h"

namespace {

// One scalar that decoder_ reads (a varint or a fixed-width value), as raw
// bits; false when it is cut off by the end of the level.
TARN_ALWAYS_INLINE bool readBits(unsigned decoder_, wire_cursor& in_, uint64_t& bits_) {
  switch (fixedWidth(decoder_)) {
    case 0:
      return in_.readVarint(bits_);
    case 4: {
      uint32_t bits;
      if (!in_.readFixed32(bits)) return false;
      bits_ = bits;
      return true;
    }
    default:
      return in_.readFixed64(bits_);
  }
}

}  // namespace

void tarn_protobuf_v2_tracer::trace(const tarn_trace_buffer* pMessage_) {
  _os << "protobuf(";
  _body.pStart = pMessage_->data;
  _body.pEnd = pMessage_->data + pMessage_->length;
  _traceLevel(_body.pStart, _body.pEnd, *_root, 0);
  _os << ')';
}

void tarn_protobuf_v2_tracer::_traceLevel(const char* pStart_, const char* pEnd_,
                                          const type_table& table_, unsigned depth_) {
  wire_cursor in(_body, pStart_, pEnd_);
  _os << '{';
  bool first = true;
  int hint = 0;
  wire_tag tag;
  while (in.more() && in.readTag(tag)) {
    const field_entry* pField = table_.find(tag.number, hint);
    // An unknown field's extent cannot be trusted, so the rest of the level is skipped.
    if (pField == nullptr) break;
    hint = pField->index + 1;
    if (!_traceField(*pField, tag.wireType, in, first, depth_)) break;
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

TARN_ALWAYS_INLINE void tarn_protobuf_v2_tracer::_scalar(unsigned decoder_, uint64_t bits_) {
  const scalar_value value = decodeScalar(decoder_, bits_);
  if (value.isDouble) {
    _os << value.real;
  } else if (decodesUnsigned(decoder_)) {
    _os << static_cast<uint64_t>(value.integer);
  } else {
    _os << value.integer;
  }
}

// A fixed-width value outside a packed list: Real where the field is a
// float or a double, else Integer.
template <value_decoder Real, value_decoder Integer>
TARN_ALWAYS_INLINE bool tarn_protobuf_v2_tracer::_traceFixed(const field_entry& field_,
                                                             uint32_t wireType_, wire_cursor& in_,
                                                             bool first_) {
  uint64_t bits;
  if (!readBits(Real, in_, bits)) return false;
  _key(field_, first_);
  if (field_.decode[wireType_] == Real) {
    _scalar(Real, bits);
  } else {
    _scalar(Integer, bits);
  }
  return true;
}

// Each value is read before its key is written, so that a value cut off by the
// end of the level leaves no dangling key behind.
TARN_ALWAYS_INLINE bool tarn_protobuf_v2_tracer::_traceField(const field_entry& field_,
                                                             uint32_t wireType_, wire_cursor& in_,
                                                             bool first_, unsigned depth_) {
  switch (wireType_) {
    // Outside a packed list the wire type decides how a value is read and
    // shown, whatever the field's declared type: a varint as its 64 bits
    // unsigned, a fixed-width value as a float or a double where the field
    // is one, signed otherwise.
    case VARINT: {
      uint64_t bits;
      if (!in_.readVarint(bits)) return false;
      _key(field_, first_);
      _scalar(decode_varint, bits);
      return true;
    }
    case FIXED64:
      return _traceFixed<decode_fixed64_double, decode_fixed64_signed>(field_, FIXED64, in_,
                                                                       first_);
    case FIXED32:
      return _traceFixed<decode_fixed32_float, decode_fixed32_signed>(field_, FIXED32, in_, first_);
    case LENGTH_DELIMITED: {
      uint64_t declared;
      if (!in_.readVarint(declared)) return false;
      // A length that runs past the end is cut to what is left.
      const size_t length = declared < in_.left() ? static_cast<size_t>(declared) : in_.left();
      const wire_cursor payload = in_.nested(length);
      if (field_.is(field_packed)) {
        _key(field_, first_);
        _tracePacked(field_, payload.position(), payload.end());
      } else if (field_.is(field_message)) {
        if (!mayNest(depth_)) return false;
        _key(field_, first_);
        _traceLevel(payload.position(), payload.end(), *field_.nested, depth_ + 1);
      } else {
        _key(field_, first_);
        const char* const pText = payload.position();
        if (!_os.tryWriteQuoted(pText, length)) _os << '"' << tarn::cstring{pText, length} << '"';
      }
      in_.skip(length);
      return true;
    }
    default:
      // Group start and end and the unassigned wire types carry nothing we
      // can render: the key stands alone and reading goes on after the tag.
      _key(field_, first_);
      return true;
  }
}

// The elements of one packed block, in one loop per decoder so that the
// decoder is decided once per block. An element cut off by the end of the
// block closes the list; the level goes on after the block.
template <value_decoder Decoder>
void tarn_protobuf_v2_tracer::_traceElements(wire_cursor& block_) {
  uint64_t bits;
  for (bool first = true; block_.more() && readBits(Decoder, block_, bits); first = false) {
    _separator(first);
    _scalar(Decoder, bits);
  }
}

void tarn_protobuf_v2_tracer::_tracePacked(const field_entry& field_, const char* pStart_,
                                           const char* pEnd_) {
  wire_cursor block(_body, pStart_, pEnd_);
  // Strings, bytes and messages cannot be declared packed: their list stays
  // empty.
  const field_travel travel = static_cast<field_travel>(field_.travel);
  _os << '[';
  if (travelsPacked(travel)) {
    // A packed varint shows its 64 bits as sent, zigzag decoded for sint.
    unsigned decoder = field_.decode[packedElementWireType(travel)];
    if (decoder == decode_varint_int32) decoder = decode_varint;
    withScalarDecoder(decoder, [&](auto decoder_) { _traceElements<decoder_>(block); });
  }
  _os << ']';
}
