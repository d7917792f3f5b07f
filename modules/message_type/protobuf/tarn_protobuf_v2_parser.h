// Walks a protobuf wire-format body against its field tables and stores one
// host value entry per field occurrence, linked parent / first child / next
// sibling, followed at each level by the schema defaults of the fields that
// were absent.
//
// One parser lives on the caller's stack for one parse. It copies no message
// bytes (entries point into the body) and allocates nothing unless one message
// level leaves more than 16 gaps in its field order. Every read goes through
// the wire cursor (wire_format.h), so it lies inside the body and takes each
// value from bytes of its own level only.
//
// A caller that wants to know why a body is refused hands the parser a
// parse_refusal: the failure path then records where and why the walk
// stopped. Nothing is recorded, and nothing costs more, for a caller that
// does not ask.
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

// Why a parse stopped, in the order the walk meets them.
enum parse_refusal_reason : uint8_t {
  refusal_none,
  refusal_tag_cut,        // the tag is cut off by the level's end (it reads as field 0)
  refusal_unknown_field,  // the level's type has no field of the tag's number
  refusal_wire_type,      // the field cannot arrive as the tag's wire type
  refusal_value_cut,      // a fixed-width value of `length` bytes runs past the level's end
  refusal_length,         // a length prefix of `length` runs past the level's end
  refusal_packed_block,   // a packed block of `length` bytes does not hold whole elements
  refusal_too_deep,       // a message field nested past max_nesting_depth
  refusal_default,        // a declared default of no kind an entry can hold
  refusal_nested,         // (within the walk only) a level below refused and recorded why
};

// Where and why a parse stopped: filled by the parser's failure path for a
// caller that asks (set on the parser before parse), and left alone
// otherwise. Pointers point into the body and the field tables the parse
// was given. The message fields that enclose the refused level are the
// entries the parse stored: parentEntry and its parents.
struct parse_refusal {
  parse_refusal_reason reason;
  const type_table* table;   // the type of the level that stopped
  const field_entry* field;  // the refused field; null when the number names none
  wire_tag tag;              // the refused field's tag as read (number 0 when cut off)
  const char* pTag;          // the refused field's first tag byte
  const char* pValue;        // where its value starts: after a length prefix, else after the tag
  const char* pLevelEnd;     // the end of the level that stopped
  uint64_t length;           // see the reasons
  unsigned depth;            // the refused level's depth, the body's 0
  uint32_t parentEntry;      // the entry of the enclosing message field; invalid at the top
};

class tarn_protobuf_v2_parser {
 public:
  // One message level: the body itself or the payload of one nested message.
  struct parse_context {
    const type_table* _pTable;
    const char* _pSrc;    // the level's first byte
    const char* _pEnd;    // and the byte after its last
    uint32_t _baseHash;   // the hash this level's field names continue
    uint32_t _rootIndex;  // entry of the enclosing message field, invalid at the top
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
        _body(),
        _previousSibling(tarn_message_value_invalid_index),
        _pRefusal(nullptr),
        _hashes(pRootTable_->memoPlaces) {}

  // Records why a failing parse stopped into *pRefusal_ (null records nothing).
  // REQUIRES: *pRefusal_ outlives the parse.
  void recordRefusal(parse_refusal* pRefusal_) { _pRefusal = pRefusal_; }

  // TARN_SUCCESS when the whole body was walked, TARN_FAILURE at the first
  // malformed or unknown field.
  [[nodiscard]] int parse(const char* pSource_, size_t sourceLength_);

 private:
  class absent_fields;
  struct no_defaults;

  [[nodiscard]] int _parseMessage(parse_context& context_);
  template <typename Absent>
  [[nodiscard]] int _parseLevel(parse_context& context_);
  void _initializeEntry(tarn_message_value_set_entry* pValue_, const field_entry& field_,
                        uint32_t hash_, const parse_context& parseContext_);
  // The path hash of field_ at the level, through the cache where pairs repeat.
  uint32_t _hash(const field_entry& field_, const parse_context& context_);
  uint32_t _insert(tarn_message_value_set_entry* pValue_);

  // Reads the value at in_ (just after the tag) and leaves in_ after it; the
  // level's read position stays a register of the level walk. Returns
  // refusal_none, or why the value is refused.
  [[nodiscard]] int _consumeValue(tarn_message_value_set_entry* pValue_, const field_entry& field_,
                                  unsigned decoder_, const parse_context& context_,
                                  wire_cursor& in_, const char* pValueStart_);
  // refusal_none, refusal_too_deep, or refusal_nested when the level below failed.
  [[nodiscard]] int _consumeMessage(tarn_message_value_set_entry* pValue_,
                                    const field_entry& field_, const parse_context& context_,
                                    wire_cursor& in_, const char* pValueStart_, size_t length_);
  // Takes the position after the tag (in the level of context_) and returns
  // the one after the block, or null for a malformed block. Positions, not
  // the cursor, cross the call, so that the level walk's cursor stays in
  // registers.
  [[nodiscard]] const char* _consumePacked(const field_entry& field_,
                                           tarn_message_value_set_entry* pValue_,
                                           const char* pValueStart_, const parse_context& context_,
                                           const char* pSrc_);
  template <value_decoder Decoder>
  void _storeElements(tarn_message_value_set_entry* pValue_, wire_cursor& block_);

  [[nodiscard]] int _insertDefaults(parse_context& context_, const omitted_ranges& ranges_,
                                    int lastFieldSeenIndex_);
  [[nodiscard]] int _insertDefault(parse_context& context_, const field_entry& omitted_);

  // The failure path: records why the walk stopped at the field whose tag
  // starts at pTag_ when a caller asked, and fails. The walk hands over no
  // more than the reason, so that its own paths carry nothing for it.
  TARN_NOINLINE int _refuse(int reason_, const parse_context& context_, const field_entry* pField_,
                            const char* pTag_);

  const type_table* _pRootTable;
  tarn_message_xpath_value_set _valueSet;
  tarn_message_xpath_find_set _findSet;
  wire_body _body;            // the body being parsed, which every level's cursor reads
  uint32_t _previousSibling;  // newest entry stored at the level being walked
  parse_refusal* _pRefusal;   // where a failure is explained, or null
  path_hash_cache _hashes;
};

#endif
