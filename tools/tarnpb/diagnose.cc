#include "diagnose.h"

#include <vector>

#include "modules/message_type/protobuf/wire_format.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

std::string wireTypeName(uint32_t wireType_) {
  switch (wireType_) {
    case VARINT:
      return "0 (varint)";
    case FIXED64:
      return "1 (fixed64)";
    case LENGTH_DELIMITED:
      return "2 (length-delimited)";
    case 3:
      return "3 (group start)";
    case 4:
      return "4 (group end)";
    case FIXED32:
      return "5 (fixed32)";
    default:
      return std::to_string(wireType_) + " (no such wire type)";
  }
}

std::string plural(size_t count_, const char* noun_) {
  return std::to_string(count_) + " " + noun_ + (count_ == 1 ? "" : "s");
}

class Walk {
 public:
  Walk(const std::string& body_, Refusal& out_) : _pBody(body_.data()), _out(out_) {}

  // Walks one message level; true when it found the module's reason to stop.
  bool level(const gp::Descriptor* pType_, const char* p_, const char* pEnd_, uint32_t depth_,
             const std::string& path_) {
    std::vector<uint32_t> occurrences(static_cast<size_t>(pType_->field_count()), 0);
    const std::string where = path_.empty() ? "the body" : path_;
    while (p_ < pEnd_) {
      const char* const pStart = p_;
      uint64_t tag = 0;
      if (!readVarint(p_, pEnd_, tag)) {
        return _refuse(pStart, path_.empty() ? "#0" : path_ + ".#0", 0, pType_,
                       "the tag is cut off by the end of " + where + " (" +
                           plural(static_cast<size_t>(pEnd_ - pStart), "byte") + " left)");
      }
      const uint32_t wireType = static_cast<uint32_t>(tag & wiretype_mask);
      // The lookup takes the low 32 bits of the number as a signed value, as
      // the module's does.
      const int number = static_cast<int32_t>(static_cast<uint32_t>(tag >> wiretype_bits));
      const gp::FieldDescriptor* pField = pType_->FindFieldByNumber(number);
      if (pField == nullptr) return _undeclared(pStart, path_, number, wireType, pType_);

      std::string fieldPath = path_.empty() ? pField->name() : path_ + "." + pField->name();
      if (pField->is_repeated())
        fieldPath += "[" + std::to_string(occurrences[pField->index()]++) + "]";
      const auto refuse = [&](const std::string& reason_) {
        return _refuse(pStart, fieldPath, number, pType_, reason_);
      };
      const auto cut = [&](size_t size_) {
        return refuse("its " + std::to_string(size_) + "-byte value is cut off by the end of " +
                      where + " after " + plural(static_cast<size_t>(pEnd_ - p_), "byte"));
      };
      switch (wireType) {
        case VARINT: {
          // A varint value cut off by the end reads as 0: not a refusal.
          const field_travel travel = travelOf(pField->type());
          if (travel != travel_varint && travel != travel_zigzag) {
            return refuse("wire type 0 (varint) cannot carry a " +
                          std::string(pField->type_name()) + " field");
          }
          uint64_t value;
          if (!readVarint(p_, pEnd_, value)) p_ = pEnd_;
          break;
        }
        case FIXED64:
          if (pEnd_ - p_ < 8) return cut(8);
          p_ += 8;
          break;
        case FIXED32:
          if (pEnd_ - p_ < 4) return cut(4);
          p_ += 4;
          break;
        case LENGTH_DELIMITED: {
          uint64_t length = 0;
          // A cut length reads as 0, as any cut varint does.
          if (!readVarint(p_, pEnd_, length)) p_ = pEnd_;
          const uint64_t left = static_cast<uint64_t>(pEnd_ - p_);
          const bool packed = pField->is_packable() && pField->is_packed();
          if (length > left) {
            return refuse(std::string(packed ? "the packed block's" : "its") + " length " +
                          std::to_string(length) + " runs past the end of " + where + " (" +
                          plural(static_cast<size_t>(left), "byte") + " left)");
          }
          const char* const pPayload = p_;
          p_ += length;
          if (packed) {
            if (!_packedBlockFits(pField, pPayload, static_cast<size_t>(length), refuse))
              return true;
          } else if (pField->type() == gp::FieldDescriptor::TYPE_MESSAGE) {
            if (!mayNest(depth_)) {
              return refuse("nesting deeper than " + std::to_string(max_nesting_depth) +
                            " messages, the module's limit");
            }
            if (level(pField->message_type(), pPayload, p_, depth_ + 1, fieldPath)) return true;
          }
          break;
        }
        default:
          return refuse("wire type " + wireTypeName(wireType) + " is not read by the module");
      }
    }
    return false;
  }

 private:
  // The module's own rule for a packed block, with the reason it fails.
  template <typename Refuse>
  bool _packedBlockFits(const gp::FieldDescriptor* pField_, const char* pBlock_, size_t length_,
                        const Refuse& refuse_) {
    const field_travel element = travelOf(pField_->type());
    if (!travelsPacked(element) || packedBlockWhole(element, pBlock_, length_)) return true;
    if (element == travel_fixed32 || element == travel_fixed64) {
      refuse_("the packed block of " + plural(length_, "byte") + " is not a whole number of " +
              std::to_string(element == travel_fixed32 ? 4 : 8) + "-byte values");
    } else {
      refuse_("the packed block of " + plural(length_, "byte") + " ends inside a varint");
    }
    return false;
  }

  bool _undeclared(const char* pStart_, const std::string& path_, int number_, uint32_t wireType_,
                   const gp::Descriptor* pType_) {
    std::string reason;
    int highest = 0;
    for (int i = 0; i < pType_->field_count(); ++i)
      if (pType_->field(i)->number() > highest) highest = pType_->field(i)->number();
    if (number_ <= 0 || number_ > gp::FieldDescriptor::kMaxNumber) {
      reason = "no field can have this number: the bytes are not a field's tag";
    } else if (wireType_ > FIXED32 || wireType_ == 3 || wireType_ == 4) {
      reason = "not declared, and its wire type " + wireTypeName(wireType_) +
               " is not read by the module";
    } else if (pType_->IsReservedNumber(number_)) {
      reason = "not declared: the schema reserves this number, for a field it removed";
    } else if (pType_->IsExtensionNumber(number_)) {
      reason = "an extension, which the module does not read";
    } else if (number_ > highest) {
      reason = "not declared, and above the type's highest field number (" +
               std::to_string(highest) + "): the body looks written with a newer schema";
    } else {
      reason = "not declared by the type";
    }
    const std::string name = "#" + std::to_string(number_);
    return _refuse(pStart_, path_.empty() ? name : path_ + "." + name, number_, pType_, reason);
  }

  bool _refuse(const char* pStart_, const std::string& path_, int64_t number_,
               const gp::Descriptor* pType_, const std::string& reason_) {
    _out.found = true;
    _out.offset = static_cast<size_t>(pStart_ - _pBody);
    _out.path = path_;
    _out.number = number_;
    _out.typeName = pType_->full_name();
    _out.reason = reason_;
    return true;
  }

  const char* _pBody;
  Refusal& _out;
};

}  // namespace

std::string Refusal::text() const {
  if (!found) return "the tool's own walk finds no fault in the body";
  return "at byte " + std::to_string(offset) + ", " + path + " (field " + std::to_string(number) +
         " of " + typeName + "): " + reason;
}

Refusal diagnose(const gp::Descriptor* root_, const std::string& body_) {
  Refusal refusal;
  Walk walk(body_, refusal);
  walk.level(root_, body_.data(), body_.data() + body_.size(), 0, "");
  return refusal;
}

}  // namespace tarnpb
