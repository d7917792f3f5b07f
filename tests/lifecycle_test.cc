// A module freshly loaded from its own copy of the library, so that nothing
// another test did (start-up, mapped paths, imported files) is in it: calls
// before start-up and with no logger, and what re-creating an unchanged
// context costs a long-lived process.
#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <memory>

#include "module_fixture.h"

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
