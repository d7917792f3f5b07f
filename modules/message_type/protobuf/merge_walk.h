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
//   that parsed to no entries is an empty level, exactly as the invalid index
//   is below the top: the merge of an empty update is the stored message, and the other
//   way round.
// - A link is followed only forward, to a higher index that the set holds. The
//   parser stores a message entry before everything inside it and every field
//   before its later siblings, so real links always point forward; a link
//   backwards, to itself or out of the set can only come from a damaged set and
//   ends that walk. Index 0 is never a child or a later sibling, and the host's
//   array marker 0xFFFFFFFE is never below the entry count, so both fail too.
// - The elements of a packed field are stored one after another, chained in
//   that order, and each carries the whole field's bytes. The walk writes the
//   field for its first element and passes over the rest of the run in one
//   step: it finds the last entry of the run by doubling, then halving, its
//   stride over the following indexes (a few entries looked at, not every
//   one), and goes on from that entry's own link. Only entries that the set
//   holds and that come after the current one are looked at, so a damaged set
//   still cannot turn the walk back or take it outside the set.
// - A walk can thus neither loop nor leave the set, but links that share
//   subtrees could still make the work grow without end. The merge takes at
//   most updateCount + storedCount * (updateCount + 1) steps in all, one per
//   entry or packed run visited: a stored level is walked once per update
//   entry merged into it (the same stored occurrence may receive several
//   update occurrences of a repeated nested message), plus once at the top.
//   Real sets never reach it; a damaged one stops there with every open
//   length prefix still written.
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

  // The walk sends everything to sink_, which it does not own.
  explicit merge_walk(Sink& sink_)
      : _sink(sink_), _steps(0), _depth(0), _pPending(nullptr), _pendingLength(0) {}

  // Merges the update set over the stored set into the sink and returns the
  // bytes it leaves there. Either handle may be null or name an empty set.
  size_t run(tarn_message_xpath_value_set updateSet_, tarn_message_xpath_value_set previousSet_) {
    const side upd = sideOf(updateSet_);
    const side old = sideOf(previousSet_);
    _steps = upd.count + static_cast<uint64_t>(old.count) * (upd.count + 1);
    _depth = 0;
    const size_t written = _mergeLevel(upd.count ? 0 : tarn_message_value_invalid_index,
                                       old.count ? 0 : tarn_message_value_invalid_index, upd, old);
    _flush();
    return written;
  }

 private:
  // What the walk reads of one set, loaded once: every write the sink makes
  // may alias the storage as far as the compiler knows, so fields read
  // through the set would be loaded again for every entry.
  struct side {
    const value_set::value_set_impl* pImpl;
    const value* pValues;
    uint32_t count;  // entries the set holds; bounds every index
    bool keyed;      // holds entries and a key table to find them by

    const value* at(uint32_t index_) const { return pValues + index_; }

    // The link test: the index names an entry of the set that comes after
    // from_ (so it is neither 0 nor tarn_message_value_invalid_index).
    bool linksForward(uint32_t from_, uint32_t to_) const { return to_ > from_ && to_ < count; }

    // Index of the entry stored under hash_, or tarn_message_value_invalid_index. The key table's
    // answer is checked against the entry count before the entry is used.
    uint32_t indexOf(uint32_t hash_) const {
      if (!keyed || hash_ == 0) return tarn_message_value_invalid_index;
      const value_set::key_data* pKey = pImpl->find(hash_);
      return pKey != nullptr && pKey->_valueIndex < count ? pKey->_valueIndex
                                                          : tarn_message_value_invalid_index;
    }
  };

  static side sideOf(tarn_message_xpath_value_set set_) {
    const value_set::value_set_impl* pImpl =
        set_ ? static_cast<const value_set*>(set_)->_pValueSetImpl : nullptr;
    side s = {pImpl, nullptr, 0, false};
    if (pImpl != nullptr && pImpl->_storeCount != 0 && pImpl->_pValues != nullptr) {
      s.pValues = pImpl->_pValues;
      s.count = pImpl->_storeCount;
      s.keyed = pImpl->_pKeys != nullptr;
    }
    return s;
  }

  // An entry has bytes in its message when it has a length and a start;
  // entries made from schema defaults have neither.
  static bool hasBytes(const value* pValue_) {
    return pValue_->_rawBytesLength != 0 && pValue_->_pRawBytes != nullptr;
  }

  static bool sameRange(const value* pA_, const value* pB_) {
    return pA_->_pRawBytes == pB_->_pRawBytes && pA_->_rawBytesLength == pB_->_rawBytesLength;
  }

  // The elements of a packed field are consecutive siblings that all carry the
  // whole packed field (tag, length and every element) as their raw bytes. The
  // field is written once, for its first element; the later elements share
  // the byte range and add nothing. Two packed blocks of one field are two
  // ranges and are both written, as a reader concatenates them. pPrevious_ is
  // the previous sibling when it has bytes, else null.
  static bool repeatsRange(const value* pValue_, const value* pPrevious_) {
    return pPrevious_ != nullptr && sameRange(pValue_, pPrevious_);
  }

  // The last entry of the packed run that the entry at at_ belongs to: the
  // highest index reached from at_ through entries that all carry its byte
  // range, found by doubling the stride and then halving it.
  static uint32_t runEnd(const side& side_, uint32_t at_) {
    const value* pRun = side_.at(at_);
    uint32_t inRun = at_;           // carries the run's range
    uint32_t beyond = side_.count;  // does not, or is past the set's end
    for (uint64_t stride = 1; stride < beyond - inRun; stride *= 2) {
      const uint32_t probe = inRun + static_cast<uint32_t>(stride);
      if (!sameRange(side_.at(probe), pRun)) {
        beyond = probe;
        break;
      }
      inRun = probe;
    }
    while (beyond - inRun > 1) {
      const uint32_t middle = inRun + (beyond - inRun) / 2;
      if (sameRange(side_.at(middle), pRun))
        inRun = middle;
      else
        beyond = middle;
    }
    return inRun;
  }

  // Visits the entries of one level chained from slot_, each at most once and
  // within the step budget: visit_(index, entry) for every entry with bytes,
  // but for the later elements of a packed run, passed over as one step
  // (they share the first element's bytes and add nothing). A link that does
  // not lead forward ends the level, so a damaged set cannot loop.
  template <typename Visit>
  TARN_ALWAYS_INLINE void _walkLevel(const side& side_, uint32_t slot_, Visit visit_) {
    const value* pPrevious = nullptr;
    for (uint32_t child = slot_; child < side_.count && _steps != 0;) {
      --_steps;
      const value* el = side_.at(child);
      const bool bytes = hasBytes(el);
      if (bytes && repeatsRange(el, pPrevious)) {
        child = runEnd(side_, child);
        el = side_.at(child);
      } else if (bytes) {
        visit_(child, el);
      }
      pPrevious = bytes ? el : nullptr;
      const uint32_t next = el->_nextSibling;
      if (!side_.linksForward(child, next)) break;
      child = next;
    }
  }

  // Merges one level: the update entries chained from updSlot_ over the stored
  // entries chained from oldSlot_ (either tarn_message_value_invalid_index for an empty side).
  // Returns the bytes the level leaves in the sink.
  size_t _mergeLevel(uint32_t updSlot_, uint32_t oldSlot_, const side& updSide_,
                     const side& oldSide_);

  // Field bytes reach the sink through one pending copy, which grows while
  // each copy starts where the last one ended: the fields of a level that go
  // out unchanged usually lie back to back in their message.
  void _copy(const char* pSrc_, size_t n_) {
    if (pSrc_ != _pPending + _pendingLength) {
      _flush();
      _pPending = pSrc_;
    }
    _pendingLength += n_;
  }
  void _flush() {
    if (_pendingLength == 0) return;
    _sink.copy(_pPending, _pendingLength);
    _pendingLength = 0;
  }
  size_t _offset() const { return _sink.offset() + _pendingLength; }

  Sink& _sink;
  uint64_t _steps;  // entries and packed runs the merge may still visit
  unsigned _depth;  // nested merges now open
  const char* _pPending;
  size_t _pendingLength;
};

template <typename Sink>
size_t merge_walk<Sink>::_mergeLevel(uint32_t updSlot_, uint32_t oldSlot_, const side& updSide_,
                                     const side& oldSide_) {
  // Copied once per level, so that the loops below keep them in registers.
  const side upd_ = updSide_;
  const side old_ = oldSide_;
  const size_t start = _offset();

  // Update walk: every update field of the level, replacing or merging. An
  // entry without bytes (a schema default) writes nothing and leaves the
  // stored field in place: the stored walk below copies it. The last look-up
  // is kept, as repeated fields ask for one hash many times.
  uint32_t askedHash = 0, oldIndex = tarn_message_value_invalid_index;
  _walkLevel(upd_, updSlot_, [&](uint32_t updChild, const value* el) {
    if (el->_hash != askedHash) {
      askedHash = el->_hash;
      oldIndex = old_.indexOf(askedHash);
    }
    const value* pOldValue =
        oldIndex == tarn_message_value_invalid_index ? nullptr : old_.at(oldIndex);
    const size_t oldTag =
        pOldValue ? tagLength(pOldValue->_pRawBytes, pOldValue->_rawBytesLength) : 0;
    if (oldTag != 0 && mayNest(_depth) && upd_.linksForward(updChild, el->_firstChild) &&
        old_.linksForward(oldIndex, pOldValue->_firstChild)) {
      // Both sides hold a nested message with children: merge them under
      // the stored tag. The length prefix is reserved from a guess (the
      // varint size of both fields' lengths together, which covers the
      // merged body in the usual case); the body moves only when its final
      // length needs a different number of bytes.
      _copy(pOldValue->_pRawBytes, oldTag);
      _flush();
      const size_t bytesGuessed =
          varintSize(static_cast<uint32_t>(el->_rawBytesLength + pOldValue->_rawBytesLength));
      const size_t slot = _sink.offset();
      _sink.skip(bytesGuessed);
      ++_depth;
      const size_t writtenBytes = _mergeLevel(el->_firstChild, pOldValue->_firstChild, upd_, old_);
      --_depth;
      _flush();
      _sink.placeLength(slot, bytesGuessed, writtenBytes);
    } else {
      // A scalar, a string, a message new to the stored side, or a nested
      // message without children on one side (or a stored one whose bytes
      // hold no tag to write it under): the update's field replaces the
      // stored one whole.
      _copy(el->_pRawBytes, el->_rawBytesLength);
    }
  });

  // Stored walk: the stored fields the update does not carry with bytes. A
  // repeated field the update carries is dropped with all its occurrences, so
  // repeated fields are replaced whole, never element by element.
  askedHash = 0;
  bool replaced = false;
  _walkLevel(old_, oldSlot_, [&](uint32_t, const value* el) {
    if (el->_hash != askedHash) {
      askedHash = el->_hash;
      const uint32_t updIndex = upd_.indexOf(askedHash);
      replaced = updIndex != tarn_message_value_invalid_index && hasBytes(upd_.at(updIndex));
    }
    if (!replaced) _copy(el->_pRawBytes, el->_rawBytesLength);
  });
  return _offset() - start;
}

#endif
