// The libprotobuf side of the differential tests: the tests' schemas loaded
// into a pool of their own (separate from the module's), random messages built
// and encoded by DynamicMessage, and a check of a parsed entry tree against
// libprotobuf's decode of the same body.
#ifndef TARN_TESTS_RANDOM_MESSAGE_H
#define TARN_TESTS_RANDOM_MESSAGE_H

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "host/dynamic_schema.h"
#include "module_fixture.h"

namespace tarn_test {

// A .proto file of the tests as libprotobuf reads it, imported once per process.
class TestSchema {
 public:
  static TestSchema& get(const std::string& file = "rich.proto",
                         const std::string& dir = dataDir());

  const google::protobuf::Descriptor* type(const std::string& fullName) const;
  std::unique_ptr<google::protobuf::Message> newMessage(
      const google::protobuf::Descriptor* type) const;
  // libprotobuf's decode of body, or null when it refuses it.
  std::unique_ptr<google::protobuf::Message> read(const google::protobuf::Descriptor* type,
                                                  const std::string& body) const;

 private:
  TestSchema(const std::string& file, const std::string& dir);
  std::shared_ptr<tarn_host::DynamicSchema> _schema;
};

// Sets a random selection of fields (repeated fields get 0 to 4 elements),
// descending at most maxDepth levels into nested messages. Required fields are
// always set. Values favour the edges: 0, -1, extremes, long varints.
void fillRandom(google::protobuf::Message& message, std::mt19937_64& rng, int maxDepth = 3);

// fillRandom on a fresh message of `type` (of rich.proto), serialized by libprotobuf.
std::string randomBody(const google::protobuf::Descriptor* type, uint64_t seed, int maxDepth = 3);

// The tarn_test::tree text that a parse of message's encoding gives: per
// level the present fields in wire order with libprotobuf's values, then the
// defaults of absent fields that declare one (unless withDefaults is false:
// a level that stopped early stores none).
std::string expectedTree(const google::protobuf::Message& message, bool withDefaults = true);

}  // namespace tarn_test

#endif
