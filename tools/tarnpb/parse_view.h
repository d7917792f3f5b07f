// One parse as the tool's views see it: the body, the value set the module
// filled from it and what the printers need beside them.
#ifndef TARN_TOOLS_TARNPB_PARSE_VIEW_H
#define TARN_TOOLS_TARNPB_PARSE_VIEW_H

#include <google/protobuf/descriptor.h>

#include <map>
#include <string>

#include "host/value_set.h"

namespace tarnpb {

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

}  // namespace tarnpb

#endif
