// Where the module's delta merge departs from protobuf's merge, found on the
// schema at hand before the merge is run. The module merges by field path:
// fields the update carries are written first, replacing the stored ones with
// the same path whole; nested messages on both sides are merged level by
// level; the stored fields the update lacks follow. A protobuf user expects
// MergeFrom instead. The two differ for
// - a oneof: a member set by the update does not clear the stored member, so
//   both are written and readers take the last, the stored one;
// - a repeated field or a map: replaced whole, where MergeFrom appends items
//   and overwrites only the keys the update carries;
// - repeated message items: each update item is merged against one stored
//   item, so every one receives the fields of that item it lacks;
// - an empty nested message in the update: it replaces the stored one whole,
//   where MergeFrom changes nothing.
#ifndef TARN_TOOLS_TARNPB_MERGE_CHECK_H
#define TARN_TOOLS_TARNPB_MERGE_CHECK_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace tarnpb {

struct MergeWarning {
  std::string kind;  // "oneof", "repeated", "map", "items", "empty", "size"
  std::string path;  // dotted, from the root; "" for the whole message
  std::string text;  // one sentence, without the path
  std::string line;  // "oneof kind: " and the text, for standard error
};

// The departures of merging update_ into stored_ (both bodies the module
// accepted), each field path once, in the update's order.
std::vector<MergeWarning> mergeDepartures(const google::protobuf::Descriptor* root_,
                                          const std::string& stored_, const std::string& update_);

// A warning when the merged message is many times the size of its inputs
// (items merged against one stored item each carry a copy of its fields).
bool sizeDeparture(size_t stored_, size_t update_, size_t merged_, MergeWarning& warning_);

}  // namespace tarnpb

#endif
