// The compact form of a message type that the parser and the tracer walk: per
// field its number, how it travels, its flags, its name, its nested type and
// its default ready to store, and per type a lookup from field number to
// field. Built once when a context is created, for the root type and every
// type it reaches, and never changed afterwards: parses and traces on other
// threads only read it, so it needs no lock. The descriptors stay the source
// of truth; the table only saves the hot loops their accessors and lookups.
#ifndef TARN_PROTOBUF_FIELD_TABLE_H
#define TARN_PROTOBUF_FIELD_TABLE_H

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "message_type/tarn_message_type.h"
#include "value_decoder.h"
#include "wire_format.h"

struct type_table;

// Fields of one context whose path hashes a parse may keep (see slot).
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
  // Unique among the first memo_slot_count fields of one context's tables;
  // every later field has memo_slot_count, a place the parser never fills.
  uint32_t slot;
  uint8_t type;              // the declared type, as FieldDescriptor::Type numbers it
  uint8_t travel;            // field_travel of type
  uint8_t flags;             // field_flag bits
  uint8_t defaultKind;       // which member of the default is set
  uint8_t decode[8];         // value_decoder per wire type, the tag's low three bits
  const type_table* nested;  // the message type's table for field_message, else null
  // The entry every occurrence starts from: name, flags and unset links;
  // a parse adds the hash, the parent and the value.
  tarn_message_value_set_entry entry;
  const char* traceKey;     // ,"name": as the trace writes it after another field
  uint32_t traceKeyLength;  // bytes of traceKey, the comma included
  int64_t defaultLong;
  double defaultDouble;
  const char* defaultString;  // the descriptor's own default text
  uint32_t defaultStringLength;

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
  // Field numbers up to byNumber.size() - 1 map to index + 1 (0: no field);
  // a type whose numbers are too sparse for that keeps them sorted instead.
  std::vector<uint32_t> byNumber;
  std::vector<std::pair<int32_t, uint32_t>> sorted;
  std::string traceKeys;  // every field's traceKey, one after another
  // Per one-byte tag (below 0x80), the field its number names, or null: the
  // walk goes from the tag byte straight to the field and, through its
  // decode entry for the tag's low bits, to the decoder, without splitting
  // the tag or searching. Set once fields no longer moves.
  const field_entry* byTag[128];

  // Copies of the sizes and starts above, set once the vectors are final:
  // the hot loops then neither divide by the entry size nor reload a vector.
  const field_entry* fieldArray;
  uint32_t count;
  const uint32_t* byNumberArray;
  uint32_t byNumberCount;
  // Slots in use across the context's tables, at most memo_slot_count.
  uint32_t slotsUsed;

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

// Every table one context needs, owning them all.
class field_tables {
 public:
  // Builds the tables of root_ and of every message type its fields reach.
  explicit field_tables(const google::protobuf::Descriptor* root_);

  const type_table* root() const { return _tables.front().get(); }

 private:
  void markRecursive();

  std::vector<std::unique_ptr<type_table>> _tables;
};

#endif
