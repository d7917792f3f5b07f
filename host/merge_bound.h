// How much room a delta-publish merge needs. The module writes the merged
// message straight into the output segment and checks no capacity, so the host
// must reserve enough before the call.
//
// Why not simply "update length + stored length": an update that carries a
// repeated nested message merges every occurrence against the one stored entry
// its path finds, so that stored occurrence's fields can be written once per
// update occurrence. A packed field, whose elements each carry the whole field,
// is written once. The sum of the two lengths is exceeded only by the first
// case, but then it can be exceeded many times over.
//
// The rule: walk both value sets exactly as the merge does (same visiting
// order, same link checks, same step and depth limits) and count bytes instead
// of writing them. The result is the furthest byte the merge can touch behind
// the segment's content, including a length prefix reserved wider than needed
// before the nested body moves back. It costs one walk of the two sets and no
// allocation.
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
