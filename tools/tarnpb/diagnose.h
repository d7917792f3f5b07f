// Why the module refuses a body: the tool runs the module's own parser over it
// with the tool's descriptors, in its own process and into a value set of its
// own, and has the parser's failure path record where and why it stopped.
// The path is read back from the entries the parse stored before it stopped.
// The module's verdict is always shown first: this only explains it, and
// says so when it finds nothing to explain.
#ifndef TARN_TOOLS_TARNPB_DIAGNOSE_H
#define TARN_TOOLS_TARNPB_DIAGNOSE_H

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarnpb {

struct Refusal {
  bool found = false;
  size_t offset = 0;     // the first byte of the refused field's tag, in the body
  std::string path;      // e.g. "file[1].options.#99": repeated fields with their
                         // occurrence, an undeclared field as #number
  int64_t number = 0;    // the field number the tag names
  std::string typeName;  // the message type the field was looked up in
  std::string reason;

  // "at byte 7, inner.#9 (field 9 of tarn.test.Inner): ..." or, when nothing
  // was found, a sentence saying so.
  std::string text() const;
};

Refusal diagnose(const google::protobuf::Descriptor* root_, const std::string& body_);

}  // namespace tarnpb

#endif
