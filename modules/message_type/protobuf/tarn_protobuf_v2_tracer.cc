#include "tarn_protobuf_v2_tracer.h"

#include <climits>
#include <cstring>

#include "tarn_protobuf_message_type.h"
#include "util/base/cstring.h"
#include "wire_type.h"

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace {

// Fixed-width values are little-endian in the wire format, as on the hosts this
// module runs on; memcpy because they sit at any byte position.
template <typename T>
bool readFixed(const char*& pSrc_, const char* pEnd_, T& value_) {
  if (static_cast<size_t>(pEnd_ - pSrc_) < sizeof(T)) return false;
  std::memcpy(&value_, pSrc_, sizeof(T));
  pSrc_ += sizeof(T);
  return true;
}

}  // namespace

int tarn_protobuf_message_type::trace(const tarn_trace_buffer* pTraceBuffer_,
                                      tarn_trace_output_buffer* pOutputBuffer_) const {
  tarn_protobuf_v2_tracer tracer(_pRootDescriptor, pOutputBuffer_);
  try {
    tracer.trace(pTraceBuffer_);
  } catch (const trace_output_stream::trace_output_exception&) {
    // The buffer keeps the text that fitted; the host learns only that it is cut.
    return TARN_FAILURE;
  }
  return TARN_SUCCESS;
}

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
      if (!readFixed(pSrc_, pEnd_, bits)) return false;
      _key(pField_, first_);
      if (pField_->type() == FieldDescriptor::TYPE_DOUBLE) {
        double value;
        std::memcpy(&value, &bits, sizeof(value));
        _os << value;
      } else {
        _os << static_cast<int64_t>(bits);
      }
      return true;
    }
    case FIXED32: {
      uint32_t bits;
      if (!readFixed(pSrc_, pEnd_, bits)) return false;
      _key(pField_, first_);
      if (pField_->type() == FieldDescriptor::TYPE_FLOAT) {
        float value;
        std::memcpy(&value, &bits, sizeof(value));
        _os << static_cast<double>(value);
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
        if (depth_ + 1 >= trace_max_depth) return false;
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
  uint64_t varint;
  uint32_t bits32;
  uint64_t bits64;
  switch (type_) {
    case FieldDescriptor::TYPE_INT32:
    case FieldDescriptor::TYPE_INT64:
    case FieldDescriptor::TYPE_UINT32:
    case FieldDescriptor::TYPE_UINT64:
    case FieldDescriptor::TYPE_BOOL:
    case FieldDescriptor::TYPE_ENUM:
      if (!readVarint(pSrc_, pEnd_, varint)) return false;
      _separator(first_) << varint;
      return true;
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      if (!readVarint(pSrc_, pEnd_, varint)) return false;
      _separator(first_) << zigzagDecode(varint);
      return true;
    case FieldDescriptor::TYPE_FIXED32:
      if (!readFixed(pSrc_, pEnd_, bits32)) return false;
      _separator(first_) << bits32;
      return true;
    case FieldDescriptor::TYPE_SFIXED32:
      if (!readFixed(pSrc_, pEnd_, bits32)) return false;
      _separator(first_) << static_cast<int32_t>(bits32);
      return true;
    case FieldDescriptor::TYPE_FIXED64:
      if (!readFixed(pSrc_, pEnd_, bits64)) return false;
      _separator(first_) << bits64;
      return true;
    case FieldDescriptor::TYPE_SFIXED64:
      if (!readFixed(pSrc_, pEnd_, bits64)) return false;
      _separator(first_) << static_cast<int64_t>(bits64);
      return true;
    case FieldDescriptor::TYPE_DOUBLE: {
      double value;
      if (!readFixed(pSrc_, pEnd_, value)) return false;
      _separator(first_) << value;
      return true;
    }
    case FieldDescriptor::TYPE_FLOAT: {
      float value;
      if (!readFixed(pSrc_, pEnd_, value)) return false;
      _separator(first_) << static_cast<double>(value);
      return true;
    }
    default:
      // Strings, bytes and messages cannot be declared packed.
      return false;
  }
}
