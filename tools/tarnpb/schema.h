// The tool's own view of the schema: libprotobuf's reading of it
// (host/dynamic_schema.h) over the same proto path the module is given, in a
// pool of the tool's (the module keeps its own). It turns text format into wire format and back,
// names the fields behind a path, and checks --find paths before they are hashed.
#ifndef TARN_TOOLS_TARNPB_SCHEMA_H
#define TARN_TOOLS_TARNPB_SCHEMA_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "host/dynamic_schema.h"

namespace tarnpb {

class Schema {
 public:
  // Imports file_ through protoPaths_ (each mapped as the root of the virtual
  // tree, in order). Throws ToolError (refused) with the first import error.
  Schema(const std::vector<std::string>& protoPaths_, const std::string& file_);

  // Every message type the file defines, nested ones included, by full name.
  std::vector<std::string> messageTypes() const;
  // The type by full name, or a ToolError (refused) listing the file's types.
  const google::protobuf::Descriptor* type(const std::string& fullName_) const;
  // The type the user means: fullName_, or the file's only top-level message
  // when fullName_ is empty (a usage error when there are several).
  const google::protobuf::Descriptor* rootType(const std::string& fullName_) const;

  // Text format to wire format. Throws ToolError (refused) naming the line and
  // column of the first error, with where_ (a file name) in front.
  std::string encode(const google::protobuf::Descriptor* type_, const std::string& text_,
                     const std::string& where_) const;
  // Wire format to text format. Returns false when libprotobuf cannot read it.
  bool decode(const google::protobuf::Descriptor* type_, const std::string& wire_,
              std::string& text_) const;
  // Whether libprotobuf reads both bodies as the same message.
  bool sameMessage(const google::protobuf::Descriptor* type_, const std::string& a_,
                   const std::string& b_) const;

  // The field reached by following names_ from root_, or null.
  static const google::protobuf::FieldDescriptor* fieldAt(const google::protobuf::Descriptor* root_,
                                                          const std::vector<std::string>& names_);

 private:
  tarn_host::DynamicSchema _schema;
  const google::protobuf::FileDescriptor* _pFile;
};

// "a.b.c" split at the dots; a usage error for an empty part.
std::vector<std::string> splitPath(const std::string& path_);

}  // namespace tarnpb

#endif
