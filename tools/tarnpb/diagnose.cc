#include "diagnose.h"

#include <memory>
#include <vector>

#include "host/value_set.h"
#include "modules/message_type/protobuf/tarn_protobuf_v2_parser.h"
#include "wire_walk.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

std::string plural(size_t count_, const char* noun_) {
  return std::to_string(count_) + " " + noun_ + (count_ == 1 ? "" : "s");
}

// The reason a declared schema gives for a number the type does not have.
std::string undeclared(const gp::Descriptor* pType_, int number_, uint32_t wireType_) {
  int highest = 0;
  for (int i = 0; i < pType_->field_count(); ++i)
    if (pType_->field(i)->number() > highest) highest = pType_->field(i)->number();
  if (number_ <= 0 || number_ > gp::FieldDescriptor::kMaxNumber)
    return "no field can have this number: the bytes are not a field's tag";
  if (wireType_ > FIXED32 || wireType_ == 3 || wireType_ == 4)
    return "not declared, and its wire type " + wireTypeName(wireType_) +
           " is not read by the module";
  if (pType_->IsReservedNumber(number_))
    return "not declared: the schema reserves this number, for a field it removed";
  if (pType_->IsExtensionNumber(number_)) return "an extension, which the module does not read";
  if (number_ > highest) {
    return "not declared, and above the type's highest field number (" + std::to_string(highest) +
           "): the body looks written with a newer schema";
  }
  return "not declared by the type";
}

// The reason for the refusal the parser recorded. where_ names the level
// that stopped.
std::string reason(const parse_refusal& r_, const std::string& where_) {
  const auto bytesLeft = [&](const char* pFrom_) {
    return plural(static_cast<size_t>(r_.pLevelEnd - pFrom_), "byte");
  };
  const gp::Descriptor* const pType = r_.table->descriptor;
  switch (r_.reason) {
    case refusal_tag_cut:
      return "the tag is cut off by the end of " + where_ + " (" + bytesLeft(r_.pTag) + " left)";
    case refusal_unknown_field:
      return undeclared(pType, r_.tag.number, r_.tag.wireType);
    case refusal_wire_type:
      if (r_.tag.wireType == VARINT) {
        return "wire type 0 (varint) cannot carry a " +
               std::string(pType->field(r_.field->index)->type_name()) + " field";
      }
      return "wire type " + wireTypeName(r_.tag.wireType) + " is not read by the module";
    case refusal_value_cut:
      return "its " + std::to_string(r_.length) + "-byte value is cut off by the end of " + where_ +
             " after " + bytesLeft(r_.pValue);
    case refusal_length:
      return std::string(r_.field->is(field_packed) ? "the packed block's" : "its") + " length " +
             std::to_string(r_.length) + " runs past the end of " + where_ + " (" +
             bytesLeft(r_.pValue) + " left)";
    case refusal_packed_block: {
      const size_t length = static_cast<size_t>(r_.length);
      if (r_.field->travel == travel_fixed32 || r_.field->travel == travel_fixed64) {
        return "the packed block of " + plural(length, "byte") + " is not a whole number of " +
               std::to_string(r_.field->travel == travel_fixed32 ? 4 : 8) + "-byte values";
      }
      return "the packed block of " + plural(length, "byte") + " ends inside a varint";
    }
    case refusal_too_deep:
      return "nesting deeper than " + std::to_string(max_nesting_depth) +
             " messages, the module's limit";
    default:
      return "its declared default is of no kind an entry can hold";
  }
}

// A field's place among the fields the parse stored under parent_ before
// pTag_: its name, with the occurrence for a repeated field (a packed block
// counts once, though each element has an entry).
std::string step(const tarn_host::ValueSet& set_, uint32_t parent_, const field_entry& field_,
                 const char* pTag_) {
  std::string name(field_.name, field_.nameLength);
  if (!field_.is(field_repeated)) return name;
  size_t occurrence = 0;
  const char* pCounted = nullptr;
  for (uint32_t i = 0; i < set_.size(); ++i) {
    const tarn_message_value_set_entry& e = set_[i];
    if (e.parent != parent_ || e.tag_bytes != field_.name || e.raw_bytes == pCounted ||
        e.raw_bytes == nullptr || e.raw_bytes >= pTag_)
      continue;
    pCounted = e.raw_bytes;
    ++occurrence;
  }
  return name + "[" + std::to_string(occurrence) + "]";
}

}  // namespace

std::string Refusal::text() const {
  if (!found) return "the module's parser, run by the tool, accepts the body";
  return "at byte " + std::to_string(offset) + ", " + path + " (field " + std::to_string(number) +
         " of " + typeName + "): " + reason;
}

Refusal diagnose(const gp::Descriptor* root_, const std::string& body_) {
  Refusal out;
  const type_table* const pRoot = field_tables::of(root_);
  tarn_host::ValueSet set;
  std::unique_ptr<parse_refusal> pRefusal(new parse_refusal());
  tarn_protobuf_v2_parser parser(pRoot, set.handle(), nullptr);
  parser.recordRefusal(pRefusal.get());
  if (parser.parse(body_.data(), body_.size()) == TARN_SUCCESS) return out;
  const parse_refusal& r = *pRefusal;

  // The enclosing message fields are the stored entries from the refused
  // level's parent up; each names its field by the table's own name.
  std::vector<uint32_t> chain;
  for (uint32_t i = r.parentEntry; i < set.size() && chain.size() <= max_nesting_depth;
       i = set[i].parent)
    chain.insert(chain.begin(), i);
  std::string where;
  uint32_t parent = tarn_message_value_invalid_index;
  const type_table* pTable = pRoot;
  for (const uint32_t index : chain) {
    const tarn_message_value_set_entry& e = set[index];
    const field_entry* pField = nullptr;
    for (const field_entry& f : pTable->fields)
      if (f.name == e.tag_bytes) pField = &f;
    if (pField == nullptr || pField->nested == nullptr) break;
    where += (where.empty() ? "" : ".") + step(set, parent, *pField, e.raw_bytes);
    parent = index;
    pTable = pField->nested;
  }
  const std::string leaf =
      r.field != nullptr ? step(set, parent, *r.field, r.pTag) : "#" + std::to_string(r.tag.number);
  out.found = true;
  out.offset = static_cast<size_t>(r.pTag - body_.data());
  out.path = where.empty() ? leaf : where + "." + leaf;
  out.number = r.tag.number;
  out.typeName = r.table->descriptor->full_name();
  out.reason = reason(r, where.empty() ? "the body" : where);
  return out;
}

}  // namespace tarnpb
