// The compact form of a message type that the parser and the tracer walk: per
// field its number, how it travels, its flags, its name, its nested type and
// its default ready to store, and per type a lookup from field number to
// field. One table per message type in the process, like the descriptor it is
// built from: the first context that reaches a type builds its table, every
// later one uses it, and it lives until the module is unloaded, as the shared
// pool keeps every descriptor until then. A table is complete before any
// context that uses it is returned and never changes afterwards, so parses and
// traces on other threads only read it and need no lock. The descriptors stay
// the source of truth; the table only saves the hot loops their accessors and
// lookups.
#ifndef TARN_PROTOBUF_FIELD_TABLE_H
#define TARN_PROTOBUF_FIELD_TABLE_H

#include <google/protobuf/descriptor.h>

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "message_type/tarn_message_type.h"
#include "value_decoder.h"
#include "wire_format.h"

struct type_table;

// Places in a parse's path-hash memo (see field_entry::slot).
constexpr uint32_t memo_slot_count = 256;

enum field_flag : uint8_t {
  field_required = 1,     // label required: its entries carry the required flag
  field_packed = 2,       // declared packed (only packable scalars can be)
  field_has_default = 4,  // declares a default, stored when the field is absent
  field_message = 8,      // a message field (not a group): its payload is a level
  field_repeated = 16,    // label repeated
};

enum default_kind : uint8_t {
  default_none,
  default_long,
  default_double,
  default_string,
};

struct field_entry {
  const char* name;     // the descriptor's name, alive as long as the schema
  uint32_t nameLength;  // bytes of name
  int32_t number;       // field number
  int32_t index;        // position in declaration order
  uint8_t type;         // the declared type, as FieldDescriptor::Type numbers it
  uint8_t travel;       // field_travel of type
  uint8_t flags;        // field_flag bits
  uint8_t defaultKind;  // which member of the default is set
  uint8_t decode[8];    // value_decoder per wire type, the tag's low three bits
  // The field's place in a parse's path-hash memo, below memo_slot_count, or
  // memo_slot_count, a place the memo never fills. Places are handed out
  // lowest first, avoiding those of the tables already built that the same
  // root reaches, so the fields a root reaches mostly have places of their
  // own; two fields that share one only push each other out.
  uint16_t slot;
  uint32_t traceKeyLength;  // bytes of traceKey, the comma included
  uint32_t defaultStringLength;
  // The field's own number in the process, in the high half, with the low
  // half zero: the memo keeps a place's key as memoKey | seed, so a hit
  // needs this field and this seed, whoever else shares the place.
  uint64_t memoKey;
  const type_table* nested;  // the message type's table for field_message, else null
  // The entry every occurrence starts from: name, flags and unset links;
  // a parse adds the hash, the parent and the value.
  tarn_message_value_set_entry entry;
  const char* traceKey;  // ,"name": as the trace writes it after another field
  union {
    int64_t defaultLong;
    double defaultDouble;
    const char* defaultString;  // the descriptor's own default text
  };

  bool is(field_flag flag_) const { return (flags & flag_) != 0; }
};

struct type_table {
  const google::protobuf::Descriptor* descriptor;
  std::vector<field_entry> fields;  // in declaration order: fields[i].index == i
  bool anyDefault;                  // whether some field declares a default
  // Whether a message of this type can hold another of its own type, at any
  // depth (a tree). Its levels differ from each other in their path seeds,
  // so a parse keeps no path hashes for them.
  bool recursive;
  // The memo places a parse rooted at this type may fill: one past the
  // highest place of a field it reaches, at most memo_slot_count. A parse
  // clears that many.
  uint16_t memoPlaces;
  // The memo places of every field this type reaches, its own included: what
  // a new root that reaches this type leaves to the others.
  std::bitset<memo_slot_count> placesReached;
  // Field numbers up to byNumber.size() - 1 map to index + 1 (0: no field);
  // a type whose numbers are too sparse for that keeps them sorted instead.
  std::vector<uint32_t> byNumber;
  std::vector<std::pair<int32_t, uint32_t>> sorted;
  std::string traceKeys;  // every field's traceKey, one after another
  // Per first tag byte shifted right by the wire type's bits, the field it
  // names, or null: a one-byte tag (below 0x80) gives a field number below
  // 16, so the walk goes from the tag byte straight to the field and,
  // through its decode entry for the tag's low bits, to the decoder, without
  // splitting the tag or searching. A byte that continues the tag (0x80 and
  // up) falls in the upper half, which is always null, so the walk tests the
  // entry and not the byte. Indexed by the shifted byte rather than the
  // byte, the table is a quarter of the size at the cost of the shift, which
  // the test it saves pays for. Set once fields no longer moves.
  const field_entry* byTag[32];

  // Copies of the sizes and starts above, set once the vectors are final:
  // the hot loops then neither divide by the entry size nor reload a vector.
  const field_entry* fieldArray;
  uint32_t count;
  const uint32_t* byNumberArray;
  uint32_t byNumberCount;

  int fieldCount() const { return static_cast<int>(count); }

  // The field numbered number_, exactly as FindFieldByNumber answers, or null.
  // hint_ (any int) is tried first: fields mostly arrive in declaration
  // order, so the one after the previous field usually matches.
  TARN_ALWAYS_INLINE const field_entry* find(int number_, int hint_) const {
    if (static_cast<unsigned>(hint_) < count && fieldArray[hint_].number == number_)
      return &fieldArray[hint_];
    // Unsigned, so that negative numbers fall out of range.
    if (static_cast<unsigned>(number_) < byNumberCount) {
      const uint32_t at = byNumberArray[static_cast<unsigned>(number_)];
      return at == 0 ? nullptr : &fieldArray[at - 1];
    }
    return sorted.empty() ? nullptr : findSorted(number_);
  }

  const field_entry* findSorted(int number_) const;
};

// The tables of every message type that contexts have reached, one per type,
// kept for the life of the process (freed when the module is unloaded).
// Only context creation calls it, never on two threads at once; parses and
// traces reach tables through the pointers it returns and never through it.
class field_tables {
 public:
  // The table of root_, with those of every type its fields reach. Types
  // met before keep their tables; the missing ones are built first, all of
  // them, and only then made known at once, so that a failure leaves no
  // table half built or half known.
  // @throws std::bad_alloc when memory runs out; nothing is kept then.
  static const type_table* of(const google::protobuf::Descriptor* root_);
};

#endif
