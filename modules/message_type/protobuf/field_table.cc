#include "field_table.h"

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <iterator>
#include <unordered_map>

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace {

// A dense number lookup costs four bytes per number up to the largest one; it
// is used while that stays within a few times the field count.
bool denseFits(int maxNumber_, int fieldCount_) { return maxNumber_ <= 4 * fieldCount_ + 64; }

void setLongDefault(field_entry& entry_, int64_t value_) {
  entry_.defaultKind = default_long;
  entry_.defaultLong = value_;
}

void setDoubleDefault(field_entry& entry_, double value_) {
  entry_.defaultKind = default_double;
  entry_.defaultDouble = value_;
}

void setDefault(field_entry& entry_, const FieldDescriptor& f_) {
  if (!f_.has_default_value()) return;
  entry_.flags |= field_has_default;
  switch (f_.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return setLongDefault(entry_, f_.default_value_int32());
    case FieldDescriptor::CPPTYPE_INT64:
      return setLongDefault(entry_, f_.default_value_int64());
    case FieldDescriptor::CPPTYPE_UINT32:
      return setLongDefault(entry_, f_.default_value_uint32());
    case FieldDescriptor::CPPTYPE_UINT64:
      return setLongDefault(entry_, static_cast<int64_t>(f_.default_value_uint64()));
    case FieldDescriptor::CPPTYPE_BOOL:
      return setLongDefault(entry_, f_.default_value_bool() ? 1 : 0);
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return setDoubleDefault(entry_, f_.default_value_double());
    case FieldDescriptor::CPPTYPE_FLOAT:
      return setDoubleDefault(entry_, f_.default_value_float());
    case FieldDescriptor::CPPTYPE_ENUM: {
      // A default names one of the enum's values; should the library have
      // none to give, the field is treated as declaring no default.
      const google::protobuf::EnumValueDescriptor* value = f_.default_value_enum();
      if (value == nullptr) {
        entry_.flags &= static_cast<uint8_t>(~field_has_default);
        return;
      }
      return setLongDefault(entry_, value->number());
    }
    case FieldDescriptor::CPPTYPE_STRING: {
      const std::string& text = f_.default_value_string();
      entry_.defaultKind = default_string;
      entry_.defaultString = text.data();
      entry_.defaultStringLength = static_cast<uint32_t>(text.size());
      return;
    }
    default:
      // A message has no default; were one claimed, storing it fails the
      // parse, as a default of no known kind always has.
      return;
  }
}

// The decoder of each wire type: a varint only for the varint kinds, eight
// and four bytes for any type (the declared type only picks what their bits
// stand for), a block as packed, message or plain bytes. A packed field's
// elements take the decoder of their own wire type.
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
  entry_.decode[FIXED64] = entry_.type == FieldDescriptor::TYPE_DOUBLE    ? decode_fixed64_double
                           : entry_.type == FieldDescriptor::TYPE_FIXED64 ? decode_fixed64_unsigned
                                                                          : decode_fixed64_signed;
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

namespace {

// Every table built so far, by the descriptor it was built from. Owning: the
// tables go when the module is unloaded, with the pool their descriptors
// live in.
class table_registry {
 public:
  const type_table* find(const Descriptor* descriptor_) const {
    const auto it = _tables.find(descriptor_);
    return it == _tables.end() ? nullptr : it->second.get();
  }

  // Takes every table of fresh_, or none: on an exception the tables
  // already taken are dropped again (and freed with the rest of fresh_).
  void publish(std::vector<std::unique_ptr<type_table>>& fresh_) {
    size_t taken = 0;
    try {
      for (; taken < fresh_.size(); ++taken)
        _tables.emplace(fresh_[taken]->descriptor, std::unique_ptr<type_table>());
    } catch (...) {
      for (size_t i = 0; i < taken; ++i) _tables.erase(fresh_[i]->descriptor);
      throw;
    }
    for (std::unique_ptr<type_table>& t : fresh_) _tables[t->descriptor] = std::move(t);
    fresh_.clear();
  }

  // The memo key of a field not numbered yet, or 0 once 2^32 - 1 fields have
  // been numbered (a field without a key gets no memo place).
  uint64_t nextMemoKey() {
    if (_fieldsNumbered == UINT32_MAX) return 0;
    return uint64_t{++_fieldsNumbered} << 32;
  }

 private:
  std::unordered_map<const Descriptor*, std::unique_ptr<type_table>> _tables;
  uint32_t _fieldsNumbered = 0;
};

table_registry& registry() {
  static table_registry tables;
  return tables;
}

// Builds the tables a root misses. Types are numbered as they are first
// reached, the root first; a type is built after it is numbered, so
// recursive types point at their own table.
class table_builder {
 public:
  explicit table_builder(table_registry& registry_) : _registry(registry_) {}

  const type_table* build(const Descriptor* root_) {
    const type_table* const root = tableOf(root_);
    for (size_t next = 0; next < _fresh.size(); ++next) fill(*_fresh[next]);
    placeFields();
    markComponents();
    _registry.publish(_fresh);
    return root;
  }

 private:
  const type_table* tableOf(const Descriptor* d_);
  void fill(type_table& t_);
  void placeFields();
  void markComponents();
  void finishComponent(const std::vector<size_t>& members_);

  table_registry& _registry;
  // The tables built for this root, in the order their types were reached.
  std::vector<std::unique_ptr<type_table>> _fresh;
  std::unordered_map<const Descriptor*, size_t> _freshIndex;
  // Tables built before that fields of fresh tables point at.
  std::vector<const type_table*> _reachedOld;
};

const type_table* table_builder::tableOf(const Descriptor* d_) {
  const auto found = _freshIndex.find(d_);
  if (found != _freshIndex.end()) return _fresh[found->second].get();
  if (const type_table* const old = _registry.find(d_)) {
    _reachedOld.push_back(old);
    return old;
  }
  // Owned before it is listed: a list that cannot grow frees it.
  std::unique_ptr<type_table> t(new type_table());
  t->descriptor = d_;
  _fresh.push_back(std::move(t));
  _freshIndex.emplace(d_, _fresh.size() - 1);
  return _fresh.back().get();
}

void table_builder::fill(type_table& t_) {
  const Descriptor* const d = t_.descriptor;
  const int count = d->field_count();
  t_.fields.resize(static_cast<size_t>(count));
  t_.anyDefault = false;
  t_.recursive = false;
  int maxNumber = 0;
  for (int i = 0; i < count; ++i) {
    const FieldDescriptor& f = *d->field(i);
    field_entry& e = t_.fields[static_cast<size_t>(i)];
    e = field_entry();
    e.name = f.name().data();
    e.nameLength = static_cast<uint32_t>(f.name().size());
    e.number = f.number();
    e.index = i;
    e.type = static_cast<uint8_t>(f.type());
    e.travel = travelOf(f.type());
    if (f.label() == FieldDescriptor::LABEL_REQUIRED) e.flags |= field_required;
    if (f.is_packed()) e.flags |= field_packed;
    if (f.is_repeated()) e.flags |= field_repeated;
    if (f.type() == FieldDescriptor::TYPE_MESSAGE) {
      e.flags |= field_message;
      e.nested = tableOf(f.message_type());
    }
    e.entry.parent = e.entry.first_child = e.entry.next_sibling = tarn_message_value_invalid_index;
    e.entry.tag_bytes = e.name;
    e.entry.tag_length = e.nameLength;
    if (e.is(field_required)) e.entry.value_flags = tarn_message_value_set_entry_flag_required;
    setDefault(e, f);
    setDecoders(e);
    if (e.is(field_has_default)) t_.anyDefault = true;
    maxNumber = std::max(maxNumber, e.number);
  }
  // The keys are written once the table's text is complete, so that no
  // pointer into it moves afterwards.
  std::vector<size_t> keyAt(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    const field_entry& e = t_.fields[static_cast<size_t>(i)];
    keyAt[static_cast<size_t>(i)] = t_.traceKeys.size();
    t_.traceKeys.append(",\"").append(e.name, e.nameLength).append("\":");
  }
  for (int i = 0; i < count; ++i) {
    field_entry& e = t_.fields[static_cast<size_t>(i)];
    e.traceKey = t_.traceKeys.data() + keyAt[static_cast<size_t>(i)];
    e.traceKeyLength = e.nameLength + 4;
  }
  if (denseFits(maxNumber, count)) {
    t_.byNumber.assign(static_cast<size_t>(maxNumber) + 1, 0);
    for (int i = 0; i < count; ++i)
      t_.byNumber[static_cast<size_t>(t_.fields[i].number)] = static_cast<uint32_t>(i) + 1;
  } else {
    for (int i = 0; i < count; ++i)
      t_.sorted.emplace_back(t_.fields[i].number, static_cast<uint32_t>(i));
    std::sort(t_.sorted.begin(), t_.sorted.end());
  }
  std::fill(std::begin(t_.byTag), std::end(t_.byTag), nullptr);
  for (const field_entry& e : t_.fields) {
    if (e.number > 0 && e.number < 16) t_.byTag[e.number] = &e;
  }
  t_.fieldArray = t_.fields.data();
  t_.count = static_cast<uint32_t>(count);
  t_.byNumberArray = t_.byNumber.data();
  t_.byNumberCount = static_cast<uint32_t>(t_.byNumber.size());
}

// Hands each new field the lowest memo place that no other field the root
// reaches holds: first the places of the older tables it reaches (their
// fields keep theirs), then those given out here.
void table_builder::placeFields() {
  std::bitset<memo_slot_count> taken;
  for (const type_table* old : _reachedOld) taken |= old->placesReached;
  size_t place = 0;
  for (const std::unique_ptr<type_table>& t : _fresh) {
    for (field_entry& e : t->fields) {
      e.memoKey = _registry.nextMemoKey();
      while (place < memo_slot_count && taken.test(place)) ++place;
      if (e.memoKey == 0 || place == memo_slot_count) {
        e.slot = memo_slot_count;
        continue;
      }
      e.slot = static_cast<uint16_t>(place++);
    }
  }
}

// Marks the new types that lie on a cycle of message fields, that is, the
// types whose messages can hold one of their own type at some depth, and
// gives every new type its memo places. The cycles are the strongly
// connected components of the graph of message fields (Tarjan's algorithm),
// walked with an explicit stack so that a schema of any size and depth takes
// one pass and no deep recursion. Older tables can reach no new one, so every
// cycle through a new type lies among the new ones, and a component is
// finished only after every component it reaches: its members' memo places
// are then known.
void table_builder::markComponents() {
  const size_t count = _fresh.size();
  const size_t unvisited = SIZE_MAX;
  std::vector<size_t> order(count, unvisited);  // when each type was first reached
  std::vector<size_t> low(count, 0);            // the earliest type on the stack it reaches
  std::vector<bool> onStack(count, false);
  std::vector<size_t> stack;
  struct frame {
    size_t type;
    size_t nextField;
  };
  std::vector<frame> frames;
  std::vector<size_t> members;
  size_t reached = 0;
  auto enter = [&](size_t type_) {
    order[type_] = low[type_] = reached++;
    stack.push_back(type_);
    onStack[type_] = true;
    frames.push_back({type_, 0});
  };
  for (size_t start = 0; start < count; ++start) {
    if (order[start] != unvisited) continue;
    enter(start);
    while (!frames.empty()) {
      const size_t v = frames.back().type;
      type_table& table = *_fresh[v];
      if (frames.back().nextField < table.fields.size()) {
        const type_table* const nested = table.fields[frames.back().nextField++].nested;
        if (nested == nullptr) continue;
        const auto fresh = _freshIndex.find(nested->descriptor);
        if (fresh == _freshIndex.end()) continue;  // an older table
        const size_t w = fresh->second;
        if (w == v) table.recursive = true;  // a field of its own type
        if (order[w] == unvisited) {
          enter(w);
        } else if (onStack[w]) {
          low[v] = std::min(low[v], order[w]);
        }
        continue;
      }
      frames.pop_back();
      if (!frames.empty()) {
        const size_t parent = frames.back().type;
        low[parent] = std::min(low[parent], low[v]);
      }
      if (low[v] != order[v]) continue;
      // v roots a component: every member of one with more than one type
      // lies on a cycle through the others.
      size_t first = stack.size();
      do --first;
      while (stack[first] != v);
      members.assign(stack.begin() + static_cast<ptrdiff_t>(first), stack.end());
      for (size_t m : members) onStack[m] = false;
      stack.resize(first);
      finishComponent(members);
    }
  }
}

void table_builder::finishComponent(const std::vector<size_t>& members_) {
  const bool cycle = members_.size() > 1;
  std::bitset<memo_slot_count> places;
  uint32_t highest = 0;  // one past the highest place in places
  for (size_t m : members_) {
    type_table& t = *_fresh[m];
    if (cycle) t.recursive = true;
    for (const field_entry& e : t.fields) {
      if (e.slot < memo_slot_count) {
        places.set(e.slot);
        highest = std::max<uint32_t>(highest, e.slot + 1u);
      }
      // A member's own places count above; the places a member reaches
      // through another member are the same, and a table outside the
      // component is finished.
      if (e.nested != nullptr) {
        places |= e.nested->placesReached;
        highest = std::max<uint32_t>(highest, e.nested->memoPlaces);
      }
    }
  }
  for (size_t m : members_) {
    _fresh[m]->placesReached = places;
    _fresh[m]->memoPlaces = static_cast<uint16_t>(highest);
  }
}

}  // namespace

const type_table* field_tables::of(const Descriptor* root_) {
  table_registry& tables = registry();
  if (const type_table* const known = tables.find(root_)) return known;
  return table_builder(tables).build(root_);
}
