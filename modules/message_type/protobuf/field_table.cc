#include "field_table.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <unordered_set>

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace {

// A dense number lookup costs four bytes per number up to the largest one; it
// is used while that stays within a few times the field count.
bool denseFits(int maxNumber_, int fieldCount_) { return maxNumber_ <= 4 * fieldCount_ + 64; }

void setDefault(field_entry& entry_, const FieldDescriptor& f_) {
  if (!f_.has_default_value()) return;
  entry_.flags |= field_has_default;
  switch (f_.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      entry_.defaultKind = default_long;
      entry_.defaultLong = f_.default_value_int32();
      break;
    case FieldDescriptor::CPPTYPE_INT64:
      entry_.defaultKind = default_long;
      entry_.defaultLong = f_.default_value_int64();
      break;
    case FieldDescriptor::CPPTYPE_UINT32:
      entry_.defaultKind = default_long;
      entry_.defaultLong = f_.default_value_uint32();
      break;
    case FieldDescriptor::CPPTYPE_UINT64:
      entry_.defaultKind = default_long;
      entry_.defaultLong = static_cast<int64_t>(f_.default_value_uint64());
      break;
    case FieldDescriptor::CPPTYPE_DOUBLE:
      entry_.defaultKind = default_double;
      entry_.defaultDouble = f_.default_value_double();
      break;
    case FieldDescriptor::CPPTYPE_FLOAT:
      entry_.defaultKind = default_double;
      entry_.defaultDouble = f_.default_value_float();
      break;
    case FieldDescriptor::CPPTYPE_BOOL:
      entry_.defaultKind = default_long;
      entry_.defaultLong = f_.default_value_bool() ? 1 : 0;
      break;
    case FieldDescriptor::CPPTYPE_ENUM:
      entry_.defaultKind = default_long;
      entry_.defaultLong = f_.default_value_enum()->number();
      break;
    case FieldDescriptor::CPPTYPE_STRING: {
      const std::string& text = f_.default_value_string();
      entry_.defaultKind = default_string;
      entry_.defaultString = text.data();
      entry_.defaultStringLength = static_cast<uint32_t>(text.size());
      break;
    }
    default:
      // A message has no default; were one claimed, storing it fails the
      // parse, as a default of no known kind always has.
      break;
  }
}

// What _consumeValue did for each wire type, chosen once: a varint only for
// the varint kinds, eight and four bytes for any type (the declared type only
// picks how they are read), a block as packed, message or plain bytes.
void setDecoders(field_entry& entry_) {
  for (uint8_t& d : entry_.decode) d = decode_fail;
  switch (entry_.travel) {
    case travel_varint:
      entry_.decode[VARINT] =
          entry_.type == FieldDescriptor::TYPE_INT32 ? decode_varint_int32 : decode_varint;
      break;
    case travel_zigzag:
      entry_.decode[VARINT] = decode_zigzag;
      break;
    default:
      break;
  }
  entry_.decode[FIXED64] =
      entry_.type == FieldDescriptor::TYPE_DOUBLE ? decode_fixed64_double : decode_fixed64_long;
  entry_.decode[FIXED32] = entry_.type == FieldDescriptor::TYPE_FLOAT ? decode_fixed32_float
                           : entry_.type == FieldDescriptor::TYPE_SFIXED32
                               ? decode_fixed32_signed
                               : decode_fixed32_unsigned;
  entry_.decode[LENGTH_DELIMITED] = entry_.is(field_packed)    ? decode_packed
                                    : entry_.is(field_message) ? decode_message
                                                               : decode_block;
}

}  // namespace

const field_entry* type_table::findSorted(int number_) const {
  const auto it = std::lower_bound(
      sorted.begin(), sorted.end(), number_,
      [](const std::pair<int32_t, uint32_t>& e_, int n_) { return e_.first < n_; });
  return it != sorted.end() && it->first == number_ ? &fieldArray[it->second] : nullptr;
}

field_tables::field_tables(const Descriptor* root_) {
  // Types are numbered as they are first reached, the root first; a type is
  // built after it is numbered, so recursive types point at their own table.
  std::unordered_map<const Descriptor*, type_table*> known;
  std::vector<const Descriptor*> pending;
  auto tableOf = [&](const Descriptor* d_) {
    auto found = known.find(d_);
    if (found != known.end()) return found->second;
    _tables.emplace_back(new type_table());
    type_table* const t = _tables.back().get();
    t->descriptor = d_;
    known.emplace(d_, t);
    pending.push_back(d_);
    return t;
  };
  tableOf(root_);
  uint32_t slot = 0;
  for (size_t next = 0; next < pending.size(); ++next) {
    const Descriptor* const d = pending[next];
    type_table* const t = known[d];
    const int count = d->field_count();
    t->fields.resize(static_cast<size_t>(count));
    t->anyDefault = false;
    int maxNumber = 0;
    for (int i = 0; i < count; ++i) {
      const FieldDescriptor& f = *d->field(i);
      field_entry& e = t->fields[static_cast<size_t>(i)];
      e = field_entry();
      e.name = f.name().data();
      e.nameLength = static_cast<uint32_t>(f.name().size());
      e.number = f.number();
      e.index = i;
      e.slot = slot < memo_slot_count ? slot++ : memo_slot_count;
      e.type = static_cast<uint8_t>(f.type());
      e.travel = travelOf(f.type());
      if (f.label() == FieldDescriptor::LABEL_REQUIRED) e.flags |= field_required;
      if (f.is_packed()) e.flags |= field_packed;
      if (f.is_repeated()) e.flags |= field_repeated;
      if (f.type() == FieldDescriptor::TYPE_MESSAGE) {
        e.flags |= field_message;
        e.nested = tableOf(f.message_type());
      }
      e.entry.parent = e.entry.first_child = e.entry.next_sibling = 0xFFFFFFFFu;
      e.entry.tag_bytes = e.name;
      e.entry.tag_length = e.nameLength;
      if (e.is(field_required)) e.entry.value_flags = tarn_message_value_set_entry_flag_required;
      setDefault(e, f);
      setDecoders(e);
      if (e.is(field_has_default)) t->anyDefault = true;
      maxNumber = std::max(maxNumber, e.number);
    }
    // The keys are written once the table's text is complete, so that no
    // pointer into it moves afterwards.
    std::vector<size_t> keyAt(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
      const field_entry& e = t->fields[static_cast<size_t>(i)];
      keyAt[static_cast<size_t>(i)] = t->traceKeys.size();
      t->traceKeys.append(",\"").append(e.name, e.nameLength).append("\":");
    }
    for (int i = 0; i < count; ++i) {
      field_entry& e = t->fields[static_cast<size_t>(i)];
      e.traceKey = t->traceKeys.data() + keyAt[static_cast<size_t>(i)];
      e.traceKeyLength = e.nameLength + 4;
    }
    if (denseFits(maxNumber, count)) {
      t->byNumber.assign(static_cast<size_t>(maxNumber) + 1, 0);
      for (int i = 0; i < count; ++i)
        t->byNumber[static_cast<size_t>(t->fields[i].number)] = static_cast<uint32_t>(i) + 1;
    } else {
      for (int i = 0; i < count; ++i)
        t->sorted.emplace_back(t->fields[i].number, static_cast<uint32_t>(i));
      std::sort(t->sorted.begin(), t->sorted.end());
    }
    std::fill(std::begin(t->byTag), std::end(t->byTag), nullptr);
    for (const field_entry& e : t->fields) {
      if (e.number <= 0 || e.number >= 16) continue;
      for (unsigned wire = 0; wire < 8; ++wire)
        t->byTag[static_cast<unsigned>(e.number) << wiretype_bits | wire] = &e;
    }
    t->fieldArray = t->fields.data();
    t->count = static_cast<uint32_t>(count);
    t->byNumberArray = t->byNumber.data();
    t->byNumberCount = static_cast<uint32_t>(t->byNumber.size());
  }
  for (const auto& t : _tables) {
    t->slotsUsed = slot;
    t->recursive = reaches(*t, *t);
  }
}

// Whether a message of type from_ can hold one of type to_, through any
// chain of message fields.
bool field_tables::reaches(const type_table& from_, const type_table& to_) {
  std::vector<const type_table*> pending = {&from_};
  std::unordered_set<const type_table*> seen;
  while (!pending.empty()) {
    const type_table* const t = pending.back();
    pending.pop_back();
    for (const field_entry& e : t->fields) {
      if (e.nested == nullptr) continue;
      if (e.nested == &to_) return true;
      if (seen.insert(e.nested).second) pending.push_back(e.nested);
    }
  }
  return false;
}
