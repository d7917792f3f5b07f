// The delta-publish merge as one walk over the two value sets the parser
// filled, an update message written over a stored one, field by field and
// level by level. The walk decides what goes where; a sink receives it. The
// module merges through a sink that writes into the host's segment, and the
// merge room a host reserves beforehand (tarn_protobuf_merge_room.h) comes
// from a sink that only counts the furthest byte the writer would touch. Both
// run this very walk, so the room can never fall short of the writes.
//
// Nothing is decoded or re-encoded: field bytes are copied as the parser
// recorded them, and only the tags and length prefixes of nested messages
// merged from both sides are written here.
//
// Per level: first every update field in update order (copied, or merged when
// both sides hold a nested message with children), then every stored field the
// update does not carry, in stored order.
//
// The value sets are read through the host's storage layout, so nothing the
// sets hold is trusted blindly:
// - The number of entries a set holds (_storeCount) bounds every index. A set
//   that parsed to no entries is an empty level, exactly as INVALID is below
//   the top: the merge of an empty update is the stored message, and the other
//   way round.
// - A link is followed only forward, to a higher index that the set holds. The
//   parser stores a message entry before everything inside it and every field
//   before its later siblings, so real links always point forward; a link
//   backwards, to itself or out of the set can only come from a damaged set and
//   ends that walk. Index 0 is never a child or a later sibling, and the host's
//   array marker 0xFFFFFFFE is never below the entry count, so both fail too.
// - A walk can thus neither loop nor leave the set, but links that share
//   subtrees could still make the work grow without end. The merge visits at
//   most updateCount + storedCount * (updateCount + 1) entries in all: a
//   stored level is walked once per update entry merged into it (the same
//   stored occurrence may receive several update occurrences of a repeated
//   nested message), plus once at the top. Real sets never reach it; a damaged
//   one stops there with every open length prefix still written.
// - Merges nest no deeper than the wire rules' nesting limit (wire_format.h).
//
// A sink provides:
//   size_t offset() const;               bytes since the sink's start
//   void copy(const char* p, size_t n);  n bytes from p, n > 0
//   void skip(size_t n);                 leaves room for a length prefix
//   void placeLength(size_t slot, size_t reserved, size_t length);
//       the nested body of `length` bytes that follows the `reserved` bytes
//       left at offset `slot` gets its minimal length prefix there; the body
//       moves when the prefix needs another width, and the sink ends just
//       after it.
//
// Header-only, C++11, no allocation and no exception: a host of any standard
// links it through the merge room library.
#ifndef TARN_PROTOBUF_MERGE_WALK_H
#define TARN_PROTOBUF_MERGE_WALK_H

#include <cstddef>
#include <cstdint>

#include "tarn/tarn_xpath_value_set.h"
#include "wire_format.h"

template <typename Sink>
class merge_walk {
 public:
  typedef tarn::tarn_xpath_value_set value_set;
  typedef tarn::tarn_xpath_value value;
  static const uint32_t INVALID = 0xFFFFFFFFu;

  // The walk sends everything to sink_, which it does not own.
  explicit merge_walk(Sink& sink_) : _sink(sink_), _steps(0), _depth(0) {}

  // Merges the update set over the stored set into the sink and returns the
  // bytes it leaves there. Either handle may be null or name an empty set.
  size_t run(tarn_message_xpath_value_set updateSet_, tarn_message_xpath_value_set previousSet_) {
    value_set none;
    none._pValueSetImpl = nullptr;
    value_set& updSet = updateSet_ ? *static_cast<value_set*>(updateSet_) : none;
    value_set& oldSet = previousSet_ ? *static_cast<value_set*>(previousSet_) : none;
    const uint64_t updCount = entryCount(updSet);
    const uint64_t oldCount = entryCount(oldSet);
    _steps = updCount + oldCount * (updCount + 1);
    _depth = 0;
    return _mergeLevel(updCount ? 0 : INVALID, oldCount ? 0 : INVALID, updSet, oldSet);
  }

  // Merges one level: the update entries chained from updSlot_ over the stored
  // entries chained from oldSlot_ (either INVALID for an empty side). Returns
  // the bytes the level leaves in the sink.
  size_t _mergeLevel(uint32_t updSlot_, uint32_t oldSlot_, tarn::tarn_xpath_value_set& updSet_,
                     tarn::tarn_xpath_value_set& oldSet_);

 private:
  static uint32_t entryCount(const value_set& set_) {
    return set_._pValueSetImpl == nullptr ? 0 : set_._pValueSetImpl->_storeCount;
  }

  // The link test: the index names an entry of the set that comes after from_.
  static bool linksForward(const value_set& set_, uint32_t from_, uint32_t to_) {
    return to_ != 0 && to_ != INVALID && to_ < entryCount(set_) && to_ > from_;
  }

  // Index of the entry stored under hash_, or INVALID. The key table's answer
  // is checked against the entry count before the entry is used.
  static uint32_t findIndex(const value_set& set_, uint32_t hash_) {
    const uint32_t count = entryCount(set_);
    if (count == 0 || set_._pValueSetImpl->_pKeys == nullptr) return INVALID;
    const value* pFound = set_.fastFind(hash_);
    if (pFound == nullptr) return INVALID;
    const ptrdiff_t index = pFound - set_._pValueSetImpl->_pValues;
    return index >= 0 && index < static_cast<ptrdiff_t>(count) ? static_cast<uint32_t>(index)
                                                               : INVALID;
  }

  // An entry has bytes in its message when it has a length and a start;
  // entries made from schema defaults have neither.
  static bool hasBytes(const value* pValue_) {
    return pValue_->_rawBytesLength != 0 && pValue_->_pRawBytes != nullptr;
  }

  // The elements of a packed field are consecutive siblings that all carry the
  // whole packed field (tag, length and every element) as their raw bytes. The
  // field is written once, for its first element; the later elements share
  // the byte range and add nothing. Two packed blocks of one field are two
  // ranges and are both written, as a reader concatenates them.
  static bool repeatsRange(const value* pValue_, const value* pPrevious_) {
    return pPrevious_ != nullptr && pPrevious_->_pRawBytes == pValue_->_pRawBytes &&
           pPrevious_->_rawBytesLength == pValue_->_rawBytesLength;
  }

  Sink& _sink;
  uint64_t _steps;  // entries the merge may still visit
  unsigned _depth;  // nested merges now open
};

template <typename Sink>
const uint32_t merge_walk<Sink>::INVALID;

template <typename Sink>
size_t merge_walk<Sink>::_mergeLevel(uint32_t updSlot_, uint32_t oldSlot_,
                                     tarn::tarn_xpath_value_set& updSet_,
                                     tarn::tarn_xpath_value_set& oldSet_) {
  const size_t start = _sink.offset();
  const uint32_t updCount = entryCount(updSet_);
  const uint32_t oldCount = entryCount(oldSet_);

  // Update walk: every update field of the level, replacing or merging.
  const value* pPrevious = nullptr;
  for (uint32_t updChild = updSlot_; updChild < updCount && _steps != 0;) {
    --_steps;
    const value* el = updSet_.getBySlot(updChild);
    // An entry without bytes (a schema default) writes nothing and leaves the
    // stored field in place: the stored walk below copies it.
    if (hasBytes(el) && !repeatsRange(el, pPrevious)) {
      const uint32_t oldIndex = findIndex(oldSet_, el->_hash);
      const value* pOldValue = oldIndex == INVALID ? nullptr : oldSet_.getBySlot(oldIndex);
      const size_t oldTag =
          pOldValue ? tagLength(pOldValue->_pRawBytes, pOldValue->_rawBytesLength) : 0;
      if (oldTag != 0 && mayNest(_depth) && linksForward(updSet_, updChild, el->_firstChild) &&
          linksForward(oldSet_, oldIndex, pOldValue->_firstChild)) {
        // Both sides hold a nested message with children: merge them under
        // the stored tag. The length prefix is reserved from a guess (the
        // varint size of both fields' lengths together, which covers the
        // merged body in the usual case); the body moves only when its final
        // length needs a different number of bytes.
        _sink.copy(pOldValue->_pRawBytes, oldTag);
        const size_t bytesGuessed =
            varintSize(static_cast<uint32_t>(el->_rawBytesLength + pOldValue->_rawBytesLength));
        const size_t slot = _sink.offset();
        _sink.skip(bytesGuessed);
        ++_depth;
        const size_t writtenBytes =
            _mergeLevel(el->_firstChild, pOldValue->_firstChild, updSet_, oldSet_);
        --_depth;
        _sink.placeLength(slot, bytesGuessed, writtenBytes);
      } else {
        // A scalar, a string, a message new to the stored side, or a nested
        // message without children on one side (or a stored one whose bytes
        // hold no tag to write it under): the update's field replaces the
        // stored one whole.
        _sink.copy(el->_pRawBytes, el->_rawBytesLength);
      }
    }
    pPrevious = el;
    const uint32_t next = el->_nextSibling;
    if (!linksForward(updSet_, updChild, next)) break;
    updChild = next;
  }

  // Stored walk: the stored fields the update does not carry with bytes. A
  // repeated field the update carries is dropped with all its occurrences, so
  // repeated fields are replaced whole, never element by element.
  pPrevious = nullptr;
  for (uint32_t oldChild = oldSlot_; oldChild < oldCount && _steps != 0;) {
    --_steps;
    const value* el = oldSet_.getBySlot(oldChild);
    // The later elements of a packed field write nothing whatever the update
    // holds, so they skip the look-up.
    if (!repeatsRange(el, pPrevious)) {
      const uint32_t updIndex = findIndex(updSet_, el->_hash);
      const bool replaced = updIndex != INVALID && hasBytes(updSet_.getBySlot(updIndex));
      if (!replaced && hasBytes(el)) _sink.copy(el->_pRawBytes, el->_rawBytesLength);
    }
    pPrevious = el;
    const uint32_t next = el->_nextSibling;
    if (!linksForward(oldSet_, oldChild, next)) break;
    oldChild = next;
  }
  return _sink.offset() - start;
}

#endif
