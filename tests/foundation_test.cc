// What the host sees before any message: the module's symbol table, context
// creation against the exact log lines, and the host's value-set lookups and
// worklist that the module compiles against.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

#include "module_fixture.h"
#include "tarn/tarn_xpath_value_set.h"
#include "util/base/hybrid_worklist.h"

namespace {

using tarn_host::Logger;
using tarn_host::LogLine;
using tarn_test::api;

TEST(Symbols, ExactlyTheElevenEntryPointsAndTheHostImports) {
  std::ifstream in(TARN_MODULE_PATH, std::ios::binary);
  const std::string image((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_GE(image.size(), sizeof(Elf64_Ehdr));
  std::set<std::string> functions, otherDefined, undefined;
  auto header = reinterpret_cast<const Elf64_Ehdr*>(image.data());
  auto sections = reinterpret_cast<const Elf64_Shdr*>(image.data() + header->e_shoff);
  for (int i = 0; i < header->e_shnum; ++i) {
    if (sections[i].sh_type != SHT_DYNSYM) continue;
    const char* names = image.data() + sections[sections[i].sh_link].sh_offset;
    auto symbols = reinterpret_cast<const Elf64_Sym*>(image.data() + sections[i].sh_offset);
    for (size_t k = 1; k < sections[i].sh_size / sizeof(Elf64_Sym); ++k) {
      if (ELF64_ST_BIND(symbols[k].st_info) == STB_LOCAL) continue;
      const std::string name = names + symbols[k].st_name;
      if (symbols[k].st_shndx == SHN_UNDEF)
        undefined.insert(name);
      else
        (ELF64_ST_TYPE(symbols[k].st_info) == STT_FUNC ? functions : otherDefined).insert(name);
    }
  }
  EXPECT_THAT(functions, ::testing::UnorderedElementsAreArray(tarn_host::entryPointNames()));
  EXPECT_EQ(11u, functions.size());
  EXPECT_THAT(otherDefined, ::testing::IsEmpty());
  for (const char* host :
       {"tarn_message_xpath_update", "tarn_message_xpath_get", "tarn_message_xpath_hash_string",
        "tarn_message_xpath_hash_add_separator", "tarn_message_xpath_hash_get_base"})
    EXPECT_EQ(1u, undefined.count(host)) << host;
}

// One schema with a unique file and package name per use: the module's pool
// remembers every file and type it has seen.
struct Schema {
  tarn_test::TempDir dir;
  std::string package = tarn_test::uniqueName("pkg");
  std::string file = tarn_test::uniqueName("schema") + ".proto";
  std::string virt = tarn_test::uniqueName("virt");
  Schema() {
    const std::string text =
        "syntax = \"proto2\";\npackage " + package + ";\nmessage Thing { optional int32 a = 1; }\n";
    dir.write(file, text);
    dir.write("with;semicolon/" + file, text);
  }
  // Expands the shorthands of the tables below.
  std::string operator()(std::string s) const {
    const std::pair<std::string, std::string> subs[] = {
        {"$DONE",
         "8 tarn_protobuf successfully loaded proto file $FILE|8 tarn_protobuf added type "
         "$TYPE|2 tarn_protobuf message type context created successfully"},
        {"$INIT", "tarn_protobuf message type MODULE_INIT:"},
        {"$LOCATE", "128 tarn_protobuf failed to locate type"},
        {"$CONFIG", "specified in the TARN message type configuration."},
        {"$NEEDFILE", "64 tarn_protobuf a ProtoFile is required in the configuration"},
        {"$DIR", dir.path()},
        {"$FILE", file},
        {"$TYPE", package + ".Thing"},
        {"$PKG", package},
        {"$VIRT", virt},
        {"$LONG", std::string(2000, 'f') + ".proto"}};
    for (const auto& sub : subs)
      for (size_t at; (at = s.find(sub.first)) != std::string::npos;)
        s.replace(at, sub.first.size(), sub.second);
    return s;
  }
};

std::vector<std::string> split(const std::string& s) {
  std::vector<std::string> out;
  for (size_t start = 0, bar; start <= s.size(); start = bar + 1) {
    bar = std::min(s.find('|', start), s.size());
    out.push_back(s.substr(start, bar - start));
  }
  return out;
}

struct Created {
  tarn_message_type_context context;
  std::vector<LogLine> lines;
  std::string logged;  // "level text|..." without the importer's errors (level 32)
  std::vector<std::string> errors;
};

// Creates a context from "key=value|..." ("$NULL" passes a null value).
Created create(const Schema& s, const std::string& options) {
  std::vector<std::string> texts;
  for (const std::string& option : split(s(options))) {
    texts.push_back(option.substr(0, option.find('=')));
    texts.push_back(option.substr(option.find('=') + 1));
  }
  tarn_host::ContextOptions holder;
  for (size_t i = 0; i < texts.size(); i += 2)
    holder.add(texts[i].c_str(), texts[i + 1] == "$NULL" ? nullptr : texts[i + 1].c_str());
  api();  // loaded and started before the mark
  const size_t mark = Logger::mark();
  Created out{api().create_context(holder.get()), Logger::linesSince(mark), "", {}};
  for (const LogLine& l : out.lines) {
    if (l.level == tarn_module_log_level_error)
      out.errors.push_back(l.text);
    else
      out.logged += (out.logged.empty() ? "" : "|") + std::to_string(l.level) + " " + l.text;
  }
  return out;
}

void destroy(std::initializer_list<tarn_message_type_context> contexts) {
  for (auto context : contexts)
    if (context) api().destroy_context(context);
}

TEST(Context, CreationLogsExactLines) {
  const struct {
    const char* name;
    std::string options, lines;
    bool laterCreated;  // a later context naming only ProtoFile and Type is created
  } cases[] = {
      {"options out of order: paths, then the file, then types",
       "Type=$TYPE|ProtoFile=$FILE|ProtoPath=;$DIR",
       "8 $INIT ProtoPath = ;$DIR|8 $INIT ProtoFile = $FILE|$DONE", true},
      {"the second ; belongs to the disk path",
       "ProtoPath=$VIRT;$DIR/with;semicolon|ProtoFile=$VIRT/$FILE|Type=$TYPE",
       "8 $INIT ProtoPath = $VIRT;$DIR/with;semicolon|8 $INIT ProtoFile = $VIRT/$FILE|8 "
       "tarn_protobuf successfully loaded proto file $VIRT/$FILE|8 tarn_protobuf added type "
       "$TYPE|2 tarn_protobuf message type context created successfully",
       true},
      {"a path without ; maps nothing", "ProtoPath=$DIR|ProtoFile=$FILE|Type=$TYPE",
       "8 $INIT ProtoPath = $DIR|8 $INIT ProtoFile = $FILE|$LOCATE $TYPE $CONFIG", false},
      {"a missing disk path warns and creation goes on",
       "ProtoPath=;$DIR/missing|ProtoPath=;$DIR|ProtoFile=$FILE|Type=$TYPE",
       "8 $INIT ProtoPath = ;$DIR/missing|16 Error in tarn_protobuf: proto path does not exist: "
       "$DIR/missing|8 $INIT ProtoPath = ;$DIR|8 $INIT ProtoFile = $FILE|$DONE",
       true},
      {"no ProtoFile refuses, the path stays mapped", "ProtoPath=;$DIR|Type=$TYPE",
       "8 $INIT ProtoPath = ;$DIR|$NEEDFILE", true},
      {"two ProtoFile refuse, the path stays mapped",
       "ProtoPath=;$DIR|ProtoFile=$FILE|ProtoFile=$FILE|Type=$TYPE",
       "8 $INIT ProtoPath = ;$DIR|64 tarn_protobuf only one ProtoFile may be set in the "
       "configuration",
       true},
      {"Types counts as Type", "ProtoPath=;$DIR|ProtoFile=$FILE|Types=$TYPE",
       "8 $INIT ProtoPath = ;$DIR|8 $INIT ProtoFile = $FILE|$DONE", true},
      {"protofile counts as nothing", "protofile=$FILE|Type=$TYPE", "$NEEDFILE", false},
      {"a second Type failing refuses",
       "ProtoPath=;$DIR|ProtoFile=$FILE|Type=$TYPE|Type=$PKG.Nope|Type=never.Looked.At",
       "8 $INIT ProtoPath = ;$DIR|8 $INIT ProtoFile = $FILE|8 tarn_protobuf successfully loaded "
       "proto file $FILE|8 tarn_protobuf added type $TYPE|$LOCATE $PKG.Nope $CONFIG",
       true},
      {"a null value is logged as (null)",
       "ProtoPath=$NULL|ProtoPath=;$DIR|ProtoFile=$FILE|Type=$TYPE",
       "8 $INIT ProtoPath = (null)|8 $INIT ProtoPath = ;$DIR|8 $INIT ProtoFile = $FILE|$DONE",
       true},
      // Formatted lines are cut at 1023 characters.
      {"a long line is cut", "ProtoFile=$LONG|Type=x",
       "8 $INIT ProtoFile = $LONG|$LOCATE x $CONFIG", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Schema s;
    Created made = create(s, c.options);
    std::string expected;  // each text cut at 1023 characters
    for (const std::string& line : split(s(c.lines)))
      expected += (expected.empty() ? "" : "|") + line.substr(0, line.find(' ') + 1 + 1023);
    EXPECT_EQ(expected, made.logged);
    Created later = create(s, "ProtoFile=$FILE|Type=$TYPE");
    EXPECT_EQ(c.laterCreated, later.context != nullptr);
    destroy({made.context, later.context});
  }
}

TEST(Context, ImportErrorsCarryTheImportersPositionsAndAccumulate) {
  Schema s;
  const std::string syntax = tarn_test::uniqueName("syntax") + ".proto";
  const std::string undefined = tarn_test::uniqueName("undefined") + ".proto";
  const std::string absent = tarn_test::uniqueName("absent") + ".proto";
  s.dir.write(syntax, "syntax = \"proto2\";\nmessage A {\n  optional int32 x = 1\n}\n");
  s.dir.write(undefined, "syntax = \"proto2\";\nmessage B { optional Missing m = 1; }\n");
  const std::string error = "Error in tarn_protobuf parsing file ";

  Created first = create(s, "ProtoPath=;$DIR|ProtoFile=" + syntax + "|Type=A");
  EXPECT_EQ(nullptr, first.context);
  ASSERT_FALSE(first.errors.empty());
  EXPECT_EQ(error + syntax + R"( at line 3 column 0: Expected ";".)", first.errors.back());

  // Every line collected so far comes again, oldest first, then the new one.
  Created second = create(s, "ProtoFile=" + undefined + "|Type=B");
  EXPECT_EQ(nullptr, second.context);
  ASSERT_EQ(first.errors.size() + 1, second.errors.size());
  EXPECT_TRUE(std::equal(first.errors.begin(), first.errors.end(), second.errors.begin()));
  EXPECT_EQ(error + undefined + R"( at line 1 column 21: "Missing" is not defined.)",
            second.errors.back());

  // A successful import logs none of them.
  Created fine = create(s, "ProtoFile=$FILE|Type=$TYPE");
  EXPECT_NE(nullptr, fine.context);
  EXPECT_TRUE(fine.errors.empty());

  // A failed import does not refuse a type that an earlier context loaded.
  Created shared = create(s, "ProtoFile=" + absent + "|Type=$TYPE");
  EXPECT_NE(nullptr, shared.context);
  ASSERT_FALSE(shared.errors.empty());
  EXPECT_EQ(error + absent + " at line -1 column 0: File not found.", shared.errors.back());
  EXPECT_EQ("2 tarn_protobuf message type context created successfully",
            split(shared.logged).back());
  destroy({fine.context, shared.context});
}

using KeyData = tarn::tarn_xpath_value_set::key_data;

uint32_t store(tarn_host::ValueSet& set, uint32_t hash) {
  tarn_message_value_set_entry entry = {};
  entry.hash = hash;
  entry.parent = entry.first_child = entry.next_sibling = tarn_test::INV;
  tarn_message_value_set_entry_set_long(&entry, hash * 10);
  return tarn_message_xpath_update(set.handle(), nullptr, &entry);
}

TEST(ValueSetLookup, ProbesFromTheHomeSlotAndWraps) {
  tarn_host::ValueSet set;
  // Home slots under mask 15: 1 -> 1, 17 -> 1 (collides), 15 -> 15, 31 -> 15 (wraps to 0).
  for (uint32_t hash : {1u, 17u, 15u, 31u}) store(set, hash);
  ASSERT_EQ(16u, set.impl()._bucketCount);
  const std::tuple<uint32_t, int, uint32_t> rows[] = {
      {1, 1, 0}, {17, 2, 1}, {15, 15, 2}, {31, 0, 3}, {47, -1, 0} /* 15, 0, 1, 2, empty 3 */,
      {4, -1, 0}};
  for (const auto& [hash, slot, index] : rows) {
    const KeyData* key = set.impl().find(hash);
    EXPECT_EQ(slot, key ? static_cast<int>(key - set.impl()._pKeys) : -1) << hash;
    EXPECT_EQ(slot < 0 ? nullptr : tarn_message_xpath_get(set.handle(), index),
              static_cast<void*>(set.set().fastFind(hash)))
        << hash;
  }
  // The host never fills its table, but a lookup must end on one that is full.
  KeyData keys[4] = {{5, 0}, {6, 1}, {7, 2}, {8, 3}};
  tarn::tarn_xpath_value values[4] = {};
  tarn::tarn_xpath_value_set::value_set_impl impl = {};
  impl._bucketCount = 4;
  impl._bucketMask = 3;
  impl._pKeys = keys;
  impl._pValues = values;
  tarn::tarn_xpath_value_set full{&impl};
  EXPECT_EQ(nullptr, impl.find(9));
  EXPECT_EQ(&values[2], full.fastFind(7));
}

TEST(HybridWorklist, CrossesFromInlineToHeapAndKeepsOrder) {
  for (unsigned n = 0; n <= 40; ++n) {
    tarn::hybrid_worklist<std::pair<int, int>, 16> list;
    for (unsigned i = 0; i < n; ++i) list.push_back({static_cast<int>(i), static_cast<int>(2 * i)});
    SCOPED_TRACE(n);
    ASSERT_EQ(n, list.size());
    EXPECT_EQ(n > 16, list.onHeap());
    EXPECT_EQ(n <= 16 ? 16u : n <= 32 ? 32u : 64u, list.capacity());
    for (unsigned i = 0; i < n; ++i) EXPECT_EQ(static_cast<int>(2 * i), list[i].second);
  }
}

}  // namespace
