// The module's delta-publish merge: the one merge walk (merge_walk.h) with a
// sink that writes into the host's output segment. The writer checks no
// capacity: the host reserves the room that the same walk, counting instead
// of writing, reports (tarn_protobuf_merge_room.h).
#include <cstring>

#include "merge_walk.h"
#include "tarn_protobuf_v2_serializer.h"

namespace {

class segment_writer {
 public:
  explicit segment_writer(char* pStart_) : _pStart(pStart_), _pDst(pStart_) {}

  size_t offset() const { return static_cast<size_t>(_pDst - _pStart); }

  void copy(const char* pSrc_, size_t n_) {
    std::memcpy(_pDst, pSrc_, n_);
    _pDst += n_;
  }

  void skip(size_t n_) { _pDst += n_; }

  void placeLength(size_t slot_, size_t reserved_, size_t length_) {
    char* pHeader = _pStart + slot_;
    const size_t needed = varintSize(length_);
    if (needed != reserved_) std::memmove(pHeader + needed, pHeader + reserved_, length_);
    _pDst = pHeader + needed + length_;
    writeVarint(pHeader, length_);
  }

 private:
  char* const _pStart;
  char* _pDst;
};

}  // namespace

size_t tarn_protobuf_v2_serializer::serializeMerge(tarn_message_xpath_value_set updateSet_,
                                                   tarn_message_xpath_value_set previousSet_) {
  segment_writer writer(_pDst);
  merge_walk<segment_writer> walk(writer);
  const size_t written = walk.run(updateSet_, previousSet_);
  _pDst += written;
  return written;
}
