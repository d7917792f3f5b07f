// End-to-end tests of the command-line host: the built tarnpb is run as a user
// runs it, and its standard output, standard error and exit status are checked.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "host/value_set.h"
#include "temp_dir.h"
#include "wire.h"

namespace {

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs tarnpb with the arguments (already shell-quoted where needed).
ToolRun tarnpb(const std::string& args, const std::string& stdinText = "") {
  static tarn_test::TempDir scratch;
  const std::string errPath = scratch.path() + "/stderr";
  std::string command = std::string("'") + TARNPB_PATH + "' " + args + " 2>'" + errPath + "'";
  if (!stdinText.empty())
    command += " <'" + scratch.write("stdin", stdinText) + "'";
  else
    command += " </dev/null";
  ToolRun run;
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, "", "popen failed"};
  char chunk[4096];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) != 0) run.out.append(chunk, n);
  const int raw = ::pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  run.err = readFile(errPath);
  return run;
}

std::string lastLine(const std::string& text) {
  std::string trimmed = text;
  while (!trimmed.empty() && trimmed.back() == '\n') trimmed.pop_back();
  const size_t newline = trimmed.rfind('\n');
  return newline == std::string::npos ? trimmed : trimmed.substr(newline + 1);
}

std::string quote(const std::string& path) { return "'" + path + "'"; }

const std::string examples = std::string(TARN_SOURCE_DIR) + "/examples";
const std::string book =
    "-q -I " + quote(examples) + " --proto market_data.proto --type tarn.example.BookSnapshot ";
const std::string sample = "-q -I " + quote(std::string(TARN_SOURCE_DIR) + "/tests/data") +
                           " --proto sample.proto --type tarn.test.Sample ";

uint32_t pathHash(std::initializer_list<std::string> names) {
  uint32_t hash = tarn_host::default_base_hash;
  bool first = true;
  for (const auto& name : names) {
    if (!first) hash = tarn_message_xpath_hash_add_separator(hash);
    hash = tarn_message_xpath_hash_string(name.data(), name.size(), hash);
    first = false;
  }
  return hash;
}

// Every way a command line or an input can be wrong: one line on standard
// error, naming the problem, and the right status. Never a crash.
struct BadCase {
  const char* name;
  std::string args;
  int status;
  std::string lastErrorLine;
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class ToolRefuses : public testing::TestWithParam<BadCase> {};

TEST_P(ToolRefuses, WithOneClearLineAndItsStatus) {
  const BadCase& c = GetParam();
  const ToolRun run = tarnpb(c.args);
  EXPECT_EQ(c.status, run.status) << run.err;
  EXPECT_EQ(c.lastErrorLine, lastLine(run.err));
}

const std::string missing = "/nonexistent/tarnpb-test.bin";
const std::string storedText = examples + "/snapshot.txtpb";

INSTANTIATE_TEST_SUITE_P(
    Cases, ToolRefuses,
    testing::Values(
        BadCase{"NoCommand", "", 2,
                "exit status: 0 success, 1 refused by the module or the schema, 2 usage error"},
        BadCase{"UnknownCommand", "frobnicate", 2,
                "tarnpb: unknown command 'frobnicate' (see tarnpb --help)"},
        BadCase{"UnknownOption", "parse --bogus x", 2,
                "tarnpb parse: unknown option --bogus (see tarnpb parse --help)"},
        BadCase{"OptionWithoutValue", "parse x --proto", 2,
                "tarnpb parse: option --proto needs a value FILE"},
        BadCase{"SingleOptionTwice", "parse --type a --type b x", 2,
                "tarnpb parse: option --type may be given only once"},
        BadCase{"FlagWithValue", "parse --json=yes x", 2,
                "tarnpb parse: option --json takes no value"},
        BadCase{"NoSchema", "parse x", 2, "tarnpb parse: a schema is needed: --proto FILE"},
        BadCase{"NoMessage", "parse " + book, 2,
                "tarnpb parse: missing argument: tarnpb parse [options] MESSAGE"},
        BadCase{"TooManyMessages", "parse " + book + "a b", 2,
                "tarnpb parse: unexpected argument 'b' (see tarnpb parse --help)"},
        BadCase{"MergeNeedsTwo", "merge " + book + quote(storedText), 2,
                "tarnpb merge: missing argument: tarnpb merge [options] STORED UPDATE"},
        BadCase{"MissingFile", "parse " + book + missing, 2,
                "tarnpb parse: cannot read " + missing + ": No such file or directory"},
        BadCase{"DirectoryAsMessage", "parse " + book + quote(examples), 2,
                "tarnpb parse: cannot read " + examples + ": read error"},
        BadCase{"UnknownType",
                "parse -q -I " + quote(examples) +
                    " --proto market_data.proto --type tarn.example.Nope x",
                1,
                "tarnpb parse: the module refused the schema: tarn_protobuf failed to locate "
                "type tarn.example.Nope specified in the TARN message type configuration."},
        BadCase{"SeveralTypesNoneNamed",
                "parse -q --proto " + quote(examples + "/market_data.proto") + " x", 2,
                "tarnpb parse: market_data.proto has several message types; pick one with "
                "--type (tarn.example.Price, tarn.example.Instrument, tarn.example.Level, "
                "tarn.example.Trade, tarn.example.BookSnapshot)"},
        BadCase{"MissingModule", "parse --module /nonexistent/module.so " + book + "x", 1,
                "tarnpb parse: cannot load module /nonexistent/module.so: /nonexistent/module.so: "
                "cannot open shared object file: No such file or directory"},
        BadCase{"CapacityNotANumber", "trace --capacity lots " + book + quote(storedText), 2,
                "tarnpb trace: --capacity wants a number, not 'lots'"},
        BadCase{"FindUnknownField", "parse --find instrument.isin " + book + quote(storedText), 2,
                "tarnpb parse: --find instrument.isin: tarn.example.BookSnapshot has no such "
                "field path"},
        BadCase{"FindEmptyPart", "parse --find bids..price " + book + quote(storedText), 2,
                "tarnpb parse: 'bids..price' is not a dotted field path"},
        BadCase{"DelimitedText", "parse --delimited --text " + book + quote(storedText), 2,
                "tarnpb parse: --delimited reads wire format, not --text"},
        BadCase{"EncodeSeveralWithoutDelimited",
                "encode " + book + quote(storedText) + " " + quote(storedText), 2,
                "tarnpb encode: several inputs make one stream only with --delimited"},
        BadCase{"DecodeGarbage", "decode " + book + quote(examples + "/market_data.proto"), 1,
                "tarnpb decode: " + examples +
                    "/market_data.proto is not a valid tarn.example.BookSnapshot in wire format"},
        BadCase{
            "TextWithTypo", "encode " + book + quote(examples + "/market_data.proto"), 1,
            "tarnpb encode: " + examples + "/market_data.proto:1:1: Expected identifier, got: /"}),
    [](const testing::TestParamInfo<BadCase>& info) { return std::string(info.param.name); });

TEST(Tool, EveryCommandHasHelp) {
  for (const char* command : {"parse", "trace", "merge", "serialize", "encode", "decode", "demo"}) {
    const ToolRun run = tarnpb(std::string(command) + " --help");
    EXPECT_EQ(0, run.status) << command;
    EXPECT_EQ("usage: tarnpb " + std::string(command), run.out.substr(0, run.out.find(' ', 14)))
        << command;
    EXPECT_NE(std::string::npos, run.out.find("exit status: 0 success")) << command;
  }
  EXPECT_EQ(0, tarnpb("--help").status);
  EXPECT_EQ(tarnpb("help trace").out, tarnpb("trace -h").out);
}

// The JSON form names every field of every entry the module stored.
TEST(Tool, ParseJsonIsExact) {
  const std::string body =
      wire::Body().varint(1, 150).str(2, "a\"\x01").msg(5, wire::Body().str(1, "x"));
  tarn_test::TempDir dir;
  const ToolRun run = tarnpb("parse --json " + sample + quote(dir.write("m.bin", body)));
  ASSERT_EQ(0, run.status) << run.err;
  const std::string expected =
      "{\"type\":\"tarn.test.Sample\",\"bytes\":13,\"status\":0,\"partial\":false,\"entries\":[\n"
      " {\"index\":0,\"name\":\"id\",\"path\":\"id\",\"hash\":" +
      std::to_string(pathHash({"id"})) +
      ",\"depth\":0,\"parent\":null,\"first_child\":null,\"next_sibling\":1,\"kind\":\"int\","
      "\"value\":150,\"default\":false,\"required\":false,\"raw\":\"089601\"},\n"
      " {\"index\":1,\"name\":\"name\",\"path\":\"name\",\"hash\":" +
      std::to_string(pathHash({"name"})) +
      ",\"depth\":0,\"parent\":null,\"first_child\":null,\"next_sibling\":2,\"kind\":\"string\","
      "\"value\":\"a\\\"\\u0001\",\"default\":false,\"required\":false,\"raw\":\"1203612201\"},\n"
      " {\"index\":2,\"name\":\"inner\",\"path\":\"inner\",\"hash\":" +
      std::to_string(pathHash({"inner"})) +
      ",\"depth\":0,\"parent\":null,\"first_child\":3,\"next_sibling\":null,\"kind\":\"message\","
      "\"default\":false,\"required\":false,\"raw\":\"2a030a0178\"},\n"
      " {\"index\":3,\"name\":\"label\",\"path\":\"inner.label\",\"hash\":" +
      std::to_string(pathHash({"inner", "label"})) +
      ",\"depth\":1,\"parent\":2,\"first_child\":null,\"next_sibling\":null,\"kind\":\"string\","
      "\"value\":\"x\",\"default\":false,\"required\":false,\"raw\":\"0a0178\"}\n"
      "]}\n";
  EXPECT_EQ(expected, run.out);
}

// The tree shows one line per entry, indented below its message.
TEST(Tool, ParseTreeIsExact) {
  const std::string body = wire::Body().varint(1, 150).msg(5, wire::Body().str(1, "x"));
  tarn_test::TempDir dir;
  const ToolRun run = tarnpb("parse " + sample + quote(dir.write("m.bin", body)));
  ASSERT_EQ(0, run.status) << run.err;
  char hashes[3][16];
  std::snprintf(hashes[0], 16, "0x%08x", pathHash({"id"}));
  std::snprintf(hashes[1], 16, "0x%08x", pathHash({"inner"}));
  std::snprintf(hashes[2], 16, "0x%08x", pathHash({"inner", "label"}));
  EXPECT_EQ(std::string("tarn.test.Sample, 8 bytes, 3 entries\n") +
                "    #  hash        field    kind     value                         raw bytes\n"
                "    0  " +
                hashes[0] + "  id       int      150" + std::string(27, ' ') +
                "08 96 01\n"
                "    1  " +
                hashes[1] + "  inner    message  1 child" + std::string(23, ' ') +
                "2a 03 0a 01 78\n"
                "    2  " +
                hashes[2] + "    label  string   \"x\"" + std::string(27, ' ') + "0a 01 78\n",
            run.out);
}

// A message the module refuses: what it stored up to then is shown, the
// status is 1 and the last line says why.
TEST(Tool, ParseOfACorruptMessageShowsWhatWasStored) {
  tarn_test::TempDir dir;
  const std::string body = wire::Body().varint(1, 7).varint(9, 1);  // Sample has no field 9
  const ToolRun run = tarnpb("parse --json " + sample + quote(dir.write("bad.bin", body)));
  EXPECT_EQ(1, run.status);
  EXPECT_NE(std::string::npos, run.out.find("\"status\":255,"));
  EXPECT_NE(std::string::npos, run.out.find("\"name\":\"id\""));
  EXPECT_EQ("tarnpb parse: the module refused the message (status 255) after storing 1 entry",
            lastLine(run.err));
}

// --find hashes dotted paths the way the module does, so the host keeps
// exactly the asked fields and what lies below them.
TEST(Tool, FindKeepsTheAskedPaths) {
  struct Case {
    std::string finds;
    std::string paths;  // of the kept entries, in order
  };
  const Case cases[] = {
      {"--find id", "id"},
      {"--find inner", "inner inner.label"},
      {"--find inner.label", "inner.label"},
      {"--find name --find inner.label", "name inner.label"},
      {"--find ratio", ""},
  };
  tarn_test::TempDir dir;
  const std::string file =
      dir.write("m.bin", wire::Body().varint(1, 3).str(2, "n").msg(5, wire::Body().str(1, "x")));
  for (const Case& c : cases) {
    const ToolRun run = tarnpb("parse --json " + c.finds + " " + sample + quote(file));
    EXPECT_EQ(0, run.status) << c.finds << run.err;
    EXPECT_NE(std::string::npos, run.out.find("\"partial\":true")) << c.finds;
    std::string paths;
    for (size_t at = run.out.find("\"path\":\""); at != std::string::npos;
         at = run.out.find("\"path\":\"", at + 1)) {
      const size_t start = at + 8;
      paths += (paths.empty() ? "" : " ") + run.out.substr(start, run.out.find('"', start) - start);
    }
    EXPECT_EQ(c.paths, paths) << c.finds;
  }
}

// The trace is written as the module wrote it, NUL bytes included; --escape
// makes it safe for a terminal.
TEST(Tool, TraceIsPassedOnByteForByte) {
  tarn_test::TempDir dir;
  const std::string file =
      dir.write("m.bin", wire::Body().varint(1, 150).str(2, std::string("a\0\"b", 4)));
  const std::string text = std::string("protobuf({\"id\":150,\"name\":\"a\0\"b\"})\n", 35);
  EXPECT_EQ(text, tarnpb("trace " + sample + quote(file)).out);
  EXPECT_EQ("protobuf({\"id\":150,\"name\":\"a\\x00\"b\"})\n",
            tarnpb("trace --escape " + sample + quote(file)).out);
}

// --capacity hands the module exactly that room; a number needs 64 free bytes.
TEST(Tool, TraceCapacityIsTheHostBuffer) {
  struct Case {
    size_t capacity;
    int status;
    std::string out;
    std::string lastError;
  };
  const Case cases[] = {
      {79, 0, "protobuf({\"id\":1})\n", ""},
      {78, 1, "protobuf({\"id\":\n",
       "tarnpb trace: the module refused the trace (status 255) with 78 bytes of room; 15 bytes "
       "were written"},
      {8, 1, "\n",
       "tarnpb trace: the module refused the trace (status 255) with 8 bytes of room; 0 bytes "
       "were written"},
      {0, 1, "\n",
       "tarnpb trace: the module refused the trace (status 255) with 0 bytes of room; 0 bytes "
       "were written"},
  };
  tarn_test::TempDir dir;
  const std::string file = dir.write("m.bin", wire::Body().varint(1, 1));
  for (const Case& c : cases) {
    const ToolRun run =
        tarnpb("trace --capacity " + std::to_string(c.capacity) + " " + sample + quote(file));
    EXPECT_EQ(c.status, run.status) << c.capacity;
    EXPECT_EQ(c.out, run.out) << c.capacity;
    EXPECT_EQ(c.lastError, c.status ? lastLine(run.err) : "") << c.capacity;
  }
}

TEST(Tool, EncodeAndDecodeAreLibprotobufs) {
  const std::string text =
      "id: 150\nname: \"ab\"\ndeltas: -1\ndeltas: 2\ninner {\n  label: \"x\"\n}\n";
  const ToolRun encoded = tarnpb("encode -o /dev/stdout " + sample, text);
  ASSERT_EQ(0, encoded.status) << encoded.err;
  EXPECT_EQ("08 96 01 12 02 61 62 22 02 01 04 2A 03 0A 01 78", wire::hex(encoded.out));
  tarn_test::TempDir dir;
  const ToolRun decoded = tarnpb("decode " + sample + quote(dir.write("m.bin", encoded.out)));
  EXPECT_EQ(0, decoded.status) << decoded.err;
  EXPECT_EQ(text, decoded.out);
  // Text given to parse with --text (here on the standard input) is encoded first.
  const ToolRun parsed = tarnpb("parse --json --text " + sample + "-", text);
  EXPECT_EQ(0, parsed.status) << parsed.err;
  EXPECT_NE(std::string::npos, parsed.out.find("\"bytes\":16,"));
}

// A stream of length-delimited messages is summarised in one line; a refused
// message or a cut stream makes the status 1.
TEST(Tool, DelimitedStreamsAreSummarised) {
  tarn_test::TempDir dir;
  const std::string good = wire::Body().varint(1, 1).str(2, "ab");
  const std::string bad = wire::Body().varint(9, 1);
  auto stream = [](std::initializer_list<std::string> bodies) {
    std::string out;
    for (const auto& b : bodies) out += wire::varintBytes(b.size()) + b;
    return out;
  };
  struct Case {
    std::string bytes;
    std::string command;
    int status;
    std::string summary;  // up to the timing
    std::string lastError;
  };
  const Case cases[] = {
      {stream({good, good}), "parse", 0, "parsed 2 messages (2 ok, 0 refused), 12 bytes, 4 entries",
       ""},
      {stream({good, bad, good}), "parse", 1,
       "parsed 3 messages (2 ok, 1 refused), 14 bytes, 4 entries",
       "tarnpb parse: the module refused 1 of 3 messages"},
      {stream({good}) + "\x09\x08", "parse", 1,
       "parsed 1 messages (1 ok, 0 refused), 6 bytes, 2 entries",
       "tarnpb parse: corrupt stream: message 2 at byte 7 claims 9 bytes, 1 remain"},
      {stream({good}) + "\x80", "trace", 1,
       "traced 1 messages (1 ok, 0 refused), 6 bytes, 30 characters of trace",
       "tarnpb trace: corrupt stream: length prefix at byte 7 is cut off or too long"},
      {"", "parse", 0, "parsed 0 messages (0 ok, 0 refused), 0 bytes, 0 entries", ""},
  };
  for (const Case& c : cases) {
    const ToolRun run =
        tarnpb(c.command + " --delimited " + sample + quote(dir.write("s.bin", c.bytes)));
    EXPECT_EQ(c.status, run.status) << c.summary;
    EXPECT_EQ(c.summary + " in ", run.out.substr(0, c.summary.size() + 4));
    EXPECT_NE(std::string::npos, run.out.find(" MB/s, ")) << run.out;
    EXPECT_EQ(c.lastError, c.status ? lastLine(run.err) : "");
  }
}

// The module's log lines reach standard error with their level names, unless
// --quiet keeps only warnings and worse.
TEST(Tool, ModuleLogGoesToStandardError) {
  tarn_test::TempDir dir;
  const std::string file = dir.write("m.bin", wire::Body().varint(1, 1));
  const std::string loud = "-I " + quote(std::string(TARN_SOURCE_DIR) + "/tests/data") +
                           " --proto sample.proto --type tarn.test.Sample ";
  const ToolRun run = tarnpb("trace " + loud + quote(file));
  EXPECT_EQ(0, run.status);
  EXPECT_NE(std::string::npos, run.err.find("[info] tarn_protobuf message type module loaded\n"));
  EXPECT_NE(std::string::npos,
            run.err.find("[trace] tarn_protobuf message type context created successfully\n"));
  EXPECT_EQ("[info] tarn_protobuf message type module terminating", lastLine(run.err));
  const ToolRun quiet = tarnpb("trace -q -I /nonexistent/dir " + loud + quote(file));
  EXPECT_EQ(0, quiet.status);
  EXPECT_EQ("[warning] Error in tarn_protobuf: proto path does not exist: /nonexistent/dir\n",
            quiet.err);
}

// The delta-publish merge, byte for byte: update fields first, nested messages
// merged with the stored tag, stored fields the update lacks after them.
TEST(Tool, MergeWritesTheModulesMergedBody) {
  struct Case {
    const char* name;
    std::string stored;
    std::string update;
    std::string merged;  // hex
  };
  using wire::Body;
  const Case cases[] = {
      {"ScalarReplaced", Body().varint(1, 4).str(2, "b"), Body().varint(1, 5), "08 05 12 01 62"},
      {"UpdateFieldsFirst", Body().varint(1, 4), Body().str(2, "a"), "12 01 61 08 04"},
      {"NestedMerged", Body().varint(1, 4).str(2, "b").msg(5, Body().str(1, "x")),
       Body().msg(5, Body().str(1, "y")), "2A 03 0A 01 79 08 04 12 01 62"},
      {"EmptyUpdate", Body().varint(1, 4), "", "08 04"},
      {"PackedOnce", Body().str(4, "\x06").varint(1, 1), Body().str(4, std::string("\x02\x04", 2)),
       "22 02 02 04 08 01"},
  };
  tarn_test::TempDir dir;
  for (const Case& c : cases) {
    const std::string out = dir.path() + "/merged.bin";
    const ToolRun run =
        tarnpb("merge -o " + quote(out) + " " + sample + quote(dir.write("stored.bin", c.stored)) +
               " " + quote(dir.write("update.bin", c.update)));
    EXPECT_EQ(0, run.status) << c.name << run.err;
    EXPECT_EQ(c.merged, wire::hex(readFile(out))) << c.name;
    EXPECT_EQ(0u, run.out.find("merged message: tarn.test.Sample, ")) << c.name;
  }
  // Without -o, and with the standard output not a terminal, the body goes
  // there and the parsed view to standard error.
  const ToolRun piped = tarnpb("merge " + sample + quote(dir.write("s.bin", cases[0].stored)) +
                               " " + quote(dir.write("u.bin", cases[0].update)));
  EXPECT_EQ(0, piped.status);
  EXPECT_EQ(cases[0].merged, wire::hex(piped.out));
  EXPECT_EQ(0u, piped.err.find("merged message: tarn.test.Sample, 5 bytes, 2 entries\n"));
}

// A message rebuilt from its value list: submessages get four-byte length
// prefixes, the elements of a packed field are written once.
TEST(Tool, SerializeRebuildsFromTheValueList) {
  tarn_test::TempDir dir;
  const std::string out = dir.path() + "/rebuilt.bin";
  const ToolRun run =
      tarnpb("serialize -o " + quote(out) + " --text " + sample +
             quote(dir.write("m.txt",
                             "id: 150 name: \"ab\" deltas: [-1, 2] inner { label: \"x\" } "
                             "ratio: 0.25")));
  EXPECT_EQ(0, run.status) << run.err;
  EXPECT_EQ("08 96 01 12 02 61 62 22 02 01 04 2A 83 80 80 00 0A 01 78 35 00 00 80 3E",
            wire::hex(readFile(out)));
  EXPECT_EQ(
      "6 values, size answer 28, 24 bytes written; libprotobuf reads the same message as the "
      "input",
      lastLine(run.out));
}

// The demo needs no argument and runs the whole cycle on the bundled example.
TEST(Tool, DemoRunsTheWholeCycle) {
  const ToolRun run = tarnpb("demo -q");
  EXPECT_EQ(0, run.status) << run.err;
  EXPECT_EQ("", run.err);
  for (const char* piece : {
           "== the module's value set for it\ntarn.example.BookSnapshot, 121 bytes, 41 entries\n",
           "\n== the module's trace of it\nprotobuf({\"instrument\":{\"symbol\":\"ACME\",",
           "\"checksum\":\"\\x1f\\x8b\\x00\\x7f\"})\n",
           "== merged by the module (delta publish)\n125 bytes: ",
           "  quantity: 250\n  aggressor: ASK\n  trade_id: 4400917\n}\n",
           "phase: AUCTION\n",
       }) {
    EXPECT_NE(std::string::npos, run.out.find(piece)) << piece;
  }
  const ToolRun elsewhere = tarnpb("demo --examples /nonexistent");
  EXPECT_EQ(2, elsewhere.status);
  EXPECT_EQ("tarnpb demo: the example is not in /nonexistent (give --examples DIR)",
            lastLine(elsewhere.err));
}

}  // namespace

#endif
