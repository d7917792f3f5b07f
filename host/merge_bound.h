// A delta publish as the stand-in host performs it. The module writes the
// merged message straight into the output segment and checks no capacity, so
// the room is reserved first, from the module's merge room library
// (protobuf/tarn_protobuf_merge_room.h), which runs the module's own merge walk
// counting instead of writing.
#ifndef TARN_HOST_MERGE_BOUND_H
#define TARN_HOST_MERGE_BOUND_H

#include <cstdint>
#include <string>

#include "host/module_loader.h"
#include "host/value_set.h"

namespace tarn_host {

// Bytes to reserve behind the output segment's content before merging update_
// over stored_. Either set may be empty.
uint64_t mergeOutputBound(ValueSet& update_, ValueSet& stored_);

// A delta publish as the stand-in host performs it: grows segment_ by the
// bound, calls the module's merge, trims segment_ to the byte count the module
// returns and returns it. update_ is empty afterwards.
uint32_t deltaMerge(const ModuleApi& api_, ValueSet& update_, ValueSet& stored_,
                    std::string& segment_);

}  // namespace tarn_host

#endif
