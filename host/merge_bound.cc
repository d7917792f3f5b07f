#include "merge_bound.h"

#include "protobuf/tarn_protobuf_merge_room.h"

namespace tarn_host {

uint64_t mergeOutputBound(ValueSet& update_, ValueSet& stored_) {
  return tarn_protobuf_merge_room(update_.handle(), stored_.handle());
}

uint32_t deltaMerge(const ModuleApi& api_, ValueSet& update_, ValueSet& stored_,
                    std::string& segment_) {
  const size_t content = segment_.size();
  segment_.resize(content + mergeOutputBound(update_, stored_));
  tarn_delta_message_data delta = {};
  delta.output.data = &segment_[0];
  delta.output.byte_count = static_cast<uint32_t>(content);
  delta.update_value_set = update_.handle();
  delta.source_value_set = stored_.handle();
  const uint32_t count = static_cast<uint32_t>(api_.delta_publish_merge(&delta));
  segment_.resize(count);
  return count;
}

}  // namespace tarn_host
