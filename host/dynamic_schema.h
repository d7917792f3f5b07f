// A .proto file as libprotobuf itself reads it: imported at run time with
// libprotobuf's importer into a descriptor pool of its own (never the
// module's), with dynamic messages of its types. The tests hold the module's
// work against it, the benchmark measures libprotobuf's reflection with it,
// and tarnpb turns text format into wire format and back with it.
//
// A static library of its own (tarn_dynamic_schema): a server's host needs no
// libprotobuf, so the stand-in host does not link it.
#ifndef TARN_HOST_DYNAMIC_SCHEMA_H
#define TARN_HOST_DYNAMIC_SCHEMA_H

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tarn_host {

class DynamicSchema {
 public:
  // Imports file_ with each of protoDirs_ mapped as the root of the virtual
  // tree, in order. A failed import leaves file() null and says why in
  // error().
  DynamicSchema(const std::vector<std::string>& protoDirs_, const std::string& file_);
  // The same with each search path given as a (virtual directory, disk
  // directory) pair, mapped in order as the module maps ProtoPath options.
  DynamicSchema(const std::vector<std::pair<std::string, std::string>>& protoPaths_,
                const std::string& file_);
  ~DynamicSchema();
  DynamicSchema(const DynamicSchema&) = delete;
  DynamicSchema& operator=(const DynamicSchema&) = delete;

  // The imported file, or null when the import failed.
  const google::protobuf::FileDescriptor* file() const { return _pFile; }
  // The importer's first error as "file:line:column: message" (1-based; no
  // position when it gave none), or "" when it reported none.
  const std::string& error() const;

  // A message type of the pool by full name, or null.
  const google::protobuf::Descriptor* type(const std::string& fullName_) const;
  // A new, empty message of type_, a type of this pool. Messages live no
  // longer than the schema.
  std::unique_ptr<google::protobuf::Message> newMessage(
      const google::protobuf::Descriptor* type_) const;
  // The prototype of type_, for messages made elsewhere (on an arena, say).
  const google::protobuf::Message* prototype(const google::protobuf::Descriptor* type_) const;
  // The disk file the search paths give a virtual file name, or "" when no
  // mapped directory holds it.
  std::string diskFile(const std::string& virtualFile_) const;

 private:
  class Errors;
  std::unique_ptr<Errors> _errors;
  mutable google::protobuf::compiler::DiskSourceTree _tree;
  std::unique_ptr<google::protobuf::compiler::Importer> _importer;
  const google::protobuf::FileDescriptor* _pFile = nullptr;
  mutable google::protobuf::DynamicMessageFactory _factory;
};

}  // namespace tarn_host

#endif
