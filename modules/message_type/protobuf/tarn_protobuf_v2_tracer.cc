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
    case FIXED64: {
      uint64_t bits;
      if (!in_.readFixed64(bits)) return false;
      _key(field_, first_);
      if (field_.decode[FIXED64] == decode_fixed64_double) {
        _scalar(decode_fixed64_double, bits);
      } else {
        _scalar(decode_fixed64_signed, bits);
      }
      return true;
    }
    case FIXED32: {
      uint32_t bits;
      if (!in_.readFixed32(bits)) return false;
      _key(field_, first_);
      if (field_.decode[FIXED32] == decode_fixed32_float) {
        _scalar(decode_fixed32_float, bits);
      } else {
        _scalar(decode_fixed32_signed, bits);
      }
      return true;
    }
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
  switch (travelsPacked(travel) ? field_.decode[packedElementWireType(travel)]
                                : static_cast<uint8_t>(decode_fail)) {
    // A packed varint shows its 64 bits as sent, zigzag decoded for sint.
    case decode_varint:
    case decode_varint_int32:
      _traceElements<decode_varint>(block);
      break;
    case decode_zigzag:
      _traceElements<decode_zigzag>(block);
      break;
    case decode_fixed32_float:
      _traceElements<decode_fixed32_float>(block);
      break;
    case decode_fixed32_signed:
      _traceElements<decode_fixed32_signed>(block);
      break;
    case decode_fixed32_unsigned:
      _traceElements<decode_fixed32_unsigned>(block);
      break;
    case decode_fixed64_double:
      _traceElements<decode_fixed64_double>(block);
      break;
    case decode_fixed64_signed:
      _traceElements<decode_fixed64_signed>(block);
      break;
    case decode_fixed64_unsigned:
      _traceElements<decode_fixed64_unsigned>(block);
      break;
    default:
      break;
  }
  _os << ']';
}
