// Context creation through the loaded module, against the exact log lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "module_fixture.h"
#include "temp_dir.h"

namespace tarn_host {
void PrintTo(const LogLine& line, std::ostream* os) {
  *os << line.level << " \"" << line.text << "\"";
}
}  // namespace tarn_host

namespace {

using tarn_host::Logger;
using tarn_host::LogLine;
using tarn_test::api;
using tarn_test::TempDir;
using tarn_test::uniqueName;
using ::testing::ElementsAreArray;

const std::string kInit = "tarn_protobuf message type MODULE_INIT: ";
const std::string kCreated = "tarn_protobuf message type context created successfully";
const std::string kNeedFile = "tarn_protobuf a ProtoFile is required in the configuration";
const std::string kOneFile = "tarn_protobuf only one ProtoFile may be set in the configuration";
const std::string kNeedType = "tarn_protobuf at least one Type is required";

std::string schemaText(const std::string& package) {
  return "syntax = \"proto2\";\npackage " + package +
         ";\nmessage Thing { optional int32 a = 1; }\n";
}

std::string locateFailure(const std::string& type) {
  return "tarn_protobuf failed to locate type " + type +
         " specified in the TARN message type configuration.";
}

// One schema file with a unique name and package in its own directory.
struct Schema {
  TempDir dir;
  std::string package = uniqueName("pkg");
  std::string file = uniqueName("schema") + ".proto";
  std::string type = package + ".Thing";
  Schema() { dir.write(file, schemaText(package)); }
};

struct Created {
  tarn_message_type_context context;
  std::vector<LogLine> lines;
};

Created create(std::vector<std::pair<const char*, const char*>> options) {
  tarn_host::ContextOptions holder;
  for (auto& o : options) holder.add(o.first, o.second);
  api();  // load and start the module before the mark
  size_t mark = Logger::mark();
  Created out{api().create_context(holder.get()), {}};
  out.lines = Logger::linesSince(mark);
  return out;
}

std::vector<LogLine> withoutErrors(const std::vector<LogLine>& lines) {
  std::vector<LogLine> out;
  for (auto& l : lines)
    if (l.level != tarn_module_log_level_error) out.push_back(l);
  return out;
}

std::vector<std::string> errorTexts(const std::vector<LogLine>& lines) {
  std::vector<std::string> out;
  for (auto& l : lines)
    if (l.level == tarn_module_log_level_error) out.push_back(l.text);
  return out;
}

void destroy(tarn_message_type_context context) {
  if (context) api().destroy_context(context);
}

TEST(Context, OptionsOutOfOrderStillMapThenImportThenResolve) {
  Schema s;
  std::string path = ";" + s.dir.path();
  auto c = create(
      {{"Type", s.type.c_str()}, {"ProtoFile", s.file.c_str()}, {"ProtoPath", path.c_str()}});
  ASSERT_NE(nullptr, c.context);
  EXPECT_THAT(c.lines, ElementsAreArray(std::vector<LogLine>{
                           {8, kInit + "ProtoPath = " + path},
                           {8, kInit + "ProtoFile = " + s.file},
                           {8, "tarn_protobuf successfully loaded proto file " + s.file},
                           {8, "tarn_protobuf added type " + s.type},
                           {2, kCreated},
                       }));
  destroy(c.context);
}

TEST(Context, SecondSemicolonBelongsToTheDiskPath) {
  Schema s;
  std::string odd = s.dir.mkdir("with;semicolon");
  s.dir.write("with;semicolon/" + s.file, schemaText(s.package));
  std::string virt = uniqueName("virt");
  std::string path = virt + ";" + odd;
  std::string file = virt + "/" + s.file;
  auto c =
      create({{"ProtoPath", path.c_str()}, {"ProtoFile", file.c_str()}, {"Type", s.type.c_str()}});
  ASSERT_NE(nullptr, c.context);
  EXPECT_EQ((LogLine{8, "tarn_protobuf successfully loaded proto file " + file}), c.lines.at(2));
  destroy(c.context);
}

TEST(Context, PathWithoutSemicolonMapsNothing) {
  Schema s;
  auto c = create({{"ProtoPath", s.dir.path().c_str()},
                   {"ProtoFile", s.file.c_str()},
                   {"Type", s.type.c_str()}});
  EXPECT_EQ(nullptr, c.context);
  EXPECT_THAT(withoutErrors(c.lines), ElementsAreArray(std::vector<LogLine>{
                                          {8, kInit + "ProtoPath = " + s.dir.path()},
                                          {8, kInit + "ProtoFile = " + s.file},
                                          {128, locateFailure(s.type)},
                                      }));
  ASSERT_FALSE(errorTexts(c.lines).empty());
  EXPECT_EQ(
      "Error in tarn_protobuf parsing file " + s.file + " at line -1 column 0: File not found.",
      errorTexts(c.lines).back());
}

TEST(Context, MissingDiskPathWarnsWholeAndCreationGoesOn) {
  Schema s;
  std::string missing = s.dir.path() + "/" + std::string(1500, 'm');
  std::string bad = ";" + missing, good = ";" + s.dir.path();
  auto c = create({{"ProtoPath", bad.c_str()},
                   {"ProtoPath", good.c_str()},
                   {"ProtoFile", s.file.c_str()},
                   {"Type", s.type.c_str()}});
  ASSERT_NE(nullptr, c.context);
  // The warning is composed without a length limit; the MODULE_INIT line is cut.
  EXPECT_EQ((LogLine{16, "Error in tarn_protobuf: proto path does not exist: " + missing}),
            c.lines.at(1));
  EXPECT_EQ(1023u, c.lines.at(0).text.size());
  destroy(c.context);
}

TEST(Context, FileCountRefusalsKeepTheFirstWalksMappings) {
  struct Row {
    const char* name;
    int files;
    std::string expected;
  };
  for (const Row& row : {Row{"none", 0, kNeedFile}, Row{"two", 2, kOneFile}}) {
    SCOPED_TRACE(row.name);
    Schema s;
    std::string path = ";" + s.dir.path();
    std::vector<std::pair<const char*, const char*>> options = {{"ProtoPath", path.c_str()}};
    for (int i = 0; i < row.files; ++i) options.push_back({"ProtoFile", s.file.c_str()});
    options.push_back({"Type", s.type.c_str()});
    auto refused = create(options);
    EXPECT_EQ(nullptr, refused.context);
    EXPECT_THAT(refused.lines, ElementsAreArray(std::vector<LogLine>{
                                   {8, kInit + "ProtoPath = " + path}, {64, row.expected}}));
    // The mapping of the refused configuration serves a later context.
    auto later = create({{"ProtoFile", s.file.c_str()}, {"Type", s.type.c_str()}});
    EXPECT_NE(nullptr, later.context);
    destroy(later.context);
  }
}

TEST(Context, KeyMatching) {
  Schema s;
  std::string path = ";" + s.dir.path();
  // "Types" is a Type option: only the first four characters count.
  auto types = create(
      {{"ProtoPath", path.c_str()}, {"ProtoFile", s.file.c_str()}, {"Types", s.type.c_str()}});
  EXPECT_NE(nullptr, types.context);
  destroy(types.context);
  // Keys are case-sensitive and ProtoFile must match whole.
  for (const char* key : {"protofile", "ProtoFileX", "Protofile"}) {
    SCOPED_TRACE(key);
    auto c = create({{key, s.file.c_str()}, {"Type", s.type.c_str()}});
    EXPECT_EQ(nullptr, c.context);
    EXPECT_THAT(c.lines, ElementsAreArray(std::vector<LogLine>{{64, kNeedFile}}));
  }
  auto noType = create(
      {{"ProtoPath", path.c_str()}, {"ProtoFile", s.file.c_str()}, {"type", s.type.c_str()}});
  EXPECT_EQ(nullptr, noType.context);
  EXPECT_EQ((LogLine{128, kNeedType}), noType.lines.back());
}

TEST(Context, EmptyOptionLists) {
  EXPECT_EQ(nullptr, api().create_context(nullptr));
  tarn_module_option empty[] = {{nullptr, "ignored"}, {"ProtoFile", "x.proto"}, {nullptr, nullptr}};
  api();
  size_t mark = Logger::mark();
  EXPECT_EQ(nullptr, api().create_context(empty));
  EXPECT_THAT(Logger::linesSince(mark), ElementsAreArray(std::vector<LogLine>{{64, kNeedFile}}));
}

TEST(Context, EveryTypeMustResolveAndTheFirstIsTheRoot) {
  Schema s;
  std::string path = ";" + s.dir.path();
  std::string missing = s.package + ".Nope";
  auto two = create({{"ProtoPath", path.c_str()},
                     {"ProtoFile", s.file.c_str()},
                     {"Type", s.type.c_str()},
                     {"Type", s.type.c_str()}});
  ASSERT_NE(nullptr, two.context);
  EXPECT_EQ(2, std::count(two.lines.begin(), two.lines.end(),
                          LogLine{8, "tarn_protobuf added type " + s.type}));
  destroy(two.context);

  auto bad = create({{"ProtoPath", path.c_str()},
                     {"ProtoFile", s.file.c_str()},
                     {"Type", s.type.c_str()},
                     {"Type", missing.c_str()},
                     {"Type", "never.Looked.At"}});
  EXPECT_EQ(nullptr, bad.context);
  EXPECT_THAT(std::vector<LogLine>(bad.lines.end() - 2, bad.lines.end()),
              ElementsAreArray(std::vector<LogLine>{{8, "tarn_protobuf added type " + s.type},
                                                    {128, locateFailure(missing)}}));
}

TEST(Context, NullValuesNeverCrash) {
  Schema s;
  std::string path = ";" + s.dir.path();
  auto nullPath = create({{"ProtoPath", nullptr},
                          {"ProtoPath", path.c_str()},
                          {"ProtoFile", s.file.c_str()},
                          {"Type", s.type.c_str()}});
  EXPECT_NE(nullptr, nullPath.context);
  EXPECT_EQ((LogLine{8, kInit + "ProtoPath = (null)"}), nullPath.lines.at(0));
  destroy(nullPath.context);

  auto nullFile = create({{"ProtoFile", nullptr}, {"Type", s.type.c_str()}});
  EXPECT_NE(nullptr, nullFile.context) << "the type is already in the shared pool";
  destroy(nullFile.context);

  auto nullType = create({{"ProtoFile", s.file.c_str()}, {"Type", nullptr}});
  EXPECT_EQ(nullptr, nullType.context);
  EXPECT_EQ((LogLine{8, "tarn_protobuf successfully loaded proto file " + s.file}),
            nullType.lines.back());
}

TEST(Context, ImportErrorsCarryTheImportersPositionsAndAccumulate) {
  TempDir dir;
  std::string path = ";" + dir.path();
  std::string syntax = uniqueName("syntax") + ".proto";
  std::string undefined = uniqueName("undefined") + ".proto";
  dir.write(syntax, "syntax = \"proto2\";\nmessage A {\n  optional int32 x = 1\n}\n");
  dir.write(undefined, "syntax = \"proto2\";\nmessage B { optional Missing m = 1; }\n");

  auto first = create({{"ProtoPath", path.c_str()}, {"ProtoFile", syntax.c_str()}, {"Type", "A"}});
  EXPECT_EQ(nullptr, first.context);
  auto firstErrors = errorTexts(first.lines);
  ASSERT_FALSE(firstErrors.empty());
  EXPECT_EQ(
      "Error in tarn_protobuf parsing file " + syntax + " at line 3 column 0: Expected \";\".",
      firstErrors.back());

  auto second = create({{"ProtoFile", undefined.c_str()}, {"Type", "B"}});
  EXPECT_EQ(nullptr, second.context);
  auto secondErrors = errorTexts(second.lines);
  // Every line collected so far comes again, oldest first, then the new one.
  ASSERT_EQ(firstErrors.size() + 1, secondErrors.size());
  EXPECT_TRUE(std::equal(firstErrors.begin(), firstErrors.end(), secondErrors.begin()));
  EXPECT_EQ("Error in tarn_protobuf parsing file " + undefined +
                " at line 1 column 21: \"Missing\" is not defined.",
            secondErrors.back());

  // A successful import logs none of them.
  Schema s;
  std::string good = ";" + s.dir.path();
  auto fine = create(
      {{"ProtoPath", good.c_str()}, {"ProtoFile", s.file.c_str()}, {"Type", s.type.c_str()}});
  EXPECT_NE(nullptr, fine.context);
  EXPECT_TRUE(errorTexts(fine.lines).empty());
  destroy(fine.context);

  // A failed import does not refuse a type that an earlier context loaded.
  auto shared = create({{"ProtoFile", uniqueName("absent").c_str()}, {"Type", s.type.c_str()}});
  EXPECT_NE(nullptr, shared.context);
  EXPECT_EQ((LogLine{2, kCreated}), shared.lines.back());
  destroy(shared.context);
}

TEST(Context, FormattedLinesAreCutAt1023Characters) {
  std::string longName = std::string(2000, 'f') + ".proto";
  auto c = create({{"ProtoFile", longName.c_str()}, {"Type", "x"}});
  EXPECT_EQ(nullptr, c.context);
  const std::string expected = (kInit + "ProtoFile = " + longName).substr(0, 1023);
  EXPECT_EQ((LogLine{8, expected}), c.lines.at(0));
  // The importer's own error text is not cut.
  EXPECT_GT(errorTexts(c.lines).back().size(), 2000u);
}

TEST(Context, SameFileTwiceLoadsTwice) {
  Schema s;
  std::string path = ";" + s.dir.path();
  std::vector<tarn_message_type_context> contexts;
  for (int i = 0; i < 2; ++i) {
    auto c = create(
        {{"ProtoPath", path.c_str()}, {"ProtoFile", s.file.c_str()}, {"Type", s.type.c_str()}});
    ASSERT_NE(nullptr, c.context);
    EXPECT_EQ((LogLine{8, "tarn_protobuf successfully loaded proto file " + s.file}),
              c.lines.at(2));
    contexts.push_back(c.context);
  }
  // Destroying one leaves the other working.
  destroy(contexts[0]);
  tarn_host::ValueSet set;
  EXPECT_EQ(TARN_SUCCESS, tarn_test::parse(contexts[1], std::string("\x08\x01", 2), set));
  EXPECT_EQ(1u, set.size());
  destroy(contexts[1]);
}

TEST(Lifecycle, StartStopAndDestroyLog) {
  api();  // loaded and started once
  size_t mark = Logger::mark();
  EXPECT_EQ(TARN_SUCCESS, api().module_init(nullptr, &Logger::log, nullptr));
  tarn_module_option junk[] = {{"anything", "at all"}, {nullptr, nullptr}};
  EXPECT_EQ(TARN_SUCCESS, api().module_init(junk, &Logger::log, &std::malloc));
  EXPECT_EQ(TARN_SUCCESS, api().destroy_context(nullptr));
  const char* text = nullptr;
  size_t length = 0;
  EXPECT_EQ(TARN_SUCCESS, api().get_supported_options(nullptr, &text, &length));
  EXPECT_EQ("delta", std::string(text, length));
  EXPECT_THAT(Logger::linesSince(mark), ElementsAreArray(std::vector<LogLine>{
                                            {8, "tarn_protobuf message type module loaded"},
                                            {8, "tarn_protobuf message type module loaded"},
                                            {2, "tarn_protobuf message type context destroy"}}));
}

}  // namespace
