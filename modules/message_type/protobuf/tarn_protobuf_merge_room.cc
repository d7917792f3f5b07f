// The merge room: the merge walk with a sink that writes nothing and keeps the
// furthest offset the segment writer would reach.
#include "tarn_protobuf_merge_room.h"

#include "merge_walk.h"

namespace {

class furthest_byte_counter {
 public:
  furthest_byte_counter() : _at(0), _furthest(0) {}

  size_t offset() const { return _at; }
  void copy(const char* /*pSrc_*/, size_t n_) { _advanceTo(_at + n_); }
  void skip(size_t n_) { _advanceTo(_at + n_); }
  // The writer ends just behind the body, moved or not; when the prefix came
  // out narrower than reserved, the reservation was the furthest point.
  void placeLength(size_t slot_, size_t /*reserved_*/, size_t length_) {
    _advanceTo(slot_ + varintSize(length_) + length_);
  }

  uint64_t furthest() const { return _furthest; }

 private:
  void _advanceTo(size_t at_) {
    _at = at_;
    if (_at > _furthest) _furthest = _at;
  }

  size_t _at;
  uint64_t _furthest;
};

}  // namespace

uint64_t tarn_protobuf_merge_room(tarn_message_xpath_value_set update_set,
                                  tarn_message_xpath_value_set stored_set) {
  furthest_byte_counter counter;
  merge_walk<furthest_byte_counter> walk(counter);
  walk.run(update_set, stored_set);
  return counter.furthest();
}
