// What the tool can say about a body beyond the module's verdict: whether it
// is protobuf wire format at all, whether it looks like text, and where a
// body the module accepts does not fit its schema.
#ifndef TARN_TOOLS_TARNPB_BODY_CHECK_H
#define TARN_TOOLS_TARNPB_BODY_CHECK_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace tarnpb {

// Read without a schema, the offset of the first byte that starts no field
// (a varint cut off, a length past the end, wire type 6 or 7, a group end
// without its start), or npos when the body reads as fields to its end.
size_t firstUnreadable(const char* pBody_, size_t length_);
inline size_t firstUnreadable(const std::string& body_) {
  return firstUnreadable(body_.data(), body_.size());
}

// Whether the body is text rather than wire format: not empty, and nothing
// but printable ASCII, white space and well-formed UTF-8.
bool looksLikeTextBody(const std::string& body_);

// A refused body's verdict before the tool's diagnosis, or empty: "the input
// looks like text ..." or "the bytes are not protobuf wire format ...".
std::string notProtobufVerdict(const std::string& body_);

// What a schema-guided walk finds in a body the module accepted: the fields
// whose wire type their declared type never has ("at byte 0, seconds (field 1
// of google.protobuf.Timestamp, declared int64) arrives as wire type 2
// (length-delimited), ..."), in body order, at most the limit asked for, with
// the rest counted; and the proto2 groups it holds (dotted paths, each once).
struct BodyFit {
  std::vector<std::string> misfits;
  size_t moreMisfits = 0;
  std::vector<std::string> groups;
};
// With budget_ (0: none) only the top-level fields that start in the first
// budget_ bytes are walked, for commands that are faster than the walk.
BodyFit checkFit(const google::protobuf::Descriptor* root_, const std::string& body_, size_t limit_,
                 size_t budget_ = 0);

}  // namespace tarnpb

#endif
