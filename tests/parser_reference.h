// Checks a parsed entry tree against libprotobuf's own decode of the same
// body, by reflection: per level, every field's entries in wire order with
// the values libprotobuf holds, defaults for absent fields that declare one,
// parent links, and path hashes rebuilt from the field names.
#ifndef TARN_TESTS_PARSER_REFERENCE_H
#define TARN_TESTS_PARSER_REFERENCE_H

#include <google/protobuf/message.h>

#include <string>

#include "parser_support.h"

namespace ptest {

struct ReferenceOptions {
  bool withDefaults = true;  // false: the level stopped early, so none were stored
};

// Adds a gtest failure for every difference between the entries reachable
// from entry 0 and `message`, and for any stored entry the walk did not reach.
void expectMatchesReference(const Parsed& parsed, const google::protobuf::Message& message,
                            ReferenceOptions options = ReferenceOptions());

// Every pointer and link of every entry stays inside the body and the set.
void expectEntriesInBounds(const Parsed& parsed);

}  // namespace ptest

#endif
