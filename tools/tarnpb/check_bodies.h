// Sample bodies run through both versions of a schema, each by its own module
// instance as a server runs it: parsed, traced, and merged as a delta into
// the body before them (the first into itself), and the merge a server makes
// right after it switches, of an update parsed under the new version into a
// stored message parsed under the old. What differs is listed entry by entry.
#ifndef TARN_TOOLS_TARNPB_CHECK_BODIES_H
#define TARN_TOOLS_TARNPB_CHECK_BODIES_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "check_module.h"

namespace tarnpb {

struct CheckVersion {
  const google::protobuf::Descriptor* pRoot;  // the tool's descriptor of the root type
  const CheckModule* pModule;
};

struct BodyDifference {
  std::string what;           // "refused", "value", "hash", "entry", "trace", "merge", ...
  std::string where;          // "at byte 3 (price)", "" for the whole body
  std::string before, after;  // as the old and the new version show it
};

struct SampleBody {
  std::string name;  // what the report calls it
  std::string bytes;
};

struct BodyReport {
  std::string name;
  size_t length = 0;
  std::vector<BodyDifference> differences;
};

std::vector<BodyReport> compareBodies(const std::vector<SampleBody>& bodies_,
                                      const CheckVersion& old_, const CheckVersion& new_);

}  // namespace tarnpb

#endif
