// The tracer's peer: a protozero walk that writes the module's trace text for
// well-formed bodies, numbers formatted with std::to_chars. Keys are written
// as one precomputed piece ("name":) and the per-field facts come from a
// table indexed by field number, so it shows what the text costs when nothing
// else is paid for. The benchmark checks at start-up that it writes the
// module's text byte for byte.
#ifndef TARN_BENCH_TRACE_PEER_H
#define TARN_BENCH_TRACE_PEER_H

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn_bench {

class TraceWalker {
 public:
  explicit TraceWalker(const google::protobuf::Descriptor* pRoot_);
  // Writes the text to [pOut_, pOut_ + capacity_) and returns its length, or
  // -1 when it does not fit.
  long trace(const char* pData_, size_t size_, char* pOut_, size_t capacity_) const;

  struct Out;  // the bounded write cursor

 private:
  struct Field {
    bool known = false;
    bool packed = false;
    google::protobuf::FieldDescriptor::Type type = google::protobuf::FieldDescriptor::TYPE_INT32;
    uint32_t nested = 0;  // index in _types of a message field's type
    std::string key;      // "name":
  };
  using Type = std::vector<Field>;  // by field number

  bool _level(const char* pData_, size_t size_, const Type& type_, Out& out_) const;
  static bool _packed(const Field& field_, const char* pData_, size_t size_, Out& out_);

  std::vector<Type> _types;
};

}  // namespace tarn_bench

#endif
