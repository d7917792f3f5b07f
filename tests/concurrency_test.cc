// A server under traffic while it reloads its configuration: several threads
// run full and partial parses, traces (some into buffers too small for them)
// and delta merges, each thread with its own value sets and buffers, while
// one more thread keeps creating contexts that replace the ones the traffic
// uses and creating and destroying contexts of other schemas. Most of those
// are new files, so the importer parses them and grows the process-wide
// descriptor pool while the traffic reads descriptors from it. The contexts
// share field tables: the replacements use the very tables the traffic walks,
// and the new roots hold the traffic's own type, so their tables are built
// around (and point at) tables that other threads are reading. Every result
// must equal what the same call gives on one thread alone; built with
// ThreadSanitizer (scripts/test.sh runs it so) the test also shows that no
// byte is shared without synchronisation.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "module_fixture.h"
#include "random_message.h"
#include "tarn/tarn_xpath_hash_set.h"
#include "wire.h"

namespace {

using tarn_test::api;

// One unit of traffic: a body of a context, the delta merged over it, where a
// partial parse looks, and the room its trace gets.
struct Job {
  tarn_message_type_context context;  // for the one-thread run
  int type;                           // which live context the traffic uses
  std::string body;
  std::string update;
  const tarn::tarn_xpath_hash_set* pFind;
  size_t traceCapacity;
};

struct Outcome {
  int parseStatus = -1;
  std::vector<tarn_message_value_set_entry> entries;
  int partialStatus = -1;
  std::vector<tarn_message_value_set_entry> partialEntries;
  int traceStatus = -1;
  std::string text;
  int mergeReturned = -1;
  std::string merged;
};

bool sameEntries(const std::vector<tarn_message_value_set_entry>& a_,
                 const std::vector<tarn_message_value_set_entry>& b_) {
  if (a_.size() != b_.size()) return false;
  for (size_t n = 0; n < a_.size(); ++n)
    if (!tarn_test::sameEntry(a_[n], b_[n])) return false;
  return true;
}

void expectSame(const std::vector<tarn_message_value_set_entry>& got_,
                const std::vector<tarn_message_value_set_entry>& want_, const char* what_) {
  ASSERT_EQ(got_.size(), want_.size()) << what_;
  for (size_t n = 0; n < want_.size(); ++n)
    ASSERT_TRUE(tarn_test::sameEntry(got_[n], want_[n])) << what_ << ", entry " << n;
}

// Bodies are used in place (not copied), so raw pointers compare across runs.
Outcome perform(const Job& job_, tarn_message_type_context context_) {
  Outcome o;
  tarn_host::ValueSet full, partial, stored, update;
  o.parseStatus = tarn_test::parse(context_, job_.body, full, nullptr);
  o.entries = full.entries();
  o.partialStatus = tarn_test::parse(context_, job_.body, partial, job_.pFind);
  o.partialEntries = partial.entries();
  std::string buffer(job_.traceCapacity, '\0');
  tarn_trace_output_buffer output = {&buffer[0], buffer.size(), 0};
  o.traceStatus = tarn_test::driver().trace(context_, job_.body.data(), job_.body.size(), output);
  o.text = buffer.substr(0, output.length);
  if (tarn_test::parse(context_, job_.body, stored, nullptr) == 0 &&
      tarn_test::parse(context_, job_.update, update, nullptr) == 0)
    o.merged = tarn_test::runMerge(update, stored, "", &o.mergeReturned);
  return o;
}

bool operator==(const Outcome& a_, const Outcome& b_) {
  return a_.parseStatus == b_.parseStatus && sameEntries(a_.entries, b_.entries) &&
         a_.partialStatus == b_.partialStatus &&
         sameEntries(a_.partialEntries, b_.partialEntries) && a_.traceStatus == b_.traceStatus &&
         a_.text == b_.text && a_.mergeReturned == b_.mergeReturned && a_.merged == b_.merged;
}

// Says what differs.
void expectSame(const Outcome& got_, const Outcome& want_) {
  ASSERT_EQ(got_.parseStatus, want_.parseStatus);
  expectSame(got_.entries, want_.entries, "full parse");
  ASSERT_EQ(got_.partialStatus, want_.partialStatus);
  expectSame(got_.partialEntries, want_.partialEntries, "partial parse");
  ASSERT_EQ(got_.traceStatus, want_.traceStatus);
  ASSERT_EQ(got_.text, want_.text);
  ASSERT_EQ(got_.mergeReturned, want_.mergeReturned);
  ASSERT_EQ(got_.merged, want_.merged);
}

tarn::tarn_xpath_hash_set findSet(std::initializer_list<std::vector<std::string>> paths_) {
  tarn::tarn_xpath_hash_set find;
  for (const auto& path : paths_) {
    uint32_t hash = tarn_host::default_base_hash;
    for (size_t i = 0; i < path.size(); ++i)
      hash = tarn_test::pathHash({path[i]}, i ? tarn_message_xpath_hash_add_separator(hash) : hash);
    find.insert(hash);
  }
  return find;
}

std::string randomOf(const char* file_, const char* type_, uint64_t seed_) {
  const tarn_test::TestSchema& schema = tarn_test::TestSchema::get(file_);
  std::mt19937_64 rng(seed_);
  auto message = schema.newMessage(schema.type(type_));
  tarn_test::fillRandom(*message, rng, 3);
  return message->SerializePartialAsString();
}

// The configuration reloads. Every pass replaces the live contexts of the
// traffic's types with new ones, as a reloaded server would, so that calls on
// several threads meet on contexts that nothing has used yet; the replaced ones
// are destroyed once the traffic has stopped. Between those, contexts of other
// schemas come and go: a new schema file (and package) each time, whose root
// also holds the traffic's first type, now and then a file the pool already
// holds and a refused type; each parses one body before it is destroyed.
class Reloader {
 public:
  static const int types = 2;
  struct Type {
    const char* file;
    const char* name;
  };

  explicit Reloader(const Type (&types_)[types]) : _types(types_) {
    for (int t = 0; t < types; ++t) publish(t);
  }
  ~Reloader() {
    for (tarn_message_type_context c : _published) api().destroy_context(c);
  }

  tarn_message_type_context live(int type_) const { return _live[type_].load(); }

  void operator()(const std::atomic<bool>& stop_) {
    tarn_test::TempDir dir;
    for (int i = 0; !stop_.load(); ++i) {
      publish(i % types);
      if (i % 8 == 7) {
        check(tarn_test::makeContext(tarn_test::dataDir(), "deep.proto", "tarn.deep.Node"),
              wire::Body().msg(1, wire::Body().varint(2, 7)), 2);
        if (tarn_test::makeContext(tarn_test::dataDir(), "trace.proto", "tarn.trace.Nope") !=
            nullptr)
          ++failures;
      } else {
        const std::string package = tarn_test::uniqueName("reload");
        const std::string file = package + ".proto";
        dir.write(file, "syntax = \"proto2\";\npackage " + package + ";\nimport \"" +
                            _types[0].file +
                            "\";\nmessage Inner { optional string label = 1; }\n"
                            "message Outer {\n  optional int32 id = 1;\n"
                            "  optional Inner inner = 2;\n  repeated sint32 deltas = 3 "
                            "[packed = true];\n  repeated " +
                            _types[0].name + " shared = 4;\n}\n");
        check(tarn_test::makeContext(dir.path(), file, package + ".Outer"),
              wire::Body().varint(1, 5).msg(2, wire::Body().str(1, "x")), 3);
      }
      reloads.fetch_add(1);
    }
  }

  std::atomic<int> reloads{0};
  int failures = 0;

 private:
  void publish(int type_) {
    tarn_message_type_context c =
        tarn_test::makeContext(tarn_test::dataDir(), _types[type_].file, _types[type_].name);
    if (c == nullptr) {
      ++failures;
      return;
    }
    _published.push_back(c);
    _live[type_].store(c);
  }

  void check(tarn_message_type_context context_, const std::string& body_, uint32_t entries_) {
    if (context_ == nullptr) {
      ++failures;
      return;
    }
    tarn_host::ValueSet set;
    if (tarn_test::parse(context_, body_, set) != 0 || set.size() != entries_) ++failures;
    api().destroy_context(context_);
  }

  const Type (&_types)[types];
  std::atomic<tarn_message_type_context> _live[types];
  std::vector<tarn_message_type_context> _published;
};

TEST(Concurrency, TrafficWhileContextsAreReplacedAndOtherSchemasComeAndGo) {
  const Reloader::Type types[Reloader::types] = {{"rich.proto", "tarn.test.Rich"},
                                                 {"parser.proto", "tarn.ptest.AllTypes"}};
  const tarn_message_type_context rich = tarn_test::context(types[0].file, types[0].name);
  const tarn_message_type_context all = tarn_test::context(types[1].file, types[1].name);
  ASSERT_NE(rich, nullptr);
  ASSERT_NE(all, nullptr);
  const tarn::tarn_xpath_hash_set richFind =
      findSet({{"f_message"}, {"r_branch", "leaf"}, {"p_sint32"}, {"d_string"}});
  const tarn::tarn_xpath_hash_set allFind = findSet({{"t_message"}, {"p_sint64"}, {"t_string"}});

  // Random messages of every field type, a malformed one, and trace buffers
  // ample for some and too small for others.
  std::vector<Job> jobs;
  const auto* pRich = tarn_test::TestSchema::get().type("tarn.test.Rich");
  for (uint64_t seed = 1; seed <= 16; ++seed)
    jobs.push_back({rich, 0, tarn_test::randomBody(pRich, seed),
                    tarn_test::randomBody(pRich, seed + 100), &richFind,
                    seed % 3 == 0 ? 200u : 1u << 16});
  for (uint64_t seed = 1; seed <= 8; ++seed)
    jobs.push_back({all, 1, randomOf(types[1].file, types[1].name, seed),
                    randomOf(types[1].file, types[1].name, seed + 100), &allFind,
                    seed % 3 == 0 ? 150u : 1u << 16});
  jobs.push_back({rich, 0, wire::Body().varint(5, 1).varint(99, 2), wire::Body().varint(5, 3),
                  &richFind, 1u << 16});
  std::vector<Outcome> expected;
  for (const Job& job : jobs) expected.push_back(perform(job, job.context));

  // Workers keep going for a second and until the reloader has done enough
  // to overlap them, within a bound. Each compares as it goes and keeps its
  // first mismatch.
  const int threads = 3, minimumReloads = 12;
  const auto start = std::chrono::steady_clock::now();
  const auto enough = start + std::chrono::seconds(1);
  const auto deadline = start + std::chrono::seconds(20);
  std::atomic<bool> stop{false};
  Reloader reloader(types);
  std::thread reloading([&] { reloader(stop); });
  struct Tally {
    size_t performed = 0, mismatched = 0, firstBadJob = 0;
    Outcome firstBad;
  };
  std::vector<Tally> tallies(threads);
  std::vector<std::thread> workers;
  std::atomic<int> waiting{threads};
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      Tally& tally = tallies[t];
      // All start together, so their first calls on the first live contexts
      // meet while the sanitizer still remembers who wrote what first.
      waiting.fetch_sub(1);
      while (waiting.load() > 0) std::this_thread::yield();
      for (size_t round = 0;; ++round) {
        const auto now = std::chrono::steady_clock::now();
        if (round >= 2 && now >= enough && reloader.reloads.load() >= minimumReloads) break;
        if (now >= deadline) break;
        // Each thread walks the jobs in its own order, so different jobs overlap.
        for (size_t k = 0; k < jobs.size(); ++k) {
          const size_t i = (k * (2 * t + 1) + round) % jobs.size();
          Outcome o = perform(jobs[i], reloader.live(jobs[i].type));
          ++tally.performed;
          if (o == expected[i]) continue;
          if (tally.mismatched++ == 0) {
            tally.firstBadJob = i;
            tally.firstBad = std::move(o);
          }
        }
      }
    });
  }
  for (auto& worker : workers) worker.join();
  stop = true;
  reloading.join();

  EXPECT_EQ(reloader.failures, 0);
  EXPECT_GE(reloader.reloads.load(), minimumReloads);
  for (int t = 0; t < threads; ++t) {
    const Tally& tally = tallies[t];
    EXPECT_GE(tally.performed, 2 * jobs.size());
    EXPECT_EQ(tally.mismatched, 0u) << "thread " << t << " of " << tally.performed;
    if (tally.mismatched == 0) continue;
    SCOPED_TRACE("thread " + std::to_string(t) + ", job " + std::to_string(tally.firstBadJob));
    expectSame(tally.firstBad, expected[tally.firstBadJob]);
  }
}

}  // namespace
