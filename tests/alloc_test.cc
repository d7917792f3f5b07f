// No call a server makes per message allocates: full and partial parse, trace,
// both serialization calls and the delta merge, on random messages of
// rich.proto. The one exception is a parse level that leaves more than 16 gaps
// in its field order, which moves its gap list to one heap block.
//
// The test binary links the host's allocation counter, which replaces malloc,
// the aligned allocators and operator new for the whole process, so every
// allocation the loaded module, the stand-in host or libprotobuf makes is
// seen. Only the call itself is counted: the host grows its value sets and the
// test builds its inputs outside. Skipped under sanitizers, whose runtimes own
// the allocator.
#include <gtest/gtest.h>

#include <functional>

#include "host/module_driver.h"
#include "host/value_list.h"
#include "random_message.h"
#include "tarn/tarn_xpath_hash_set.h"
#include "wire.h"

#ifndef TARN_TEST_SANITIZED
#include "host/alloc_counter.h"
#endif

namespace {

using tarn_test::api;

// Allocations the call makes, run twice: the first run lets the host's value
// sets reach their size, the second is counted.
uint64_t allocationsOf(const std::function<int()>& call_, int* pStatus_) {
#ifdef TARN_TEST_SANITIZED
  (void)call_;
  (void)pStatus_;
  return 0;
#else
  call_();
  const uint64_t before = tarn_host::allocationCount();
  *pStatus_ = call_();
  return tarn_host::allocationCount() - before;
#endif
}

// A server clears a set before it parses into it again.
int parseInto(tarn_message_type_context context_, const std::string& body_,
              tarn_host::ValueSet& set_, const tarn::tarn_xpath_hash_set* pFind_ = nullptr) {
  set_.clear();
  return tarn_test::parse(context_, body_, set_, pFind_);
}

class Allocations : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef TARN_TEST_SANITIZED
    GTEST_SKIP() << "allocation counting is off under sanitizers";
#endif
    (void)api();  // the module loaded and started before anything is counted
#ifndef TARN_TEST_SANITIZED
    // The counter must see inside the module: creating a context allocates.
    tarn_host::ContextOptions options;
    const std::string path = ";" + tarn_test::dataDir();
    options.add("ProtoPath", path.c_str()).add("ProtoFile", "sample.proto");
    options.add("Type", "tarn.test.Sample");
    const tarn_module_options ready = options.get();
    const uint64_t before = tarn_host::allocationCount();
    tarn_message_type_context context = api().create_context(ready);
    const uint64_t made = tarn_host::allocationCount() - before;
    ASSERT_NE(nullptr, context);
    api().destroy_context(context);
    ASSERT_GT(made, 0u) << "the counter does not see the module's allocations";
#endif
  }
};

TEST_F(Allocations, NoPerMessageCallAllocates) {
  const auto* type = tarn_test::TestSchema::get().type("tarn.test.Rich");
  const tarn_message_type_context rich = tarn_test::rich();
  tarn::tarn_xpath_hash_set find;
  find.insert(tarn_test::pathHash({"id"}));
  find.insert(tarn_test::pathHash({"child"}));
  std::string out(1 << 20, '\0');

  for (int n = 0; n < 40; ++n) {
    SCOPED_TRACE(n);
    const std::string body = tarn_test::randomBody(type, 9100 + n);
    const std::string update = tarn_test::randomBody(type, 9200 + n);
    tarn_host::ValueSet stored, updated, scratch;
    ASSERT_EQ(TARN_SUCCESS, parseInto(rich, body, stored));
    tarn_host::ValueList values;
    values.build(stored);
    const tarn_host::ModuleDriver& module = tarn_test::driver();

    struct Call {
      const char* name;
      std::function<int()> run;
    };
    const Call calls[] = {
        {"parse", [&] { return parseInto(rich, body, scratch); }},
        {"partial parse", [&] { return parseInto(rich, body, scratch, &find); }},
        {"trace",
         [&] {
           tarn_trace_output_buffer traced = {&out[0], out.size(), 0};
           return module.trace(rich, body.data(), body.size(), traced);
         }},
        {"serialize size", [&] { return module.serializeRoom(*values.list(), {}) > 0 ? 0 : 1; }},
        {"serialize",
         [&] {
           tarn_message_segment message = {};
           message.data = &out[0];
           return module.serialize(*values.list(), message);
         }},
        // The merge clears the update set, so each run parses it anew; the
        // parse is counted with the merge and allocates nothing either.
        {"merge",
         [&] {
           if (parseInto(rich, update, updated) != TARN_SUCCESS) return -1;
           if (tarn_host::mergeRoom(updated.handle(), stored.handle()) > out.size()) return -1;
           tarn_message_segment output = {};
           output.data = &out[0];
           return module.merge(updated.handle(), stored.handle(), output) > 0 ? 0 : 1;
         }},
    };
    for (const Call& call : calls) {
      int status = -1;
      EXPECT_EQ(0u, allocationsOf(call.run, &status)) << call.name;
      EXPECT_EQ(0, status) << call.name;
    }
  }
}

TEST_F(Allocations, OneBlockBeyondSixteenGapsInALevel) {
  struct Case {
    int gaps;
    uint64_t allocations;
  };
  const tarn_message_type_context wide = tarn_test::context("parser.proto", "tarn.ptest.Wide");
  for (const Case& c : {Case{0, 0}, Case{16, 0}, Case{17, 1}, Case{20, 1}}) {
    SCOPED_TRACE(std::to_string(c.gaps) + " gaps");
    wire::Body body;
    // Wide has 40 fields: sending odd indexes 1, 3, ... leaves a gap before each.
    for (int k = 0; k < c.gaps; ++k) body.varint(static_cast<uint32_t>(2 * k + 2), 1);
    const std::string bytes = body.bytes();
    tarn_host::ValueSet set;
    int status = -1;
    EXPECT_EQ(c.allocations, allocationsOf([&] { return parseInto(wide, bytes, set); }, &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ(40u, set.size());  // sent fields plus defaults: every field once
  }
}

}  // namespace
