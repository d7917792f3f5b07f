// Renders what the module stored in a value set: an indented tree for people
// and a JSON document for scripts. Both read the entries exactly as the module
// left them; the tool's own schema only adds the names of enum values.
#ifndef TARN_TOOLS_TARNPB_PRINTERS_H
#define TARN_TOOLS_TARNPB_PRINTERS_H

#include <google/protobuf/descriptor.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

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
  // The tool's descriptor of the root type, for enum names; may be null.
  const google::protobuf::Descriptor* pRoot = nullptr;
  // Dotted paths by hash (those a partial parse asked for): they place an
  // entry whose enclosing message the find set did not keep.
  const std::map<uint32_t, std::string>* pKnownPaths = nullptr;
};

// One entry, interpreted.
struct EntryLine {
  uint32_t index;
  int depth;         // 0 for top-level fields
  std::string path;  // dotted names from the top; "?." in front when not known
  bool detached;     // its parent is not stored, yet it is not a top-level field
  std::string name;
  std::string kind;      // int, double, string, message
  std::string value;     // as shown in the tree
  std::string enumName;  // the enum value's name, when the schema knows it
  bool isDefault;        // made from the schema's default: no bytes in the message
  bool required;
  int sameBytesAs;  // index of the previous entry with the same byte range, or -1
};

std::vector<EntryLine> describeEntries(const ParseView& view_);

void printTree(std::FILE* pOut_, const ParseView& view_);
void printJson(std::FILE* pOut_, const ParseView& view_);

}  // namespace tarnpb

#endif
