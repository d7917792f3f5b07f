// Two versions of a schema compared from the root type down, under the
// module's rules rather than protobuf's: a field number the server does not
// declare fails the parse, path hashes are built from field names, values are
// decoded by the declared type, declared defaults become entries, the delta
// merge keys fields by path hash and the trace renders packed fields apart.
//
// Fields are matched by number, message types by where they sit in the tree
// (the type of a matched field is compared with the type of its counterpart),
// so renaming a type changes nothing and moving declarations around in the
// file is no change at all.
#ifndef TARN_TOOLS_TARNPB_CHECK_COMPARE_H
#define TARN_TOOLS_TARNPB_CHECK_COMPARE_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace tarnpb {

// The rollout that keeps every message readable as before, worst last.
enum class Order { any, serversFirst, publishersFirst, coordinated };

// The worse of two, where servers-first and publishers-first together leave
// no safe order for one switch.
Order combine(Order a_, Order b_);
const char* orderText(Order order_);

// Who sees a change.
enum Party : unsigned {
  party_publishers = 1,
  party_subscribers = 2,
  party_find_sets = 4,  // the host's find sets and anything it keys by path hash
  party_stored = 8,     // stored messages a delta is merged into
  party_traces = 16,
};
std::vector<std::string> partyNames(unsigned parties_);

struct Change {
  std::string kind;    // "field added", "type changed", ...
  std::string path;    // dotted field names from the root; empty for the root
  std::string before;  // the declaration in the old schema, or ""
  std::string after;   // the declaration in the new schema, or ""
  std::string effect;  // what it does under the module
  unsigned parties = 0;
  Order order = Order::any;
  // The same change where its message type is reached by other fields too.
  std::vector<std::string> alsoAt;
};

// Every change that reaches new_ from the root down, in breadth-first order of
// the tree and by field number within a type. old_ and new_ are the two
// versions' root types; when their names differ the first change says so.
std::vector<Change> compareSchemas(const google::protobuf::Descriptor* old_,
                                   const google::protobuf::Descriptor* new_);

}  // namespace tarnpb

#endif
