// The module's entries against libprotobuf's decode of the same bodies:
// random messages of the rich schema, mutations of them, and the public
// golden bodies.
#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/dynamic_message.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "parser_reference.h"
#include "random_message.h"
#include "wire.h"

namespace {

using ptest::Parsed;

tarn_message_type_context richContext() {
  return ptest::context(tarn_test::dataDir(), "rich.proto", "tarn.test.Rich");
}

const google::protobuf::Descriptor* richType() {
  return tarn_test::TestSchema::get().type("tarn.test.Rich");
}

TEST(ParserDifferential, RandomRichMessagesMatchLibprotobuf) {
  const int count = 300;
  for (int seed = 1; seed <= count; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::string body = tarn_test::randomBody(richType(), static_cast<uint64_t>(seed), 4);
    auto reference = tarn_test::TestSchema::get().newMessage(richType());
    ASSERT_TRUE(reference->ParsePartialFromString(body));
    Parsed parsed(richContext(), body);
    ASSERT_EQ(0, parsed.status());
    ptest::expectMatchesReference(parsed, *reference);
    if (testing::Test::HasFailure()) break;  // one seed's report is enough
  }
}

std::string mutate(const std::string& body_, std::mt19937_64& rng_) {
  std::string out = body_;
  switch (rng_() % 4) {
    case 0:  // cut off
      out.resize(out.empty() ? 0 : rng_() % out.size());
      break;
    case 1:  // flip bits of one byte
      if (!out.empty()) out[rng_() % out.size()] ^= static_cast<char>(1 + rng_() % 255);
      break;
    case 2:  // overwrite a run with 0xFF: long varints and lengths
      for (size_t i = out.empty() ? 0 : rng_() % out.size(), n = 1 + rng_() % 12;
           i < out.size() && n > 0; ++i, --n) {
        out[i] = '\xFF';
      }
      break;
    default:  // insert a random byte
      out.insert(out.begin() + static_cast<long>(out.empty() ? 0 : rng_() % out.size()),
                 static_cast<char>(rng_()));
      break;
  }
  return out;
}

TEST(ParserDifferential, MutatedBodiesNeverEscapeTheirBuffer) {
  std::mt19937_64 rng(20240611);
  int failures = 0, successes = 0;
  for (int seed = 1; seed <= 200; ++seed) {
    const std::string body = tarn_test::randomBody(richType(), static_cast<uint64_t>(seed), 3);
    for (int k = 0; k < 8; ++k) {
      const std::string mutated = mutate(body, rng);
      Parsed parsed(richContext(), mutated);  // exactly-sized heap copy
      ASSERT_TRUE(parsed.status() == 0 || parsed.status() == 255) << parsed.status();
      (parsed.status() == 0 ? successes : failures)++;
      ptest::expectEntriesInBounds(parsed);
      if (testing::Test::HasFailure()) {
        ADD_FAILURE() << "body " << wire::hex(mutated);
        return;
      }
    }
  }
  // Both outcomes occur, so the mutations reach past the first tag.
  EXPECT_GT(failures, 0);
  EXPECT_GT(successes, 0);
}

// The public corpus, loaded into a libprotobuf pool of its own.
class Corpus {
 public:
  static Corpus* get() {
    static Corpus* pCorpus = tarn_test::corpusDir().empty() ? nullptr : new Corpus();
    return pCorpus;
  }
  std::unique_ptr<google::protobuf::Message> parse(const std::string& type_,
                                                   const std::string& body_) {
    const auto* pType = _importer.pool()->FindMessageTypeByName(type_);
    std::unique_ptr<google::protobuf::Message> m(_factory.GetPrototype(pType)->New());
    if (!m->ParseFromString(body_)) m.reset();
    return m;
  }
  static std::string read(const std::string& name_) {
    std::ifstream in(tarn_test::corpusDir() + "/" + name_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

 private:
  class Errors : public google::protobuf::compiler::MultiFileErrorCollector {
   public:
    void AddError(const std::string&, int, int, const std::string&) override {}
  };
  Corpus() : _importer(&_tree, &_errors) {
    _tree.MapPath("", tarn_test::corpusDir());
    _importer.Import(file);
  }

 public:
  static constexpr const char* file = "google/protobuf/unittest.proto";

 private:
  google::protobuf::compiler::DiskSourceTree _tree;
  Errors _errors;
  google::protobuf::compiler::Importer _importer;
  google::protobuf::DynamicMessageFactory _factory;
};

TEST(ParserCorpus, GoldenMessageStopsAtItsFirstGroup) {
  Corpus* pCorpus = Corpus::get();
  if (pCorpus == nullptr) GTEST_SKIP() << "public corpus absent";
  const std::string body = Corpus::read("golden_message");
  ASSERT_FALSE(body.empty());
  auto reference = pCorpus->parse("protobuf_unittest.TestAllTypes", body);
  ASSERT_NE(nullptr, reference);

  Parsed parsed(
      ptest::context(tarn_test::corpusDir(), Corpus::file, "protobuf_unittest.TestAllTypes"), body);
  // Groups are not read: the walk stops at optionalgroup (field 16), after
  // the fifteen scalar fields libprotobuf wrote before it.
  EXPECT_EQ(255, parsed.status());
  EXPECT_EQ(15u, parsed.size());
  const auto* pDescriptor = reference->GetDescriptor();
  for (int i = 0; i < pDescriptor->field_count(); ++i) {
    if (pDescriptor->field(i)->number() >= 16) {
      reference->GetReflection()->ClearField(reference.get(), pDescriptor->field(i));
    }
  }
  ptest::ReferenceOptions options;
  options.withDefaults = false;
  ptest::expectMatchesReference(parsed, *reference, options);
}

TEST(ParserCorpus, GoldenPackedMessageMatchesLibprotobuf) {
  Corpus* pCorpus = Corpus::get();
  if (pCorpus == nullptr) GTEST_SKIP() << "public corpus absent";
  const std::string body = Corpus::read("golden_packed_fields_message");
  ASSERT_FALSE(body.empty());
  auto reference = pCorpus->parse("protobuf_unittest.TestPackedTypes", body);
  ASSERT_NE(nullptr, reference);

  Parsed parsed(
      ptest::context(tarn_test::corpusDir(), Corpus::file, "protobuf_unittest.TestPackedTypes"),
      body);
  EXPECT_EQ(0, parsed.status());
  EXPECT_EQ(28u, parsed.size());  // fourteen packed fields of two elements
  ptest::expectMatchesReference(parsed, *reference);
}

}  // namespace
