// Serialization from a host value list.
//
// Every value already carries the encoded bytes of its field; the only work is
// nesting. A document value opens a submessage: its tag is copied and four
// bytes are reserved for the length, which is back-patched as a padded varint
// when the depth falls again, so no byte is ever moved.
#include "tarn_protobuf_v2_serializer.h"

#include <climits>
#include <cstring>
namespace {

// The first and the last sizeof(Word) bytes of n_, for sizeof(Word) <= n_ <=
// 2 * sizeof(Word): two fixed-size moves that overlap in the middle.
template <typename Word>
inline void copyEnds(char* pDst_, const char* pSrc_, size_t n_) {
  Word head, tail;
  std::memcpy(&head, pSrc_, sizeof(Word));
  std::memcpy(&tail, pSrc_ + n_ - sizeof(Word), sizeof(Word));
  std::memcpy(pDst_, &head, sizeof(Word));
  std::memcpy(pDst_ + n_ - sizeof(Word), &tail, sizeof(Word));
}

// Copies exactly n_ bytes. Most values are a tag and a short number, where a
// call to memcpy costs more than the copy: up to 16 bytes are moved inline, so
// nothing outside [pDst_, pDst_ + n_) is written and nothing outside
// [pSrc_, pSrc_ + n_) read.
inline void copyValue(char* pDst_, const char* pSrc_, size_t n_) {
  if (n_ > 16) {
    std::memcpy(pDst_, pSrc_, n_);
  } else if (n_ >= 8) {
    copyEnds<uint64_t>(pDst_, pSrc_, n_);
  } else if (n_ >= 4) {
    copyEnds<uint32_t>(pDst_, pSrc_, n_);
  } else if (n_ != 0) {
    const char first = pSrc_[0], middle = pSrc_[n_ / 2], last = pSrc_[n_ - 1];
    pDst_[0] = first;
    pDst_[n_ / 2] = middle;
    pDst_[n_ - 1] = last;
  }
}

// Fills the innermost open submessage's length slot and closes it. False when
// the body is too long for the slot.
bool closeSubmessage(tarn_protobuf_v2_serializer::tagstack& stack_, char* pDst_) {
  tarn_protobuf_v2_serializer::tagstack_entry& t = stack_.last();
  const size_t len = static_cast<size_t>(pDst_ - t.tag_start -
                                         tarn_protobuf_v2_serializer::max_submessage_length_varint);
  char* pSlot = t.tag_start;
  if (!writeFixedSizeVarint(pSlot, len, tarn_protobuf_v2_serializer::max_submessage_length_varint))
    return false;
  stack_.pop_back();
  return true;
}

// The body of serializeDelta: writes the count_ values at pValues_ through the
// cursor pDst_ and closes every submessage it opened. False when the list
// cannot be written. The cursor is a local of the caller's, not a member, and
// the list is read through locals: the copies write through char*, which the
// compiler must otherwise assume may change them.
bool writeValues(const tarn_message_value* pValues_, size_t count_, char*& pDst_) {
  char* pDst = pDst_;
  tarn_protobuf_v2_serializer::tagstack stack;
  uint32_t currentDepth = 0;
  for (size_t idx = 0; idx < count_; ++idx) {
    const tarn_message_value* pValue = pValues_ + idx;
    // A fall of k levels closes the k innermost submessages; the depths are
    // compared before they are subtracted, so a rise is always a rise. A
    // list that falls further than it opened (or rose without a document
    // value, which opens nothing) closes only what is open: the stack is
    // never popped empty, and every reserved slot still gets its length. A
    // fall is rare (once per nested message), so the common value pays one
    // comparison and the loop over the stack stays off its path.
    const uint32_t depth = pValue->depth;
    if (__builtin_expect(depth < currentDepth, 0)) {
      for (uint32_t fall = currentDepth - depth; fall != 0 && !stack.empty(); --fall)
        if (!closeSubmessage(stack, pDst)) return false;
    }
    currentDepth = depth;

    const tarn_message_xpath_value& value = pValue->xpath_value;
    if (value.type_hint == tarn_message_xpath_value_type_document) {
      // A document without a complete tag at the start of its bytes cannot
      // be framed; the whole list is refused rather than written unframed.
      const size_t tagBytes = tagLength(value.raw_bytes, value.raw_bytes_length);
      if (tagBytes == 0) return false;
      copyValue(pDst, value.raw_bytes, tagBytes);
      pDst += tagBytes;
      stack.push_back(tarn_protobuf_v2_serializer::tagstack_entry{pDst});
      pDst += tarn_protobuf_v2_serializer::max_submessage_length_varint;
    } else if (value.raw_bytes_length != 0 && value.raw_bytes != nullptr) {
      copyValue(pDst, value.raw_bytes, value.raw_bytes_length);
      pDst += value.raw_bytes_length;
    }
  }
  while (!stack.empty())
    if (!closeSubmessage(stack, pDst)) return false;
  pDst_ = pDst;
  return true;
}

}  // namespace

size_t tarn_protobuf_v2_serializer::serializeDelta(const tarn_message_value_list& values_) {
  char* const pStart = _pDst;
  if (values_.values == nullptr) return 0;
  if (!writeValues(values_.values, values_.count, _pDst)) return 0;
  return static_cast<size_t>(_pDst - pStart);
}

// The room the host sets aside for a serialization: the segment's content, the
// data segment's count and every value's raw length, plus the four-byte length
// slot of every document value. A document writes its tag (never more than its
// raw length) and that slot; without the allowance an empty nested message
// (tag and one 0x00, two raw bytes) would write five. Sums beyond what an int
// can say are reported as INT_MAX rather than wrapped, so a host is never told
// to reserve less than the list needs.
int tarn_protobuf_v2_serializer::serializeRoom(const tarn_output_message_data& message_) {
  uint64_t msgLen = uint64_t{message_.message.byte_count} + message_.data.byte_count;
  const tarn_message_value_list* pList = message_.value_list;
  if (pList != nullptr && pList->values != nullptr) {
    for (size_t i = 0; i < pList->count && msgLen <= INT_MAX; ++i) {
      const tarn_message_xpath_value& value = pList->values[i].xpath_value;
      // Without a branch: whether a value is a document follows no pattern.
      const uint64_t slot = value.type_hint == tarn_message_xpath_value_type_document
                                ? tarn_protobuf_v2_serializer::max_submessage_length_varint
                                : 0;
      msgLen += value.raw_bytes_length;
      msgLen += slot;
    }
  }
  return msgLen > INT_MAX ? INT_MAX : static_cast<int>(msgLen);
}
