// The module's entries against libprotobuf's decode of the same bodies: random
// messages of the rich schema, mutations of them, the public golden bodies,
// and partial parses against full ones.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "random_message.h"
#include "submission_log.h"
#include "wire.h"

namespace {

using tarn_test::Parsed;
using tarn_test::TestSchema;

const google::protobuf::Descriptor* richType() { return TestSchema::get().type("tarn.test.Rich"); }

TEST(ParserDifferential, RandomRichMessagesMatchLibprotobuf) {
  for (int seed = 1; seed <= 300 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::string body = tarn_test::randomBody(richType(), static_cast<uint64_t>(seed), 4);
    auto reference = TestSchema::get().read(richType(), body);
    ASSERT_NE(nullptr, reference);
    Parsed parsed(tarn_test::rich(), body);
    ASSERT_EQ(0, parsed.status());
    EXPECT_EQ(tarn_test::expectedTree(*reference), tarn_test::tree(parsed));
  }
}

// Cut, bit-flipped, 0xFF-overwritten and grown bodies: 0 or 255, and every
// entry inside the exactly-sized copy and the set (a read past the copy is a
// sanitizer error).
TEST(ParserDifferential, MutatedBodiesNeverEscapeTheirBuffer) {
  std::mt19937_64 rng(20240611);
  int outcomes[2] = {0, 0};
  for (int seed = 1; seed <= 200; ++seed) {
    const std::string body = tarn_test::randomBody(richType(), static_cast<uint64_t>(seed), 3);
    for (int k = 0; k < 8; ++k) {
      std::string m = body;
      const size_t at = m.empty() ? 0 : rng() % m.size();
      switch (rng() % 4) {
        case 0: m.resize(at); break;
        case 1:
          if (!m.empty()) m[at] ^= static_cast<char>(1 + rng() % 255);
          break;
        case 2:
          for (size_t i = at, n = 1 + rng() % 12; i < m.size() && n > 0; ++i, --n) m[i] = '\xFF';
          break;
        default: m.insert(m.begin() + static_cast<long>(at), static_cast<char>(rng())); break;
      }
      Parsed parsed(tarn_test::rich(), m);
      ASSERT_TRUE(parsed.status() == 0 || parsed.status() == 255) << parsed.status();
      ++outcomes[parsed.status() == 0];
      const std::string tree = tarn_test::tree(parsed);
      ASSERT_EQ(std::string::npos, tree.find('!')) << wire::hex(m) << "\n" << tree;
    }
  }
  // Both outcomes occur, so the mutations reach past the first tag.
  EXPECT_GT(outcomes[0], 0);
  EXPECT_GT(outcomes[1], 0);
}

TEST(ParserCorpus, GoldenBodiesMatchLibprotobuf) {
  if (tarn_test::corpusDir().empty()) GTEST_SKIP() << "public corpus absent";
  const std::string file = "google/protobuf/unittest.proto";
  const TestSchema& corpus = TestSchema::get(file, tarn_test::corpusDir());
  const struct {
    const char* body;
    const char* type;
    int status;
    uint32_t entries;
  } cases[] = {
      // Groups are not read: the walk stops at optionalgroup (field 16), after
      // the fifteen scalar fields libprotobuf wrote before it.
      {"golden_message", "protobuf_unittest.TestAllTypes", 255, 15},
      {"golden_packed_fields_message", "protobuf_unittest.TestPackedTypes", 0, 28},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    std::ifstream in(tarn_test::corpusDir() + "/" + c.body, std::ios::binary);
    const std::string body{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    ASSERT_FALSE(body.empty());
    auto reference = corpus.read(corpus.type(c.type), body);
    ASSERT_NE(nullptr, reference);
    Parsed parsed(tarn_test::context(file, c.type, tarn_test::corpusDir()), body);
    EXPECT_EQ(c.status, parsed.status());
    EXPECT_EQ(c.entries, parsed.size());
    const auto* d = reference->GetDescriptor();
    for (int i = 0; i < d->field_count() && c.status != 0; ++i)
      if (d->field(i)->number() >= 16)
        reference->GetReflection()->ClearField(reference.get(), d->field(i));
    EXPECT_EQ(tarn_test::expectedTree(*reference, c.status == 0), tarn_test::tree(parsed));
  }
}

// A partial parse reads the same bytes and submits the same records as the
// full parse; only the host's find set decides what is kept (an asked path
// and everything below it).
TEST(ParserPartial, SameSubmissionsAsTheFullParse) {
  const auto M = tarn_test::context("parser.proto", "tarn.ptest.M");
  const std::string example = wire::fromHex("08 05 12 03 0A 01 78 18 01 18 02");
  struct Case {
    tarn_message_type_context context;
    std::string body;
    std::vector<std::vector<std::string>> wanted;
    int keptCount;  // -1: not fixed by the case
  };
  std::vector<Case> cases = {
      {M, example, {{"n"}}, 3},
      {M, example, {{"n", "d"}, {"r"}}, 3},
      {M, example, {}, 0},
      {M, wire::fromHex("08 05 12 03 0A 01 78 48 01"), {{"a"}}, 1},  // fails at field 9
  };
  for (uint64_t seed = 1; seed <= 40; ++seed)
    cases.push_back({tarn_test::rich(),
                     tarn_test::randomBody(richType(), seed, 3),
                     {{"f_message"},
                      {"r_branch", "leaf"},
                      {"tree", "child", "count"},
                      {"p_sint32"},
                      {"d_string"}},
                     -1});
  const uint32_t INV = tarn_test::INV;
  for (const Case& c : cases) {
    SCOPED_TRACE(wire::hex(c.body));
    tarn::tarn_xpath_hash_set find;
    for (const auto& path : c.wanted) {
      uint32_t hash = tarn_host::default_base_hash;
      for (size_t i = 0; i < path.size(); ++i)
        hash =
            tarn_test::pathHash({path[i]}, i ? tarn_message_xpath_hash_add_separator(hash) : hash);
      find.insert(hash);
    }
    // One exactly-sized body for both parses, so raw pointers compare equal.
    std::unique_ptr<char[]> bytes(new char[c.body.size()]);
    std::copy(c.body.begin(), c.body.end(), bytes.get());
    const tarn_host::ModuleDriver& module = tarn_test::driver();
    std::vector<tarn_test::entry_t> fullLog, partialLog;
    tarn_host::ValueSet full, partial;
    int fullStatus, partialStatus;
    {
      tarn_test::SubmissionLog log(full);
      fullStatus = module.parse(c.context, bytes.get(), c.body.size(), full.handle());
      fullLog = log.records();
    }
    {
      tarn_test::SubmissionLog log(partial);
      partialStatus = module.parse(c.context, bytes.get(), c.body.size(), partial.handle(), &find);
      partialLog = log.records();
    }
    EXPECT_EQ(fullStatus, partialStatus);
    ASSERT_EQ(fullLog.size(), partialLog.size());
    ASSERT_EQ(fullLog.size(), full.size());
    // The full parse keeps all, so its parents are submission ordinals. A
    // record is kept when asked for or when its parent was kept.
    std::vector<uint32_t> keptIndex(fullLog.size(), INV);
    uint32_t next = 0;
    for (size_t k = 0; k < fullLog.size(); ++k) {
      const uint32_t parent = fullLog[k].parent;
      EXPECT_TRUE(tarn_test::sameEntry(fullLog[k], partialLog[k], false)) << k;
      if (find.contains(fullLog[k].hash) || (parent != INV && keptIndex[parent] != INV))
        keptIndex[k] = next++;
      EXPECT_EQ(parent == INV ? INV : keptIndex[parent], partialLog[k].parent) << k;
      if (keptIndex[k] != INV) {
        EXPECT_EQ(fullLog[k].raw_bytes, partial[keptIndex[k]].raw_bytes) << k;
      }
    }
    EXPECT_EQ(next, partial.size());
    if (c.keptCount >= 0) {
      EXPECT_EQ(static_cast<uint32_t>(c.keptCount), next);
    }
  }
}

}  // namespace
