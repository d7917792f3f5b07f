// Renders what the module stored in a value set: an indented tree for people
// and a JSON document for scripts. Both read the entries exactly as the module
// left them; the tool's own schema only adds the names of enum values.
#ifndef TARN_TOOLS_TARNPB_PRINTERS_H
#define TARN_TOOLS_TARNPB_PRINTERS_H

#include <google/protobuf/descriptor.h>

#include <cstdio>
#include <map>
#include <string>

#include "host/value_set.h"

namespace tarnpb {

// One parse as the printers see it.
struct ParseView {
  std::string title;  // e.g. "stored message"; may be empty
  std::string typeName;
  const std::string* pBody = nullptr;
  const tarn_host::ValueSet* pSet = nullptr;
  int status = 0;
  bool partial = false;
  // The tree shows a value its column cuts once more, whole, below its line.
  bool wide = false;
  // The tool's descriptor of the root type, for enum names; may be null.
  const google::protobuf::Descriptor* pRoot = nullptr;
  // Dotted paths by hash (those a partial parse asked for): they place an
  // entry whose enclosing message the find set did not keep.
  const std::map<uint32_t, std::string>* pKnownPaths = nullptr;
};

class JsonOut;

// Both print as they go, through a buffer handed to the output in pieces:
// output is linear in the entries and memory constant beside the value set.
// The elements of a packed field all carry the whole field's bytes; every
// element after the first names the first instead of repeating them.
void printTree(std::FILE* pOut_, const ParseView& view_);
// The parse as one JSON object, a value of the document out_ is writing.
void printJson(JsonOut& out_, const ParseView& view_);

}  // namespace tarnpb

#endif
