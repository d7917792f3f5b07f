#include "tarn_protobuf_v2_tracer.h"

#include <climits>
#include <cstring>

#include "util/base/cstring.h"
#include "wire_format.h"

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace {

// A fixed-width value that must end before pEnd_; false when it is cut off.
bool readFixed32(const char*& pSrc_, const char* pEnd_, uint32_t& bits_) {
  if (pEnd_ - pSrc_ < 4) return false;
  bits_ = loadFixed32(pSrc_);
  pSrc_ += 4;
  return true;
}

bool readFixed64(const char*& pSrc_, const char* pEnd_, uint64_t& bits_) {
  if (pEnd_ - pSrc_ < 8) return false;
  bits_ = loadFixed64(pSrc_);
  pSrc_ += 8;
  return true;
}

double asDouble(uint64_t bits_) {
  double value;
  std::memcpy(&value, &bits_, sizeof value);
  return value;
}

double widenFloat(uint32_t bits_) {
  float value;
  std::memcpy(&value, &bits_, sizeof value);
  return value;
}

}  // namespace

void tarn_protobuf_v2_tracer::trace(const tarn_trace_buffer* pMessage_) {
  _os << "protobuf(";
  _trace(pMessage_, _root);
  _os << ')';
}

void tarn_protobuf_v2_tracer::_trace(const tarn_trace_buffer* pMessage_,
                                     const Descriptor* pDescriptor_, unsigned depth_) {
  const char* p = pMessage_->data;
  const char* const pe = pMessage_->length ? p + pMessage_->length : p;
  _os << '{';
  bool first = true;
  while (p < pe) {
    uint64_t tag;
    if (!readVarint(p, pe, tag)) break;
    // Numbers beyond int cannot be fields; refuse them rather than let the
    // narrowing alias a real one.
    const uint64_t number = tag >> wiretype_bits;
    if (number > INT_MAX) break;
    const FieldDescriptor* pField = pDescriptor_->FindFieldByNumber(static_cast<int>(number));
    // An unknown field's extent cannot be trusted, so the rest of the level is skipped.
    if (pField == nullptr) break;
    if (!_traceField(pField, static_cast<uint32_t>(tag & wiretype_mask), p, pe, first, depth_))
      break;
    first = false;
  }
  _os << '}';
}

trace_output_stream& tarn_protobuf_v2_tracer::_separator(bool first_) {
  if (!first_) _os << ',';
  return _os;
}

void tarn_protobuf_v2_tracer::_key(const FieldDescriptor* pField_, bool first_) {
  _separator(first_) << '"' << pField_->name() << '"' << ':';
}

// Each value is read before its key is written, so that a value cut off by the
// end of the level leaves no dangling key behind.
bool tarn_protobuf_v2_tracer::_traceField(const FieldDescriptor* pField_, uint32_t wireType_,
                                          const char*& pSrc_, const char* pEnd_, bool first_,
                                          unsigned depth_) {
  switch (wireType_) {
    case VARINT: {
      uint64_t value;
      if (!readVarint(pSrc_, pEnd_, value)) return false;
      _key(pField_, first_);
      _os << value;
      return true;
    }
    case FIXED64: {
      uint64_t bits;
      if (!readFixed64(pSrc_, pEnd_, bits)) return false;
      _key(pField_, first_);
      if (pField_->type() == FieldDescriptor::TYPE_DOUBLE) {
        _os << asDouble(bits);
      } else {
        _os << static_cast<int64_t>(bits);
      }
      return true;
    }
    case FIXED32: {
      uint32_t bits;
      if (!readFixed32(pSrc_, pEnd_, bits)) return false;
      _key(pField_, first_);
      if (pField_->type() == FieldDescriptor::TYPE_FLOAT) {
        _os << widenFloat(bits);
      } else {
        _os << static_cast<int32_t>(bits);
      }
      return true;
    }
    case LENGTH_DELIMITED: {
      uint64_t declared;
      if (!readVarint(pSrc_, pEnd_, declared)) return false;
      const auto left = static_cast<size_t>(pEnd_ - pSrc_);
      const size_t length = declared < left ? static_cast<size_t>(declared) : left;
      if (pField_->is_packed()) {
        _key(pField_, first_);
        _tracePacked(pField_->type(), pSrc_, length);
      } else if (pField_->type() == FieldDescriptor::TYPE_MESSAGE) {
        if (!mayNest(depth_)) return false;
        _key(pField_, first_);
        const tarn_trace_buffer nested = {pSrc_, length};
        _trace(&nested, pField_->message_type(), depth_ + 1);
      } else {
        _key(pField_, first_);
        _os << '"' << tarn::cstring{pSrc_, length} << '"';
      }
      pSrc_ += length;
      return true;
    }
    default:
      // Group start and end and the unassigned wire types carry nothing we
      // can render: the key stands alone and reading goes on after the tag.
      _key(pField_, first_);
      return true;
  }
}

void tarn_protobuf_v2_tracer::_tracePacked(Type type_, const char* pSrc_, size_t length_) {
  const char* p = pSrc_;
  const char* const pe = length_ ? p + length_ : p;
  _os << '[';
  // An element cut off by the end of the payload closes the list; the level
  // goes on after the payload.
  for (bool first = true; p < pe && _tracePackedElement(type_, p, pe, first); first = false) {
  }
  _os << ']';
}

bool tarn_protobuf_v2_tracer::_tracePackedElement(Type type_, const char*& pSrc_, const char* pEnd_,
                                                  bool first_) {
  switch (travelOf(type_)) {
    case travel_varint: {
      uint64_t value;
      if (!readVarint(pSrc_, pEnd_, value)) return false;
      _separator(first_) << value;
      return true;
    }
    case travel_zigzag: {
      uint64_t value;
      if (!readVarint(pSrc_, pEnd_, value)) return false;
      _separator(first_) << zigzagDecode(value);
      return true;
    }
    case travel_fixed32: {
      uint32_t bits;
      if (!readFixed32(pSrc_, pEnd_, bits)) return false;
      if (type_ == FieldDescriptor::TYPE_FLOAT) {
        _separator(first_) << widenFloat(bits);
      } else if (type_ == FieldDescriptor::TYPE_SFIXED32) {
        _separator(first_) << static_cast<int32_t>(bits);
      } else {
        _separator(first_) << bits;
      }
      return true;
    }
    case travel_fixed64: {
      uint64_t bits;
      if (!readFixed64(pSrc_, pEnd_, bits)) return false;
      if (type_ == FieldDescriptor::TYPE_DOUBLE) {
        _separator(first_) << asDouble(bits);
      } else if (type_ == FieldDescriptor::TYPE_SFIXED64) {
        _separator(first_) << static_cast<int64_t>(bits);
      } else {
        _separator(first_) << bits;
      }
      return true;
    }
    default:
      // Strings, bytes and messages cannot be declared packed.
      return false;
  }
}
