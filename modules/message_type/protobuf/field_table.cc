#include "field_table.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <unordered_map>

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
      e.entry.parent = e.entry.first_child = e.entry.next_sibling =
          tarn_message_value_invalid_index;
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
  for (const auto& t : _tables) t->slotsUsed = slot;
  markRecursive();
}

// Marks the types that lie on a cycle of message fields, that is, the types
// whose messages can hold one of their own type at some depth. The cycles are
// the strongly connected components of the graph of message fields (Tarjan's
// algorithm), walked with an explicit stack so that a schema of any size and
// depth takes one pass and no deep recursion.
void field_tables::markRecursive() {
  const size_t count = _tables.size();
  std::unordered_map<const type_table*, size_t> indexOf;
  for (size_t i = 0; i < count; ++i) indexOf.emplace(_tables[i].get(), i);
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
      type_table& table = *_tables[v];
      if (frames.back().nextField < table.fields.size()) {
        const type_table* const nested = table.fields[frames.back().nextField++].nested;
        if (nested == nullptr) continue;
        const size_t w = indexOf.at(nested);
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
      const bool cycle = stack.size() - first > 1;
      for (size_t i = first; i < stack.size(); ++i) {
        onStack[stack[i]] = false;
        if (cycle) _tables[stack[i]]->recursive = true;
      }
      stack.resize(first);
    }
  }
}
