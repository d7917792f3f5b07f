// Walks a protobuf wire-format body against its descriptor and stores one host
// value entry per field occurrence, linked parent / first child / next sibling,
// followed at each level by the schema defaults of the fields that were absent.
//
// One parser lives on the caller's stack for one parse. It copies no message
// bytes (entries point into the body) and allocates nothing unless one message
// level leaves more than 16 gaps in its field order. Every read lies inside
// the body, and every value is taken from bytes of its own level only: a word
// loaded across a level's bounds has the bytes outside it shifted or masked off.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_H
#define TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "field_table.h"
#include "message_type/tarn_message_type.h"
#include "util/base/hybrid_worklist.h"
#include "wire_format.h"

class tarn_protobuf_v2_parser {
 public:
  static constexpr uint32_t INVALID = 0xFFFFFFFFu;

  // One message level: the body itself or the payload of one nested message.
  struct parse_context {
    const type_table* _pTable;
    const char* _pSrc;    // the level's first byte
    const char* _pEnd;    // and the byte after its last
    uint32_t _baseHash;   // the hash this level's field names continue
    uint32_t _rootIndex;  // entry of the enclosing message field, INVALID at the top
    uint8_t _depth;       // nested levels entered to reach this one, the body's 0
    // Whether this level lies inside a repeated message field: only there do
    // (seed, field) pairs come back after other fields, so only there is the
    // hash cache worth its lookups. Not for a type that can hold itself:
    // a tree's levels each continue a different seed.
    bool _repeats;
  };

  // Half-open range [first, second) of field indexes; a plain struct, so that
  // the inline list below is not cleared at every level.
  struct index_range {
    int first;
    int second;
  };
  // The ranges of field indexes not seen so far at one level, in the order
  // they were appended. A range that empties stays in the list covering
  // nothing; ranges never overlap.
  class omitted_ranges : public tarn::hybrid_worklist<index_range, 16> {
   public:
    void addRange(int start_, int end_) {
      const index_range range = {start_, end_};
      push_back(range);
    }
    void splitRange(int split_);
  };

  // Path hashes already computed in this parse: per memo place (see
  // field_entry::slot) the key it was filled under and the hash. The host's
  // hash functions are pure, so a field met again under the same seed (a
  // member of a repeated nested message) reuses its hash: the host sees the
  // same entries and only fewer hash calls. A key is the field's memoKey
  // (its own number in the high half) with the seed in the low half, so a
  // place answers only the field and seed it was filled for, whichever
  // fields share it; no key is 0, so the zero a place is cleared to matches
  // none. The places the root's fields can hold are cleared, and the one
  // past them, shared by the fields without a place, is never filled: a hit
  // is one load and one compare.
  class path_hash_cache {
   public:
    explicit path_hash_cache(uint32_t places_) : _hits(0), _conflicts(0), _on(true) {
      std::memset(_keys, 0,
                  (places_ < memo_slot_count ? places_ : memo_slot_count) * sizeof _keys[0]);
      _keys[memo_slot_count] = 0;
    }

    // Whether looking up still pays: a miss costs more than hashing straight
    // away, so a body whose pairs mostly do not come back (a deep chain
    // whose levels all differ) stops using the cache.
    bool on() const { return _on; }

    TARN_ALWAYS_INLINE uint32_t hash(const field_entry& field_, uint32_t seed_) {
      const uint32_t i = field_.slot;
      if (_keys[i] == (field_.memoKey | seed_)) {
        ++_hits;
        return _hashes[i];
      }
      return _miss(field_, seed_);
    }

   private:
    TARN_NOINLINE uint32_t _miss(const field_entry& field_, uint32_t seed_) {
      const uint32_t i = field_.slot;
      // Made before the host is called and the seed taken back from it, so
      // that only the key lives across the call.
      const uint64_t key = field_.memoKey | seed_;
      // A field met for the first time has nothing to hit, and every repeated
      // message starts with a round of those. Only a miss that replaces
      // another key (or falls on the place never filled) says the pairs do
      // not come back: off once those outnumber the hits by more than 8.
      if ((i >= memo_slot_count || _keys[i] != 0) && ++_conflicts > _hits + 8) _on = false;
      const uint32_t hash = tarn_message_xpath_hash_string(field_.name, field_.nameLength,
                                                           static_cast<uint32_t>(key));
      if (i < memo_slot_count) {
        _keys[i] = key;
        _hashes[i] = hash;
      }
      return hash;
    }

    uint32_t _hits;
    uint32_t _conflicts;
    bool _on;
    uint64_t _keys[memo_slot_count + 1];  // memoKey | seed, or 0
    uint32_t _hashes[memo_slot_count + 1];
  };

  tarn_protobuf_v2_parser(const type_table* pRootTable_, tarn_message_xpath_value_set valueSet_,
                          tarn_message_xpath_find_set findSet_)
      : _pRootTable(pRootTable_),
        _valueSet(valueSet_),
        _findSet(findSet_),
        _pBody(nullptr),
        _pBodyEnd(nullptr),
        _previousSibling(INVALID),
        _hashes(pRootTable_->memoPlaces) {}

  [[nodiscard]] int parse(const char* pSource_, size_t sourceLength_);

 private:
  // A varint's value and the position after it, both returned in registers,
  // so that a caller's read position never has to live in memory.
  struct varint_read {
    uint64_t value;
    const char* pNext;
  };
  // pFloor_ is the body's first byte: every byte from it up to pEnd_ may be
  // read, which lets a varint near the end of a level be loaded in one word.
  static uint64_t _consumeVarint(const char*& pSrc_, const char* pEnd_, const char* pFloor_);
  static uint64_t _consumeLength(const char*& pSrc_, const char* pEnd_, const char* pFloor_);
  // pCeiling_ is the body's end: a value near the end of its level is still
  // loaded in one word from where it starts while the body holds the word.
  static uint64_t _consumeVarintValue(const char*& pSrc_, const char* pEnd_, const char* pFloor_,
                                      const char* pCeiling_);
  static TARN_NOINLINE varint_read _consumeVarintSlow(const char* pSrc_, const char* pEnd_,
                                                      const char* pFloor_);

  class absent_fields;
  struct no_defaults;

  [[nodiscard]] int _parseMessage(parse_context& context_);
  template <typename Absent>
  [[nodiscard]] int _parseLevel(parse_context& context_);
  void _initializeEntry(tarn_message_value_set_entry* pValue_, const field_entry& field_,
                        uint32_t hash_, parse_context& parseContext_);
  // The path hash of field_ at the level, through the cache where pairs repeat.
  uint32_t _hash(const field_entry& field_, const parse_context& context_);
  uint32_t _insert(tarn_message_value_set_entry* pValue_);

  // Both read from pSrc_ (just after the tag) and leave it after the value;
  // the level's read position stays a register of the level walk.
  [[nodiscard]] int _consumeValue(tarn_message_value_set_entry* pValue_, const field_entry& field_,
                                  unsigned decoder_, const parse_context& context_,
                                  const char*& pSrc_, const char* pValueStart_, const char* pEnd_);
  [[nodiscard]] int _consumeMessage(tarn_message_value_set_entry* pValue_,
                                    const field_entry& field_, const parse_context& context_,
                                    const char*& pSrc_, const char* pValueStart_, size_t length_);
  template <typename Store>
  void _storeElements(tarn_message_value_set_entry* pValue_, const char*& pSrc_,
                      const char* pBlockEnd_, Store store_);
  // Takes the position after the tag and returns the one after the block,
  // or null for a malformed block.
  [[nodiscard]] const char* _consumePacked(const field_entry& field_,
                                           tarn_message_value_set_entry* pValue_,
                                           const char* pValueStart_, const char* pSrc_,
                                           const char* pEnd_);

  [[nodiscard]] int _insertDefaults(parse_context& context_, const omitted_ranges& ranges_,
                                    int lastFieldSeenIndex_);
  [[nodiscard]] int _insertDefault(parse_context& context_, const field_entry& omitted_);
  [[nodiscard]] static int _setDefault(tarn_message_value_set_entry* pValue_,
                                       const field_entry& field_);

  const type_table* _pRootTable;
  tarn_message_xpath_value_set _valueSet;
  tarn_message_xpath_find_set _findSet;
  const char* _pBody;         // the body's first byte
  const char* _pBodyEnd;      // and the byte after its last
  uint32_t _previousSibling;  // newest entry stored at the level being walked
  path_hash_cache _hashes;
};

#endif
