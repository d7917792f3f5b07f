#include "body_check.h"

#include <map>
#include <set>

#include "modules/message_type/protobuf/wire_format.h"
#include "text_util.h"
#include "wire_walk.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

// "an int64", "a uint64": the type names that start with a vowel sound.
std::string withArticle(const char* typeName_) {
  return (typeName_[0] == 'i' || typeName_[0] == 'e' ? "an " : "a ") + std::string(typeName_);
}

// Whether a field of this declared type may arrive with this wire type: its
// own, or a packed block for the types that pack.
bool fits(const gp::FieldDescriptor* pField_, uint32_t wireType_) {
  const field_travel travel = travelOf(pField_->type());
  switch (wireType_) {
    case VARINT:
      return travel == travel_varint || travel == travel_zigzag;
    case FIXED64:
      return travel == travel_fixed64;
    case FIXED32:
      return travel == travel_fixed32;
    case LENGTH_DELIMITED:
      return travel == travel_length || (pField_->is_repeated() && travelsPacked(travel));
    default:
      return travel == travel_group;
  }
}

// The fields from the root down to the one visited.
typedef std::vector<const gp::FieldDescriptor*> FieldStack;

// "a.b.c" for a field stack. Built only for what is reported: the walk itself
// allocates nothing per field.
std::string pathOf(const FieldStack& stack_) {
  std::string path;
  for (const gp::FieldDescriptor* pField : stack_)
    path += (path.empty() ? "" : ".") + pField->name();
  return path;
}

// Each type's fields by number, for the numbers a table can hold: a large
// body looks up millions of fields, and an index costs less than a search.
class FieldTables {
 public:
  const gp::FieldDescriptor* find(const gp::Descriptor* pType_, uint64_t number_) {
    if (pType_ != _pLastType) {
      _pLastType = pType_;
      _pLast = &_tables[pType_];
      if (_pLast->empty()) {
        _pLast->resize(1);
        for (int i = 0; i < pType_->field_count(); ++i) {
          const gp::FieldDescriptor* pField = pType_->field(i);
          if (pField->number() >= max_direct) continue;
          if (_pLast->size() <= static_cast<size_t>(pField->number()))
            _pLast->resize(static_cast<size_t>(pField->number()) + 1);
          (*_pLast)[static_cast<size_t>(pField->number())] = pField;
        }
      }
    }
    if (number_ < _pLast->size()) return (*_pLast)[number_];
    return number_ < max_direct ? nullptr : pType_->FindFieldByNumber(static_cast<int>(number_));
  }

 private:
  static const int max_direct = 256;
  std::map<const gp::Descriptor*, std::vector<const gp::FieldDescriptor*>> _tables;
  const gp::Descriptor* _pLastType = nullptr;
  std::vector<const gp::FieldDescriptor*>* _pLast = nullptr;
};

// The walk over a body with its schema, calling visit_(wire, stack) for every
// field the schema declares (the last of stack), into nested messages that
// arrive as such, as far as the bytes read as fields.
template <typename Visit>
void walk(const gp::Descriptor* pType_, const char* p_, const char* pEnd_, FieldStack& stack_,
          FieldTables& tables_, Visit& visit_) {
  WireField wire;
  while (p_ < pEnd_ && nextField(p_, pEnd_, wire)) {
    const gp::FieldDescriptor* pField = tables_.find(pType_, wire.number);
    if (pField == nullptr) return;
    stack_.push_back(pField);
    visit_(wire, stack_);
    if (wire.wireType == LENGTH_DELIMITED && pField->type() == gp::FieldDescriptor::TYPE_MESSAGE &&
        mayNest(static_cast<unsigned>(stack_.size() - 1)))
      walk(pField->message_type(), wire.pPayload, wire.pPayload + wire.length, stack_, tables_,
           visit_);
    stack_.pop_back();
  }
}

}  // namespace

size_t firstUnreadable(const char* pBody_, size_t length_) {
  const char* p = pBody_;
  const char* const pEnd = p + length_;
  size_t open = 0;  // groups started and not yet ended
  WireField wire;
  while (p < pEnd) {
    const char* const pStart = p;
    if (!nextField(p, pEnd, wire) || wire.number == 0 || (wire.wireType == 4 && open == 0))
      return static_cast<size_t>(pStart - pBody_);
    if (wire.wireType == 3) ++open;
    if (wire.wireType == 4) --open;
  }
  return open == 0 ? std::string::npos : length_;
}

bool looksLikeTextBody(const std::string& body_) {
  if (body_.empty()) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(body_.data());
  for (size_t i = 0; i < body_.size();) {
    const unsigned char c = p[i];
    if ((c >= 0x20 && c < 0x7F) || c == '\n' || c == '\t' || c == '\r') {
      ++i;
    } else if (const size_t n = utf8SequenceLength(p + i, body_.size() - i)) {
      i += n;
    } else {
      return false;
    }
  }
  return true;
}

std::string notProtobufVerdict(const std::string& body_) {
  if (looksLikeTextBody(body_)) {
    return "the input is text, not wire format: if it is protobuf text format, add --text (or "
           "name the file .txtpb)";
  }
  const size_t at = firstUnreadable(body_);
  if (at == std::string::npos) return "";
  return "the bytes are not protobuf wire format: read without a schema, byte " +
         std::to_string(at) + " of " + std::to_string(body_.size()) +
         " starts no field (tarnpb raw shows what reads)";
}

BodyFit checkFit(const gp::Descriptor* root_, const std::string& body_, size_t limit_,
                 size_t budget_) {
  BodyFit fit;
  std::set<std::string> seenGroups;
  const char* const pBody = body_.data();
  auto visit = [&](const WireField& wire_, const FieldStack& stack_) {
    const gp::FieldDescriptor* pField = stack_.back();
    if (wire_.wireType == 3 && pField->type() == gp::FieldDescriptor::TYPE_GROUP &&
        seenGroups.insert(pathOf(stack_)).second)
      fit.groups.push_back(pathOf(stack_));
    if (fits(pField, wire_.wireType)) return;
    if (fit.misfits.size() == limit_) {
      ++fit.moreMisfits;
      return;
    }
    fit.misfits.push_back(
        "at byte " + std::to_string(wire_.pStart - pBody) + ", " + pathOf(stack_) + " (field " +
        std::to_string(pField->number()) + " of " + pField->containing_type()->full_name() +
        ", declared " + pField->type_name() + ") arrives as wire type " +
        wireTypeName(wire_.wireType) + ", which " + withArticle(pField->type_name()) +
        " never has: the body may not be a " + root_->full_name());
  };
  FieldStack stack;
  FieldTables tables;
  if (budget_ == 0 || body_.size() <= budget_) {
    walk(root_, pBody, pBody + body_.size(), stack, tables, visit);
    return fit;
  }
  // The top level one field at a time, each walked whole, until the budget.
  WireField wire;
  for (const char* p = pBody; p < pBody + budget_;) {
    const char* const pField = p;
    if (!nextField(p, pBody + body_.size(), wire)) break;
    walk(root_, pField, p, stack, tables, visit);
  }
  return fit;
}

}  // namespace tarnpb
