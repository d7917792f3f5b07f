// The tool's own view of the schema: libprotobuf's importer over the same
// proto path the module is given, in a pool of the tool's (the module keeps
// its own). It turns text format into wire format and back, names the fields
// behind a path, and checks --find paths before they are hashed.
#ifndef TARN_TOOLS_TARNPB_SCHEMA_H
#define TARN_TOOLS_TARNPB_SCHEMA_H

#include <google/protobuf/descriptor.h>

#include <memory>
#include <string>
#include <vector>

#include "host/dynamic_schema.h"

namespace tarnpb {

class Schema {
 public:
  // Imports file_ through protoPaths_ (virtual directory and disk directory,
  // mapped in order as the module maps its ProtoPath options). Throws
  // ToolError (refused) with the first import error, as file:line:column
  // counted from 1.
  Schema(const std::vector<std::pair<std::string, std::string>>& protoPaths_,
         const std::string& file_);

  // Every message type the file defines, nested ones included, by full name.
  std::vector<std::string> messageTypes() const;
  // Every message type of the file and of the files it imports.
  std::vector<std::string> knownTypes() const;
  // The files of the import closure that were read from below dir_.
  std::vector<std::string> filesFrom(const std::string& dir_) const;
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
  // libprotobuf's reading of a body, written out again in its canonical form
  // (fields by number, maps sorted): two bodies are the same message when
  // their canonical forms are equal. False when libprotobuf cannot read it.
  bool canonical(const google::protobuf::Descriptor* type_, const std::string& wire_,
                 std::string& out_) const;
  // Whether libprotobuf reads rebuilt_ as the message it reads original_ as.
  // The rebuild's canonical form is held against original_'s own bytes first:
  // a body that libprotobuf wrote is already canonical, and then original_
  // needs no reading of its own.
  bool sameMessage(const google::protobuf::Descriptor* type_, const std::string& original_,
                   const std::string& rebuilt_) const;

  // A path close to names_ that does lead to a field, for "did you mean": each
  // name not found replaced by the closest field name of its level. Empty when
  // some name has none close.
  static std::string closestPath(const google::protobuf::Descriptor* root_,
                                 const std::vector<std::string>& names_);

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
