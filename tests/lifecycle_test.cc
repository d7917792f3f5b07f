// A module freshly loaded from its own copy of the library, so that nothing
// another test did (start-up, mapped paths, imported files, field tables) is
// in it: calls before start-up and with no logger, what re-creating an
// unchanged context and keeping many contexts of one type cost a long-lived
// process, and roots that reach tables built for other roots.
#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <memory>

#include "cheap_hashing.h"
#include "module_fixture.h"
#include "wire.h"

namespace {

using tarn_host::Logger;
using tarn_host::LogLine;

// The module under test, loaded (not started) from a private copy of its file.
class FreshModule : public tarn_host::ModuleDriver {
 public:
  FreshModule() {
    std::string error;
    if (!load(TARN_MODULE_PATH, error, true)) ADD_FAILURE() << error;
  }
};

struct Schema {
  tarn_test::TempDir dir;
  std::string file = tarn_test::uniqueName("life") + ".proto";
  Schema() {
    dir.write(file, "syntax = \"proto2\";\npackage life;\nmessage M { optional int32 a = 1; }\n");
  }
  tarn_message_type_context create(const tarn_host::ModuleDriver& module_) const {
    return module_.createContext({dir.path()}, file, "life.M");
  }
};

// Parses 08 07 (a = 7) and reports the entries as "hash-free" text.
std::string parseSeven(const tarn_host::ModuleDriver& module_, tarn_message_type_context context_) {
  const char body[] = {0x08, 0x07};
  tarn_host::ValueSet set;
  const int status = module_.parse(context_, body, sizeof body, set.handle());
  std::string out = "status " + std::to_string(status);
  for (const auto& e : set.entries())
    out += " " + std::string(e.tag_bytes, e.tag_length) + "=" + std::to_string(e.l);
  return out;
}

// Each row runs calls on a fresh module; none may crash, every call answers as
// it does after a normal start, and only a real logger receives lines.
TEST(Lifecycle, CallsBeforeStartAndWithoutALoggerWork) {
  Schema s;
  struct Row {
    const char* name;
    std::function<void(const tarn_host::ModuleApi&)> before;  // what runs first
    std::vector<LogLine> logged;                              // lines the recorder got
  };
  const std::string destroyed = "tarn_protobuf message type context destroy";
  const Row rows[] = {
      {"no start-up at all", [](const tarn_host::ModuleApi&) {}, {}},
      {"started with a null logger",
       [](const tarn_host::ModuleApi& a) {
         EXPECT_EQ(0, a.module_init(nullptr, nullptr, nullptr));
       },
       {}},
      {"null logger, then terminated",
       [](const tarn_host::ModuleApi& a) {
         EXPECT_EQ(0, a.module_init(nullptr, nullptr, nullptr));
         EXPECT_EQ(0, a.module_terminate());
       },
       {}},
      {"a real logger replaces the null one",
       [](const tarn_host::ModuleApi& a) {
         a.module_init(nullptr, nullptr, nullptr);
         a.module_init(nullptr, &Logger::log, nullptr);
       },
       {{8, "tarn_protobuf message type module loaded"},
        {8, "tarn_protobuf message type MODULE_INIT: ProtoPath = ;$DIR"},
        {8, "tarn_protobuf message type MODULE_INIT: ProtoFile = $FILE"},
        {8, "tarn_protobuf successfully loaded proto file $FILE"},
        {8, "tarn_protobuf added type life.M"},
        {2, "tarn_protobuf message type context created successfully"},
        {2, "tarn_protobuf message type context destroy"}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    FreshModule module;
    ASSERT_TRUE(module.isLoaded());
    const size_t mark = Logger::mark();
    row.before(module.api());
    tarn_message_type_context context = s.create(module);
    ASSERT_NE(nullptr, context);
    EXPECT_EQ("status 0 a=7", parseSeven(module, context));
    EXPECT_EQ(0, module.api().destroy_context(context));
    EXPECT_EQ(0, module.api().destroy_context(nullptr)) << "a null handle frees nothing";
    std::vector<LogLine> expected = row.logged;
    if (!expected.empty()) expected.push_back({2, destroyed});
    for (LogLine& line : expected)
      for (auto [key, value] :
           {std::pair<std::string, std::string>{"$DIR", s.dir.path()}, {"$FILE", s.file}})
        if (size_t at = line.text.find(key); at != std::string::npos)
          line.text.replace(at, key.size(), value);
    EXPECT_EQ(expected, Logger::linesSince(mark));
  }
}

#ifndef TARN_TEST_SANITIZED
// A server that reloads its configuration re-creates every context with the
// same options. That must not grow the heap: the search path it maps again is
// already mapped. (Sanitizer runtimes keep their own heap accounts.)
TEST(Lifecycle, RecreatingAnUnchangedContextKeepsTheHeapFlat) {
  Schema s;
  FreshModule module;
  ASSERT_TRUE(module.isLoaded());
  module.api().module_init(nullptr, nullptr, nullptr);  // nothing kept per log line
  auto recreate = [&](int times) {
    for (int i = 0; i < times; ++i) {
      tarn_message_type_context context = s.create(module);
      ASSERT_NE(nullptr, context);
      module.api().destroy_context(context);
    }
  };
  recreate(100);  // the first import and whatever libprotobuf caches
  const size_t before = mallinfo2().uordblks;
  recreate(10000);
  const size_t after = mallinfo2().uordblks;
  // Mapping the path again on each creation cost 132 bytes a time, 1.3 MB here.
  EXPECT_LE(after, before + 1024) << "heap grew by " << after - before << " bytes";
}
#endif

#ifndef TARN_TEST_SANITIZED
// Contexts of a type that is already loaded share its field tables (one per
// message type in the process): each further context costs the heap only its
// own small object, however many types its root reaches.
TEST(Lifecycle, ContextsOfALoadedTypeCostOnlyTheirOwnObject) {
  FreshModule module;
  ASSERT_TRUE(module.isLoaded());
  module.api().module_init(nullptr, nullptr, nullptr);  // nothing kept per log line
  tarn_host::ContextOptions options;
  const std::string path = ";" + tarn_test::dataDir();
  options.add("ProtoPath", path.c_str()).add("ProtoFile", "rich.proto");
  options.add("Type", "tarn.test.Rich");
  const int count = 200;
  std::vector<tarn_message_type_context> contexts;
  contexts.reserve(count + 1);
  contexts.push_back(module.api().create_context(options.get()));
  ASSERT_NE(nullptr, contexts[0]);
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < count; ++i) contexts.push_back(module.api().create_context(options.get()));
  const size_t after = mallinfo2().uordblks;
  for (tarn_message_type_context c : contexts) {
    EXPECT_NE(nullptr, c);
    module.api().destroy_context(c);
  }
  // The context object is 16 bytes; tables of its own would cost kilobytes.
  EXPECT_LE(after - before, count * 64u) << "heap grew by " << after - before << " bytes";
}
#endif

// Roots that reach types whose tables were built for other roots: fields of
// different types may then share a place in a parse's path-hash memo, and a
// place must answer only the field it was filled for. Under the stand-in
// cheap hashing of the tests (seed + length) the elements of xs and ys continue the
// same seed, so a place shared by a and bbb, answering by seed alone, would
// hand one field's hash to the other.
TEST(Lifecycle, FieldsSharingAMemoPlaceKeepTheirOwnHashes) {
  tarn_test::TempDir dir;
  const std::string file = tarn_test::uniqueName("memo") + ".proto";
  dir.write(file,
            "syntax = \"proto2\";\npackage memo;\n"
            "message X { optional int32 a = 1; }\nmessage Y { optional int32 bbb = 1; }\n"
            "message OnlyX { repeated X xs = 1; }\nmessage OnlyY { repeated Y ys = 1; }\n"
            "message Both { repeated X xs = 1; repeated Y ys = 2; }\n");
  FreshModule module;
  ASSERT_TRUE(module.isLoaded());
  module.api().module_init(nullptr, nullptr, nullptr);
  std::vector<tarn_message_type_context> contexts;
  for (const char* type : {"memo.OnlyX", "memo.OnlyY", "memo.Both"}) {
    tarn_host::ContextOptions options;
    const std::string path = ";" + dir.path();
    options.add("ProtoPath", path.c_str()).add("ProtoFile", file.c_str()).add("Type", type);
    contexts.push_back(module.api().create_context(options.get()));
    ASSERT_NE(nullptr, contexts.back()) << type;
  }
  const std::string body = wire::Body()
                               .msg(1, wire::Body().varint(1, 1))
                               .msg(2, wire::Body().varint(1, 2))
                               .msg(1, wire::Body().varint(1, 3))
                               .msg(2, wire::Body().varint(1, 4));
  tarn_input_message in = {};
  in.message_type_context = contexts.back();
  in.data = body.data();
  in.byte_count = body.size();
  tarn_host::ValueSet set;
  int status;
  {
    tarn_test::CheapHashing cheap;
    status = module.api().parse_message(&in, set.handle());
  }
  ASSERT_EQ(0, status);
  const std::vector<tarn_message_value_set_entry> entries = set.entries();
  ASSERT_EQ(8u, entries.size());
  for (const tarn_message_value_set_entry& e : entries) {
    const uint32_t seed = e.parent == 0xFFFFFFFFu ? tarn_host::default_base_hash
                                                  : entries[e.parent].hash + 1;  // the separator
    EXPECT_EQ(seed + e.tag_length, e.hash) << std::string(e.tag_bytes, e.tag_length);
  }
  for (tarn_message_type_context c : contexts) module.api().destroy_context(c);
}

// Mapping a pair that is already mapped changes no lookup: the pair keeps its
// first place, so a file in two mapped directories still comes from the
// directory mapped first, even when a later context names them the other way round.
TEST(Lifecycle, RemappingAPairKeepsItsFirstPlace) {
  tarn_test::TempDir first, second;
  const std::string file = tarn_test::uniqueName("twice") + ".proto";
  const std::string other = tarn_test::uniqueName("other") + ".proto";
  first.write(file,
              "syntax = \"proto2\";\npackage twice;\nmessage First { optional int32 a = 1; }\n");
  second.write(file,
               "syntax = \"proto2\";\npackage twice;\nmessage Second { optional int32 a = 1; }\n");
  first.write(other, "syntax = \"proto2\";\nmessage Other { optional int32 a = 1; }\n");
  FreshModule module;
  ASSERT_TRUE(module.isLoaded());
  auto create = [&](const std::string& p1, const std::string& p2, const std::string& f,
                    const char* type) {
    tarn_message_type_context context = module.createContext({p1, p2}, f, type);
    if (context) module.api().destroy_context(context);
    return context != nullptr;
  };
  EXPECT_TRUE(create(first.path(), second.path(), other, "Other"));
  EXPECT_TRUE(create(second.path(), first.path(), file, "twice.First"));
  EXPECT_FALSE(create(second.path(), first.path(), file, "twice.Second"));
}

}  // namespace
