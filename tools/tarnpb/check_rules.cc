#include "check_rules.h"

#include "modules/message_type/protobuf/wire_format.h"

namespace tarnpb {

namespace gp = google::protobuf;
typedef gp::FieldDescriptor FD;

namespace {

field_travel travel(const FD* field_) { return travelOf(field_->type()); }

// The reading of one varint, or of each varint in a packed block.
Reading varintReading(const FD* reader_) {
  switch (reader_->type()) {
    case FD::TYPE_INT32:
      return Reading::sext32;
    case FD::TYPE_SINT32:
    case FD::TYPE_SINT64:
      return Reading::zigzag;
    default:
      return travel(reader_) == travel_varint ? Reading::raw64 : Reading::refused;
  }
}

Reading fixed32Reading(const FD* reader_) {
  if (reader_->type() == FD::TYPE_FLOAT) return Reading::f32;
  return reader_->type() == FD::TYPE_SFIXED32 ? Reading::s32 : Reading::u32;
}

Reading fixed64Reading(const FD* reader_) {
  return reader_->type() == FD::TYPE_DOUBLE ? Reading::f64 : Reading::s64;
}

Wire packedWire(field_travel element_) {
  if (element_ == travel_fixed32) return Wire::packedFixed32;
  if (element_ == travel_fixed64) return Wire::packedFixed64;
  return Wire::packedVarint;
}

bool isPacked(Wire wire_) {
  return wire_ == Wire::packedVarint || wire_ == Wire::packedFixed32 ||
         wire_ == Wire::packedFixed64;
}

// Whether every varint a publisher declaring writer_ sends is a sign-extended
// 32-bit number, so that the two plain varint readings agree on it.
bool writesSignExtended32(const FD* writer_) {
  switch (writer_->type()) {
    case FD::TYPE_INT32:
    case FD::TYPE_ENUM:
    case FD::TYPE_BOOL:
      return true;
    default:
      return false;
  }
}

}  // namespace

Wire writerWire(const FD* field_) {
  const field_travel t = travel(field_);
  if (field_->is_packed()) return packedWire(t);
  switch (t) {
    case travel_varint:
    case travel_zigzag:
      return Wire::varint;
    case travel_fixed32:
      return Wire::fixed32;
    case travel_fixed64:
      return Wire::fixed64;
    case travel_group:
      return Wire::group;
    default:
      return field_->type() == FD::TYPE_MESSAGE ? Wire::message : Wire::delimited;
  }
}

Reading moduleReading(const FD* reader_, Wire wire_) {
  switch (wire_) {
    case Wire::group:
      return Reading::refused;
    case Wire::varint:
      return varintReading(reader_);
    case Wire::fixed32:
      return fixed32Reading(reader_);
    case Wire::fixed64:
      return fixed64Reading(reader_);
    default:
      break;
  }
  // Length-delimited: a field declared packed reads elements of its own
  // type, one declared as a message walks the payload, anything else keeps
  // the payload as one string entry.
  if (reader_->is_packed()) {
    if (!isPacked(wire_) || packedWire(travel(reader_)) != wire_) return Reading::misread;
    if (wire_ == Wire::packedFixed32) return fixed32Reading(reader_);
    if (wire_ == Wire::packedFixed64) return fixed64Reading(reader_);
    return varintReading(reader_);
  }
  if (reader_->type() == FD::TYPE_MESSAGE)
    return wire_ == Wire::message ? Reading::nested : Reading::misread;
  return Reading::text;
}

bool sameValues(Reading a_, Reading b_, const FD* writer_) {
  if (a_ == b_) return a_ != Reading::refused && a_ != Reading::misread;
  const bool plainVarints = (a_ == Reading::raw64 && b_ == Reading::sext32) ||
                            (a_ == Reading::sext32 && b_ == Reading::raw64);
  return plainVarints && writesSignExtended32(writer_);
}

std::string traceForm(const FD* reader_, Wire wire_) {
  switch (wire_) {
    case Wire::group:
      return "nothing";
    case Wire::varint:
      return "unsigned";
    case Wire::fixed32:
      return reader_->type() == FD::TYPE_FLOAT ? "float" : "signed";
    case Wire::fixed64:
      return reader_->type() == FD::TYPE_DOUBLE ? "double" : "signed";
    default:
      break;
  }
  if (reader_->is_packed()) return std::string("packed ") + reader_->type_name();
  if (reader_->type() == FD::TYPE_MESSAGE) return "nested";
  return "quoted";
}

const char* readingText(Reading reading_) {
  switch (reading_) {
    case Reading::refused:
      return "refused";
    case Reading::raw64:
      return "all 64 bits of the varint as a signed integer";
    case Reading::sext32:
      return "the varint's low 32 bits, sign-extended";
    case Reading::zigzag:
      return "the varint zigzag-decoded";
    case Reading::u32:
      return "four bytes as an unsigned integer";
    case Reading::s32:
      return "four bytes as a signed integer";
    case Reading::f32:
      return "four bytes as a float";
    case Reading::s64:
      return "eight bytes as a signed integer";
    case Reading::f64:
      return "eight bytes as a double";
    case Reading::text:
      return "one string entry holding the payload";
    case Reading::nested:
      return "a message entry with entries below it";
    case Reading::misread:
      return "bytes written as something else (wrong values, or refused)";
  }
  return "";
}

FieldVerdict judgeField(const FD* old_, const FD* new_) {
  FieldVerdict v;
  const Wire oldWire = writerWire(old_), newWire = writerWire(new_);
  v.oldBodiesAsBefore = moduleReading(old_, oldWire);
  v.oldBodiesNow = moduleReading(new_, oldWire);
  v.newBodiesAsMeant = moduleReading(new_, newWire);
  v.newBodiesNow = moduleReading(old_, newWire);
  // A group is refused under every schema: there is nothing to keep as before.
  v.oldBodiesOnNewServers =
      oldWire == Wire::group || sameValues(v.oldBodiesAsBefore, v.oldBodiesNow, old_);
  v.newBodiesOnOldServers = sameValues(v.newBodiesAsMeant, v.newBodiesNow, new_);
  v.traceChanges = traceForm(old_, oldWire) != traceForm(new_, oldWire) ||
                   traceForm(old_, newWire) != traceForm(new_, newWire) ||
                   traceForm(old_, oldWire) != traceForm(new_, newWire) ||
                   !v.oldBodiesOnNewServers || !v.newBodiesOnOldServers;
  return v;
}

std::string describeField(const FD* field_) {
  std::string text;
  if (field_->is_repeated()) text += "repeated ";
  if (field_->is_required()) text += "required ";
  if (field_->type() == FD::TYPE_MESSAGE || field_->type() == FD::TYPE_GROUP) {
    text += field_->message_type()->name();
    if (field_->type() == FD::TYPE_GROUP) text = "group " + text;
  } else if (field_->type() == FD::TYPE_ENUM) {
    text += field_->enum_type()->name();
  } else {
    text += field_->type_name();
  }
  text += " " + field_->name() + " = " + std::to_string(field_->number());
  if (field_->is_packed()) text += " [packed]";
  return text;
}

}  // namespace tarnpb
