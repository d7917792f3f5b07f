// The contenders the module is measured against: libprotobuf's reflection
// path (a .proto imported at run time, DynamicMessage: host/dynamic_schema.h)
// and a protozero walk
// that visits every field with no value storage at all, the practical floor
// for reading the wire format.
#ifndef TARN_BENCH_PEERS_H
#define TARN_BENCH_PEERS_H

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarn_bench {

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
