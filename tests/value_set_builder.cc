#include "value_set_builder.h"

#include "host/merge_bound.h"
#include "module_fixture.h"

namespace tarn_test {
namespace {

const uint32_t invalid = tarn_message_value_invalid_index;

uint64_t readVarint(const char*& p_, const char* end_) {
  uint64_t value = 0;
  for (unsigned shift = 0; p_ < end_ && shift < 64; shift += 7) {
    const unsigned char b = static_cast<unsigned char>(*p_++);
    value |= uint64_t{b & 0x7Fu} << shift;
    if ((b & 0x80) == 0) break;
  }
  return value;
}

}  // namespace

tarn_message_value_set_entry& SetBuilder::at(uint32_t index_) {
  return *tarn_message_xpath_get(_set.handle(), index_);
}

const char* SetBuilder::keep(const std::string& bytes_) {
  _bodies.push_back(std::make_unique<std::string>(bytes_));
  return _bodies.back()->data();
}

uint32_t SetBuilder::add(uint32_t parent_, const std::string& name_, const char* pRaw_,
                         uint32_t rawLength_) {
  const uint32_t seed = parent_ == invalid
                            ? tarn_message_xpath_hash_get_base(_set.handle())
                            : tarn_message_xpath_hash_add_separator(at(parent_).hash);
  tarn_message_value_set_entry entry = {};
  entry.hash = tarn_message_xpath_hash_string(name_.data(), name_.size(), seed);
  entry.raw_bytes = pRaw_;
  entry.raw_bytes_length = rawLength_;
  entry.parent = parent_;
  entry.first_child = invalid;
  entry.next_sibling = invalid;
  const uint32_t index = tarn_message_xpath_update(_set.handle(), nullptr, &entry);
  uint32_t& newest =
      parent_ == invalid ? _lastTop : _lastChild.emplace(parent_, invalid).first->second;
  if (newest != invalid) at(newest).next_sibling = index;
  if (parent_ != invalid && at(parent_).first_child == invalid) at(parent_).first_child = index;
  newest = index;
  return index;
}

void SetBuilder::fill(const std::string& body_, const Shape& shape_) {
  const char* p = keep(body_);
  _level(p, p + body_.size(), invalid, 0, shape_);
}

void SetBuilder::_level(const char* p_, const char* end_, uint32_t parent_, uint32_t levelKey_,
                        const Shape& shape_) {
  std::set<uint32_t> seen;
  while (p_ < end_) {
    const char* start = p_;
    const uint64_t tag = readVarint(p_, end_);
    const uint32_t field = static_cast<uint32_t>(tag >> 3);
    const std::string name = "f" + std::to_string(field);
    seen.insert(field);
    switch (tag & 7) {
      case 0:
        readVarint(p_, end_);
        break;
      case 1:
        p_ += 8;
        break;
      case 5:
        p_ += 4;
        break;
      case 2: {
        const uint64_t length = readVarint(p_, end_);
        const char* payload = p_;
        p_ += length;
        const uint32_t rawLength = static_cast<uint32_t>(p_ - start);
        if (shape_.messages.count(field)) {
          const uint32_t index = add(parent_, name, start, rawLength);
          _level(payload, p_, index, field, shape_);
          continue;
        }
        if (shape_.packed.count(field)) {
          for (const char* q = payload; q < p_;) {
            readVarint(q, p_);
            add(parent_, name, start, rawLength);
          }
          continue;
        }
        break;
      }
    }
    add(parent_, name, start, static_cast<uint32_t>(p_ - start));
  }
  auto defaults = shape_.defaults.find(levelKey_);
  if (defaults == shape_.defaults.end()) return;
  for (uint32_t field : defaults->second)
    if (!seen.count(field)) add(parent_, "f" + std::to_string(field), nullptr, 0);
}

MergeRun runMerge(tarn_host::ValueSet& update_, tarn_host::ValueSet& stored_,
                  const std::string& prefix_) {
  static const std::string canary(16, '\xCD');
  MergeRun run;
  run.room = tarn_host::mergeOutputBound(update_, stored_);
  std::string segment = prefix_ + std::string(run.room, '\xAB') + canary;
  tarn_delta_message_data delta = {};
  delta.output.data = &segment[0];
  delta.output.byte_count = static_cast<uint32_t>(prefix_.size());
  delta.update_value_set = update_.handle();
  delta.source_value_set = stored_.handle();
  run.returned = api().delta_publish_merge(&delta);
  const size_t end = prefix_.size() + run.room;
  run.ok = segment.compare(end, canary.size(), canary) == 0 &&
           segment.compare(0, prefix_.size(), prefix_) == 0 && run.returned >= 0 &&
           static_cast<size_t>(run.returned) <= end &&
           delta.output.byte_count == static_cast<uint32_t>(run.returned);
  if (run.ok) run.output = segment.substr(prefix_.size(), run.returned - prefix_.size());
  return run;
}

}  // namespace tarn_test
