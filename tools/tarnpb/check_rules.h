// The module's reading rules, as check needs them to judge one field whose
// declaration changed: how a publisher writes the field under its version of
// the schema, how a server running the module reads those bytes under its
// version, and how the module's trace renders them. Nothing here reads a body:
// the rules are applied to the two declarations, so that a verdict holds for
// every value a publisher can send.
#ifndef TARN_TOOLS_TARNPB_CHECK_RULES_H
#define TARN_TOOLS_TARNPB_CHECK_RULES_H

#include <google/protobuf/descriptor.h>

#include <string>

namespace tarnpb {

// What arrives on the wire for one value of a field, as libprotobuf writes it.
enum class Wire {
  varint,
  fixed32,
  fixed64,
  delimited,  // a string, bytes or message payload
  message,    // a delimited payload that holds a message
  packedVarint,
  packedFixed32,
  packedFixed64,
  group,  // start and end tags: the module refuses the whole body
};

// What a server running the module makes of one arrival.
enum class Reading {
  refused,  // the parse fails
  raw64,    // all 64 bits of the varint, as a signed integer
  sext32,   // the low 32 bits of the varint, sign-extended
  zigzag,   // the varint zigzag-decoded
  u32,      // four bytes, unsigned
  s32,      // four bytes, signed
  f32,      // four bytes, a float widened to double
  s64,      // eight bytes, signed
  f64,      // eight bytes, a double
  text,     // one string entry holding the payload as it stands
  nested,   // a message entry with the entries of the payload below it
  misread,  // elements or fields read from bytes written as something else
};

Wire writerWire(const google::protobuf::FieldDescriptor* field_);
Reading moduleReading(const google::protobuf::FieldDescriptor* reader_, Wire wire_);

// Whether two readings show a subscriber the same value for every value a
// publisher declaring writer_ can send (int32 written and read as all 64 bits
// or as the low 32 bits sign-extended gives one number either way).
bool sameValues(Reading a_, Reading b_, const google::protobuf::FieldDescriptor* writer_);

// How the trace renders one arrival: by wire type for single values, by the
// reader's declared type inside a packed block.
std::string traceForm(const google::protobuf::FieldDescriptor* reader_, Wire wire_);

// "all 64 bits as a signed integer", for the reports.
const char* readingText(Reading reading_);

// What a change of declaration does to the bodies of each side.
struct FieldVerdict {
  // Bodies of publishers still on the old declaration, read by servers that
  // switched: read as before?
  bool oldBodiesOnNewServers = true;
  Reading oldBodiesAsBefore = Reading::refused, oldBodiesNow = Reading::refused;
  // Bodies of publishers on the new declaration, read by servers that have not
  // switched: read as the new servers read them?
  bool newBodiesOnOldServers = true;
  Reading newBodiesAsMeant = Reading::refused, newBodiesNow = Reading::refused;
  bool traceChanges = false;
};

FieldVerdict judgeField(const google::protobuf::FieldDescriptor* old_,
                        const google::protobuf::FieldDescriptor* new_);

// "repeated int32 bids = 4 [packed]", a declaration as a report shows it.
std::string describeField(const google::protobuf::FieldDescriptor* field_);

}  // namespace tarnpb

#endif
