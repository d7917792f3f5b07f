// Serialization from a host value list, and the two serialization doors.
//
// Every value already carries the encoded bytes of its field; the only work is
// nesting. A document value opens a submessage: its tag is copied and four
// bytes are reserved for the length, which is back-patched as a padded varint
// when the depth falls again, so no byte is ever moved.
#include "tarn_protobuf_v2_serializer.h"

#include <climits>
#include <cstring>
#include <new>

#include "tarn_export.h"

namespace {

const uint32_t serializable_body_type = 5;

// Fills the innermost open submessage's length slot and closes it. False when
// the body is too long for the slot.
bool closeSubmessage(tarn_protobuf_v2_serializer::tagstack& stack_, char* pDst_) {
  tarn_protobuf_v2_serializer::tagstack_entry& t = stack_.last();
  const size_t len = static_cast<size_t>(pDst_ - t.tag_start -
                                         tarn_protobuf_v2_serializer::max_submessage_length_varint);
  char* pSlot = t.tag_start;
  if (!tarn_protobuf_v2_serializer::_writeFixedSizeVarint(
          pSlot, len, tarn_protobuf_v2_serializer::max_submessage_length_varint))
    return false;
  stack_.pop_back();
  return true;
}

}  // namespace

size_t tarn_protobuf_v2_serializer::serializeDelta(const tarn_message_value_list& values_) {
  char* const pStart = _pDst;
  if (values_.values == nullptr) return 0;
  try {
    tagstack stack;
    uint32_t currentDepth = 0;
    for (size_t idx = 0; idx < values_.count; ++idx) {
      const tarn_message_value* pValue = values_.values + idx;
      // A fall of k levels closes the k innermost submessages. The difference
      // is taken in 64 bits, so a rise is always a rise whatever the depths.
      // A list that falls further than it opened (or rose without a document
      // value, which opens nothing) closes only what is open: the stack is
      // never popped empty, and every reserved slot still gets its length.
      int64_t depthDelta = static_cast<int64_t>(pValue->depth) - currentDepth;
      for (; depthDelta < 0 && !stack.empty(); ++depthDelta)
        if (!closeSubmessage(stack, _pDst)) return 0;
      currentDepth = pValue->depth;

      const tarn_message_xpath_value& value = pValue->xpath_value;
      if (value.type_hint == tarn_message_xpath_value_type_document) {
        // A document without a complete tag at the start of its bytes cannot
        // be framed; the whole list is refused rather than written unframed.
        const size_t tagLength = _tagLength(value.raw_bytes, value.raw_bytes_length);
        if (tagLength == 0) return 0;
        std::memcpy(_pDst, value.raw_bytes, tagLength);
        _pDst += tagLength;
        stack.push_back(tagstack_entry{_pDst});
        _pDst += max_submessage_length_varint;
      } else if (value.raw_bytes_length != 0 && value.raw_bytes != nullptr) {
        std::memcpy(_pDst, value.raw_bytes, value.raw_bytes_length);
        _pDst += value.raw_bytes_length;
      }
    }
    while (!stack.empty())
      if (!closeSubmessage(stack, _pDst)) return 0;
  } catch (const std::bad_alloc&) {
    // More than 64 submessages open at once and no memory for the deeper stack.
    return 0;
  }
  return static_cast<size_t>(_pDst - pStart);
}

// The room the host sets aside for a serialization: the segment's content, the
// data segment's count and every value's raw length, plus the four-byte length
// slot of every document value. A document writes its tag (never more than its
// raw length) and that slot; without the allowance an empty nested message
// (tag and one 0x00, two raw bytes) would write five. Sums beyond what an int
// can say are reported as INT_MAX rather than wrapped, so a host is never told
// to reserve less than the list needs.
TARN_EXPORT int tarn_message_type_compute_serialize_size(tarn_output_message_data* outputMessage_) {
  if (outputMessage_ == nullptr || outputMessage_->body_type != serializable_body_type) return 0;
  uint64_t msgLen = uint64_t{outputMessage_->message.byte_count} + outputMessage_->data.byte_count;
  const tarn_message_value_list* pList = outputMessage_->value_list;
  if (pList != nullptr && pList->values != nullptr) {
    for (size_t i = 0; i < pList->count && msgLen <= INT_MAX; ++i) {
      const tarn_message_xpath_value& value = pList->values[i].xpath_value;
      msgLen += value.raw_bytes_length;
      if (value.type_hint == tarn_message_xpath_value_type_document)
        msgLen += tarn_protobuf_v2_serializer::max_submessage_length_varint;
    }
  }
  return msgLen > INT_MAX ? INT_MAX : static_cast<int>(msgLen);
}

TARN_EXPORT int tarn_message_type_serialize_message(tarn_output_message_data* outputMessage_) {
  if (outputMessage_ == nullptr || outputMessage_->body_type != serializable_body_type)
    return TARN_FAILURE;
  tarn_message_segment& message = outputMessage_->message;
  if (outputMessage_->value_list == nullptr) return TARN_SUCCESS;
  char* pDestination = message.data + message.byte_offset + message.byte_count;
  tarn_protobuf_v2_serializer serializer(pDestination);
  const size_t n = serializer.serializeDelta(*outputMessage_->value_list);
  message.byte_count += static_cast<uint32_t>(n);
  return TARN_SUCCESS;
}
