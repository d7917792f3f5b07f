// The room a host sets aside for a delta merge, worked out from the two parsed
// value sets by the merge's own walk: an update field is copied whole unless
// both sides hold children, in which case it costs the stored tag, a length
// prefix (at most ten bytes) and the merged level; every stored field of a
// level may be copied too. Packed elements, each carrying the whole packed
// field, and repeated nested messages merged against one stored occurrence are
// counted as often as the merge writes them.
#ifndef TARN_FUZZ_MERGE_ROOM_H
#define TARN_FUZZ_MERGE_ROOM_H

#include <cstddef>

#include "host/value_set.h"

namespace tarn_fuzz {

size_t mergeRoom(tarn_host::ValueSet& update_, tarn_host::ValueSet& source_);

}  // namespace tarn_fuzz

#endif
