#include "merge_check.h"

#include <map>
#include <set>

#include "modules/message_type/protobuf/wire_format.h"
#include "wire_walk.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

// Keys of a map shown in a warning before the rest are counted.
const size_t shown_keys = 5;
// A merged message this many times its inputs' size is worth a warning.
const size_t size_factor = 2;

struct Occurrence {
  const gp::FieldDescriptor* pField;
  WireField wire;
};

// The fields of one level in order; stops at a field the schema lacks or
// bytes that hold no field (the module refuses such bodies before merging).
std::vector<Occurrence> scanLevel(const gp::Descriptor* pType_, const char* p_, const char* pEnd_) {
  std::vector<Occurrence> out;
  WireField wire;
  while (p_ < pEnd_ && nextField(p_, pEnd_, wire)) {
    const gp::FieldDescriptor* pField = pType_->FindFieldByNumber(static_cast<int>(wire.number));
    if (pField == nullptr) break;
    out.push_back({pField, wire});
  }
  return out;
}

std::string plural(size_t count_, const char* one_, const char* many_) {
  return std::to_string(count_) + " " + (count_ == 1 ? one_ : many_);
}

// Items of a repeated field: one per occurrence, or the elements of a packed
// block.
size_t itemCount(const gp::FieldDescriptor* pField_, const std::vector<const WireField*>& wires_) {
  size_t count = 0;
  const field_travel travel = travelOf(pField_->type());
  for (const WireField* pWire : wires_) {
    if (pWire->wireType != LENGTH_DELIMITED || !travelsPacked(travel)) {
      ++count;
    } else if (travel == travel_fixed32 || travel == travel_fixed64) {
      count += pWire->length / (travel == travel_fixed32 ? 4 : 8);
    } else {
      for (size_t i = 0; i < pWire->length; ++i)
        count += (static_cast<unsigned char>(pWire->pPayload[i]) & 0x80) == 0 ? 1 : 0;
    }
  }
  return count;
}

// A map entry's key as the schema declares it, or "?" when it has none.
std::string keyText(const gp::FieldDescriptor* pMap_, const WireField& entry_) {
  const gp::FieldDescriptor* pKey = pMap_->message_type()->map_key();
  for (const auto& o :
       scanLevel(pMap_->message_type(), entry_.pPayload, entry_.pPayload + entry_.length)) {
    if (o.pField != pKey) continue;
    switch (pKey->type()) {
      case gp::FieldDescriptor::TYPE_STRING:
        return "\"" + std::string(o.wire.pPayload, o.wire.length) + "\"";
      case gp::FieldDescriptor::TYPE_SINT32:
      case gp::FieldDescriptor::TYPE_SINT64:
        return std::to_string(zigzagDecode(o.wire.value));
      case gp::FieldDescriptor::TYPE_INT32:
      case gp::FieldDescriptor::TYPE_SFIXED32:
        return std::to_string(static_cast<int32_t>(o.wire.value));
      case gp::FieldDescriptor::TYPE_INT64:
      case gp::FieldDescriptor::TYPE_SFIXED64:
        return std::to_string(static_cast<int64_t>(o.wire.value));
      case gp::FieldDescriptor::TYPE_BOOL:
        return o.wire.value ? "true" : "false";
      default:
        return std::to_string(o.wire.value);
    }
  }
  // An absent key is the type's zero.
  return pKey->type() == gp::FieldDescriptor::TYPE_STRING ? "\"\"" : "0";
}

class Checker {
 public:
  explicit Checker(std::vector<MergeWarning>& out_) : _out(out_) {}

  void level(const gp::Descriptor* pType_, const WireField* pStored_, const WireField* pUpdate_,
             const std::string& path_, unsigned depth_) {
    const auto stored =
        scanLevel(pType_, pStored_->pPayload, pStored_->pPayload + pStored_->length);
    const auto update =
        scanLevel(pType_, pUpdate_->pPayload, pUpdate_->pPayload + pUpdate_->length);
    std::map<const gp::FieldDescriptor*, std::vector<const WireField*>> storedBy, updateBy;
    for (const auto& o : stored) storedBy[o.pField].push_back(&o.wire);
    for (const auto& o : update) updateBy[o.pField].push_back(&o.wire);
    _oneofs(pType_, stored, update, updateBy, path_);
    std::set<const gp::FieldDescriptor*> done;
    for (const auto& o : update) {
      if (!done.insert(o.pField).second) continue;
      const auto it = storedBy.find(o.pField);
      if (it == storedBy.end()) continue;
      _field(o.pField, it->second, updateBy[o.pField], path_ + o.pField->name(), depth_);
    }
  }

 private:
  // what_ names the path in the warning's line: "oneof", "map", "repeated
  // field", "message field".
  void _warn(const std::string& kind_, const std::string& what_, const std::string& path_,
             const std::string& text_) {
    if (_seen.insert(kind_ + " " + path_).second)
      _out.push_back({kind_, path_, text_, what_ + " " + path_ + ": " + text_});
  }

  // Readers keep the last member of a oneof they meet. The merged level holds
  // the update's fields, then the stored fields the update lacks.
  void _oneofs(const gp::Descriptor* pType_, const std::vector<Occurrence>& stored_,
               const std::vector<Occurrence>& update_,
               const std::map<const gp::FieldDescriptor*, std::vector<const WireField*>>& updateBy_,
               const std::string& path_) {
    for (int i = 0; i < pType_->oneof_decl_count(); ++i) {
      const gp::OneofDescriptor* pOneof = pType_->oneof_decl(i);
      if (pOneof->field_count() < 2) continue;  // proto3 optional, or a oneof of one
      const gp::FieldDescriptor *pSet = nullptr, *pHeld = nullptr, *pSeen = nullptr;
      for (const auto& o : update_)
        if (o.pField->containing_oneof() == pOneof) pSet = pSeen = o.pField;
      for (const auto& o : stored_) {
        if (o.pField->containing_oneof() != pOneof) continue;
        pHeld = o.pField;
        if (updateBy_.count(o.pField) == 0) pSeen = o.pField;
      }
      if (pSet == nullptr || pHeld == nullptr || pSeen == pSet) continue;
      _warn("oneof", "oneof", path_ + pOneof->name(),
            "the update sets " + pSet->name() + " while the stored message holds " + pHeld->name() +
                "; the merged message carries both, the update's first, so " +
                "protobuf readers see " + pSeen->name() + " and the update's " + pSet->name() +
                " is lost (protobuf's merge would keep " + pSet->name() + " alone)");
    }
  }

  void _field(const gp::FieldDescriptor* pField_, const std::vector<const WireField*>& stored_,
              const std::vector<const WireField*>& update_, const std::string& path_,
              unsigned depth_) {
    const bool message = pField_->type() == gp::FieldDescriptor::TYPE_MESSAGE;
    if (pField_->is_map()) {
      _map(pField_, stored_, update_, path_);
    } else if (pField_->is_repeated()) {
      const size_t storedItems = itemCount(pField_, stored_);
      const size_t updateItems = itemCount(pField_, update_);
      _warn("repeated", "repeated field", path_,
            "the update's " + plural(updateItems, "item replaces", "items replace") +
                " the stored " + std::to_string(storedItems) +
                " whole (protobuf's merge would append them, giving " +
                std::to_string(storedItems + updateItems) + ")");
    }
    if (!message) return;
    const WireField& storedFirst = *stored_.front();
    if (storedFirst.wireType != LENGTH_DELIMITED) return;
    if (pField_->is_repeated() && storedFirst.length != 0) _items(pField_, update_, path_);
    const WireField& updateFirst = *update_.front();
    if (updateFirst.wireType != LENGTH_DELIMITED) return;
    if (!pField_->is_repeated() && updateFirst.length == 0 && storedFirst.length != 0) {
      _warn("empty", "message field", path_,
            "the update's empty message replaces the stored one whole (protobuf's merge would "
            "leave the stored one as it is)");
    }
    if (updateFirst.length != 0 && storedFirst.length != 0 && mayNest(depth_)) {
      level(pField_->message_type(), &storedFirst, &updateFirst, path_ + ".", depth_ + 1);
    }
  }

  // Update items merged against one stored item. A map entry whose key and
  // scalar value are both written replaces what it meets; one that leaves its
  // value out (a proto3 zero) or holds a message value does not.
  void _items(const gp::FieldDescriptor* pField_, const std::vector<const WireField*>& update_,
              const std::string& path_) {
    size_t merged = 0;
    for (const WireField* pItem : update_) {
      if (pItem->length == 0) continue;
      if (!pField_->is_map()) {
        ++merged;
        continue;
      }
      const gp::FieldDescriptor* pValue = pField_->message_type()->map_value();
      bool hasValue = false;
      for (const auto& o :
           scanLevel(pField_->message_type(), pItem->pPayload, pItem->pPayload + pItem->length))
        hasValue = hasValue || o.pField == pValue;
      if (!hasValue || pValue->type() == gp::FieldDescriptor::TYPE_MESSAGE) ++merged;
    }
    if (merged == 0) return;
    const bool map = pField_->is_map();
    _warn("items", map ? "map" : "repeated field", path_,
          "each of the update's " +
              plural(merged, map ? "entry" : "item", map ? "entries" : "items") +
              (map ? " with a message value or none" : "") + " is merged against one stored " +
              (map ? "entry" : "item") + " (the first, with this tool's host), so every one " +
              "receives the fields of that " + (map ? "entry's value" : "item") + " it lacks");
  }

  void _map(const gp::FieldDescriptor* pField_, const std::vector<const WireField*>& stored_,
            const std::vector<const WireField*>& update_, const std::string& path_) {
    std::set<std::string> kept;
    for (const WireField* pEntry : update_) kept.insert(keyText(pField_, *pEntry));
    std::vector<std::string> gone;
    std::set<std::string> listed;
    for (const WireField* pEntry : stored_) {
      const std::string key = keyText(pField_, *pEntry);
      if (kept.count(key) == 0 && listed.insert(key).second) gone.push_back(key);
    }
    if (gone.empty()) return;
    std::string keys;
    for (size_t i = 0; i < gone.size() && i < shown_keys; ++i)
      keys += (i == 0 ? "" : i + 1 == gone.size() ? " and " : ", ") + gone[i];
    if (gone.size() > shown_keys)
      keys += " and " + std::to_string(gone.size() - shown_keys) + " more";
    _warn("map", "map", path_,
          "the update's " + plural(update_.size(), "entry replaces", "entries replace") +
              " the stored map whole, so stored " + (gone.size() == 1 ? "key " : "keys ") + keys +
              (gone.size() == 1 ? " is" : " are") +
              " gone (protobuf's merge would keep them and overwrite only the keys the update "
              "carries)");
  }

  std::vector<MergeWarning>& _out;
  std::set<std::string> _seen;
};

}  // namespace

std::vector<MergeWarning> mergeDepartures(const gp::Descriptor* root_, const std::string& stored_,
                                          const std::string& update_) {
  std::vector<MergeWarning> out;
  WireField stored, update;
  stored.pPayload = stored_.data();
  stored.length = stored_.size();
  update.pPayload = update_.data();
  update.length = update_.size();
  Checker(out).level(root_, &stored, &update, "", 0);
  return out;
}

bool sizeDeparture(size_t stored_, size_t update_, size_t merged_, MergeWarning& warning_) {
  const size_t inputs = stored_ + update_;
  if (inputs == 0 || merged_ <= size_factor * inputs) return false;
  warning_.kind = "size";
  warning_.path = "";
  warning_.text = warning_.line = "the merged message is " + std::to_string(merged_) + " bytes, " +
                                  std::to_string(merged_ / inputs) +
                                  " times the stored and update messages " + "together (" +
                                  std::to_string(inputs) + " bytes): update items merged " +
                                  "against one stored item each carry a copy of its fields";
  return true;
}

}  // namespace tarnpb
