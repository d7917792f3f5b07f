// Random messages for differential tests, built and encoded by libprotobuf's
// own DynamicMessage from the tests' schemas (loaded into a pool of the tests,
// separate from the module's).
#ifndef TARN_TESTS_RANDOM_MESSAGE_H
#define TARN_TESTS_RANDOM_MESSAGE_H

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>

namespace tarn_test {

// A .proto file from tests/data loaded with libprotobuf's importer.
class TestSchema {
 public:
  static TestSchema& get(const std::string& file = "rich.proto");

  const google::protobuf::Descriptor* type(const std::string& fullName) const;
  std::unique_ptr<google::protobuf::Message> newMessage(
      const google::protobuf::Descriptor* type) const;

 private:
  explicit TestSchema(const std::string& file);
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

// Sets a random selection of fields (repeated fields get 0 to 4 elements),
// descending at most maxDepth levels into nested messages. Required fields are
// always set. Values favour the edges: 0, -1, extremes, long varints.
void fillRandom(google::protobuf::Message& message, std::mt19937_64& rng, int maxDepth = 3);

// fillRandom on a fresh message of `type`, serialized by libprotobuf.
std::string randomBody(const google::protobuf::Descriptor* type, uint64_t seed, int maxDepth = 3);

}  // namespace tarn_test

#endif
