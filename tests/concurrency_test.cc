// Parses and traces of one context from several threads at once, each thread
// with its own value set and output buffer, must give exactly what the same
// calls give one at a time. The module keeps no mutable state outside the call;
// built with ThreadSanitizer this test also shows that no shared byte is written.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "module_fixture.h"
#include "random_message.h"
#include "wire.h"

namespace {

using tarn_test::api;

struct Result {
  int parseStatus = -1;
  std::vector<tarn_message_value_set_entry> entries;
  int traceStatus = -1;
  std::string text;
};

bool sameEntry(const tarn_message_value_set_entry& a, const tarn_message_value_set_entry& b) {
  return a.hash == b.hash && a.value_mask == b.value_mask && a.value_flags == b.value_flags &&
         a.type_hint == b.type_hint && a.l == b.l && a.raw_bytes == b.raw_bytes &&
         a.tag_bytes == b.tag_bytes && a.string_rep == b.string_rep &&
         a.raw_bytes_length == b.raw_bytes_length && a.tag_length == b.tag_length &&
         a.string_rep_length == b.string_rep_length && a.parent == b.parent &&
         a.first_child == b.first_child && a.next_sibling == b.next_sibling;
}

Result run(tarn_message_type_context context_, const std::string& body_, size_t capacity_) {
  Result result;
  tarn_host::ValueSet set;
  result.parseStatus = tarn_test::parse(context_, body_, set);
  result.entries = set.entries();
  std::string buffer(capacity_, '\0');
  tarn_trace_output_buffer output = {&buffer[0], capacity_, 0};
  tarn_trace_buffer input = {body_.data(), body_.size()};
  result.traceStatus = api().trace_message(context_, &input, &output);
  result.text = buffer.substr(0, output.length);
  return result;
}

TEST(Concurrency, ParseAndTraceOnOneContextMatchOneThreadAtATime) {
  tarn_message_type_context context =
      tarn_test::makeContext(tarn_test::dataDir(), "rich.proto", "tarn.test.Rich");
  ASSERT_NE(context, nullptr);

  // Random messages of every field type, a malformed one, and buffers that are
  // ample for some traces and too small for others.
  const auto* pRich = tarn_test::TestSchema::get().type("tarn.test.Rich");
  std::vector<std::string> bodies;
  for (uint64_t seed = 1; seed <= 24; ++seed) bodies.push_back(tarn_test::randomBody(pRich, seed));
  bodies.push_back(wire::Body().varint(5, 1).varint(99, 2));
  std::vector<size_t> capacities;
  for (size_t i = 0; i < bodies.size(); ++i) capacities.push_back(i % 3 == 0 ? 200 : 1 << 16);

  std::vector<Result> expected;
  for (size_t i = 0; i < bodies.size(); ++i)
    expected.push_back(run(context, bodies[i], capacities[i]));

  const int threads = 4, rounds = 3;
  std::vector<std::vector<Result>> got(threads);
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      // Each thread walks the bodies in its own order, so different bodies overlap.
      for (int round = 0; round < rounds; ++round)
        for (size_t k = 0; k < bodies.size(); ++k) {
          size_t i = (k * (2 * t + 1) + round) % bodies.size();
          got[t].push_back(run(context, bodies[i], capacities[i]));
        }
    });
  }
  for (auto& worker : workers) worker.join();

  for (int t = 0; t < threads; ++t) {
    for (int round = 0; round < rounds; ++round)
      for (size_t k = 0; k < bodies.size(); ++k) {
        size_t i = (k * (2 * t + 1) + round) % bodies.size();
        const Result& g = got[t][round * bodies.size() + k];
        const Result& e = expected[i];
        SCOPED_TRACE("thread " + std::to_string(t) + ", body " + std::to_string(i));
        ASSERT_EQ(g.parseStatus, e.parseStatus);
        ASSERT_EQ(g.entries.size(), e.entries.size());
        for (size_t n = 0; n < e.entries.size(); ++n)
          ASSERT_TRUE(sameEntry(g.entries[n], e.entries[n])) << "entry " << n;
        ASSERT_EQ(g.traceStatus, e.traceStatus);
        ASSERT_EQ(g.text, e.text);
      }
  }
  api().destroy_context(context);
}

}  // namespace
