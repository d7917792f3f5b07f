// The steps a parse takes once per field occurrence: reading tags, lengths
// and varint values, preparing an entry, its path hash, and storing and
// linking it. Force-inlined into the level walk and the packed loops, which
// live in separate files and share them through this header; no file outside
// the parser includes it.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_STEPS_H
#define TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_STEPS_H

#include "tarn_protobuf_v2_parser.h"

// A varint cut off by pEnd_ reads as 0 and leaves pSrc_ at pEnd_: the walk
// then sees field 0 (which no descriptor has) or a level that has ended.
TARN_ALWAYS_INLINE uint64_t tarn_protobuf_v2_parser::_consumeVarint(const char*& pSrc_,
                                                                    const char* pEnd_,
                                                                    const char* pFloor_) {
  if (__builtin_expect(pSrc_ < pEnd_ && static_cast<unsigned char>(*pSrc_) < 0x80, 1)) {
    return static_cast<unsigned char>(*pSrc_++);
  }
  const varint_read read = _consumeVarintSlow(pSrc_, pEnd_, pFloor_);
  pSrc_ = read.pNext;
  return read.value;
}

// A varint value, as opposed to a tag or a length: its length varies from
// field to field with the number sent, so with eight bytes in the body it is
// taken from one load whatever its length, without the one-byte test first.
// A field often ends its level (the last of a nested message): then only the
// bytes up to the level's end may end the varint.
TARN_ALWAYS_INLINE uint64_t tarn_protobuf_v2_parser::_consumeVarintValue(const char*& pSrc_,
                                                                         const char* pEnd_,
                                                                         const char* pFloor_,
                                                                         const char* pCeiling_) {
  const ptrdiff_t left = pEnd_ - pSrc_;
  if (__builtin_expect(left >= 8, 1)) {
    const uint64_t word = loadFixed64(pSrc_);
    const uint64_t ends = varintEnds(word);
    if (__builtin_expect(ends != 0, 1)) {
      size_t length;
      const uint64_t value = varintInWord(word, ends, length);
      pSrc_ += length;
      return value;
    }
  } else if (left > 0 && static_cast<unsigned char>(*pSrc_) < 0x80) {
    return static_cast<unsigned char>(*pSrc_++);
  } else if (pCeiling_ - pSrc_ >= 8) {
    // Its own decode rather than one shared with the block above: joined,
    // the common case compiles to about 1% more instructions per entry.
    const uint64_t word = loadFixed64(pSrc_);
    const uint64_t ends = varintEndsWithin(word, static_cast<unsigned>(left));
    if (ends != 0) {
      size_t length;
      const uint64_t value = varintInWord(word, ends, length);
      pSrc_ += length;
      return value;
    }
  }
  return _consumeVarint(pSrc_, pEnd_, pFloor_);
}

// A length prefix: one byte for short payloads, two for most nested
// messages (a payload of 128 bytes to 16 KiB). Both are taken here without
// a call; longer prefixes, and prefixes near the end of the level, go the
// slow way.
TARN_ALWAYS_INLINE uint64_t tarn_protobuf_v2_parser::_consumeLength(const char*& pSrc_,
                                                                    const char* pEnd_,
                                                                    const char* pFloor_) {
  if (__builtin_expect(pSrc_ < pEnd_ && static_cast<unsigned char>(*pSrc_) < 0x80, 1)) {
    return static_cast<unsigned char>(*pSrc_++);
  }
  if (pEnd_ - pSrc_ >= 8) {
    const uint64_t word = loadFixed64(pSrc_);
    if ((word & 0x8000) == 0) {
      pSrc_ += 2;
      return twoByteVarint(word);
    }
  }
  const varint_read read = _consumeVarintSlow(pSrc_, pEnd_, pFloor_);
  pSrc_ = read.pNext;
  return read.value;
}

TARN_ALWAYS_INLINE void tarn_protobuf_v2_parser::_initializeEntry(
    tarn_message_value_set_entry* pValue_, const field_entry& field_, uint32_t hash_,
    parse_context& parseContext_) {
  *pValue_ = field_.entry;
  pValue_->hash = hash_;
  pValue_->parent = parseContext_._rootIndex;
}

TARN_ALWAYS_INLINE uint32_t tarn_protobuf_v2_parser::_hash(const field_entry& field_,
                                                           const parse_context& context_) {
  if (context_._repeats && _hashes.on()) return _hashes.hash(field_, context_._baseHash);
  return tarn_message_xpath_hash_string(field_.name, field_.nameLength, context_._baseHash);
}

TARN_ALWAYS_INLINE uint32_t
tarn_protobuf_v2_parser::_insert(tarn_message_value_set_entry* pValue_) {
  const uint32_t previous = _previousSibling;
  const uint32_t index = tarn_message_xpath_update(_valueSet, _findSet, pValue_);
  _previousSibling = index;
  // The host may move its storage on every update, so stored entries are
  // fetched afresh and the pointers dropped at once.
  if (previous != INVALID) {
    tarn_message_value_set_entry* pPrevious = tarn_message_xpath_get(_valueSet, previous);
    if (pPrevious != nullptr) pPrevious->next_sibling = index;
    // A level's link state names a stored entry only once the level has
    // stored one, and storing the first one gave the parent its first child:
    // there is nothing left to do to the parent.
    return index;
  }
  if (pValue_->parent != INVALID) {
    tarn_message_value_set_entry* pParent = tarn_message_xpath_get(_valueSet, pValue_->parent);
    if (pParent != nullptr && pParent->first_child == INVALID) pParent->first_child = index;
  }
  return index;
}

#endif
