// The contenders the module is measured against: libprotobuf's reflection
// path (a .proto imported at run time, DynamicMessage) and a protozero walk
// that visits every field with no value storage at all, the practical floor
// for reading the wire format.
#ifndef TARN_BENCH_PEERS_H
#define TARN_BENCH_PEERS_H

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/dynamic_message.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarn_bench {

// One .proto imported at run time, as the module itself loads it.
class DynamicSchema {
 public:
  DynamicSchema(const std::string& dir_, const std::string& file_);
  // The type, or null (and a line on stderr) when it is not in the file.
  const google::protobuf::Descriptor* find(const std::string& typeName_) const;
  std::unique_ptr<google::protobuf::Message> newMessage(const google::protobuf::Descriptor* pType_);

 private:
  class Errors : public google::protobuf::compiler::MultiFileErrorCollector {
   public:
    void AddError(const std::string& file_, int line_, int column_,
                  const std::string& message_) override;
  };
  google::protobuf::compiler::DiskSourceTree _tree;
  Errors _errors;
  google::protobuf::compiler::Importer _importer;
  google::protobuf::DynamicMessageFactory _factory;
};

// A schema-less protozero pull walk. It needs to know only which field
// numbers hold nested messages or packed arrays; that table is taken from the
// descriptors once, so the walk itself looks nothing up but an array slot.
class WireWalker {
 public:
  explicit WireWalker(const google::protobuf::Descriptor* pRoot_);
  // Visits every field and element; the sum keeps the compiler from skipping work.
  uint64_t walk(const char* pData_, size_t size_) const;
  // The fields and packed elements the walk visits, at every level.
  uint64_t fields(const char* pData_, size_t size_) const;

 private:
  enum Kind : uint8_t { plain, nested, packedVarint, packedZigzag, packedFixed32, packedFixed64 };
  struct Field {
    Kind kind = plain;
    uint32_t type = 0;  // index in _types of a nested message
  };
  using Type = std::vector<Field>;  // by field number

  // Sums the values, or with Count, counts what it visits.
  template <bool Count>
  uint64_t _walk(const char* pData_, size_t size_, const Type& type_) const;

  std::vector<Type> _types;
};

}  // namespace tarn_bench

#endif
