// Files that are not schema text, given as a ProtoFile by mistake or malice:
// each is refused at once, costs one import error line that says why, and
// leaves the module able to create a valid context afterwards. Deep nesting
// is refused on a thread whose stack could not carry it, however small.
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <thread>

#include "module_fixture.h"

namespace {

using tarn_host::Logger;
using tarn_host::LogLine;
using tarn_test::api;

// Runs call_ on the calling thread and fails the whole test binary when it has
// not returned within a few seconds: a hang here is the defect under test, and
// no later test could run after it.
void withinSeconds(const std::function<void()>& call_) {
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  std::thread watchdog([&] {
    std::unique_lock<std::mutex> lock(mutex);
    if (!finished.wait_for(lock, std::chrono::seconds(5), [&] { return done; })) {
      std::fprintf(stderr, "context creation still blocked after 5 s\n");
      std::_Exit(1);
    }
  });
  call_();
  {
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
  }
  finished.notify_one();
  watchdog.join();
}

// Runs call_ on a new thread whose stack is exactly stackBytes_, above a guard
// page. The stack is the test's own: the system would otherwise hand the
// thread a larger one it keeps from an earlier thread.
void onStackOf(size_t stackBytes_, const std::function<void()>& call_) {
  const size_t guard = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  void* pBlock = ::mmap(nullptr, guard + stackBytes_, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  ASSERT_NE(MAP_FAILED, pBlock);
  ASSERT_EQ(0, ::mprotect(pBlock, guard, PROT_NONE));
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, static_cast<char*>(pBlock) + guard, stackBytes_);
  pthread_t thread;
  auto run = [](void* pCall_) -> void* {
    (*static_cast<const std::function<void()>*>(pCall_))();
    return nullptr;
  };
  ASSERT_EQ(0,
            pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&call_)));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  ::munmap(pBlock, guard + stackBytes_);
}

struct Outcome {
  bool created;
  std::vector<LogLine> lines;
  std::vector<std::string> fileLines;  // the import errors that name the file
  size_t newLines;                     // lines but the repeated import errors of earlier failures
};

// Creates a context for `file` under `dir` on the calling thread.
Outcome create(const std::string& dir_, const std::string& file_, const std::string& type_) {
  const size_t mark = Logger::mark();
  tarn_message_type_context context = nullptr;
  withinSeconds([&] { context = tarn_test::makeContext(dir_, file_, type_); });
  Outcome outcome{context != nullptr, Logger::linesSince(mark), {}, 0};
  for (const LogLine& line : outcome.lines) {
    const bool earlier = line.level == 32 && line.text.find(" " + file_ + " ") == std::string::npos;
    if (line.level == 32 && !earlier) outcome.fileLines.push_back(line.text);
    outcome.newLines += !earlier;
  }
  if (context != nullptr) api().destroy_context(context);
  return outcome;
}

std::string importError(const std::string& file_, const std::string& message_) {
  return "Error in tarn_protobuf parsing file " + file_ + " at line -1 column 0: " + message_;
}

// A valid schema still loads after whatever went before.
void expectStillWorking() {
  tarn_test::TempDir dir;
  const std::string file = tarn_test::uniqueName("after") + ".proto";
  dir.write(file, "syntax = \"proto3\";\npackage after;\nmessage A { int32 a = 1; }\n");
  EXPECT_TRUE(create(dir.path(), file, "after.A").created);
}

// Messages nested depth_ deep (libprotobuf itself refuses 32 or more).
std::string nestedMessages(const std::string& package_, unsigned depth_) {
  std::string text = "syntax = \"proto3\";\npackage " + package_ + ";\n";
  for (unsigned i = 0; i < depth_; ++i) text += "message M" + std::to_string(i) + " {\n";
  for (unsigned i = 0; i < depth_; ++i) text += "}\n";
  return text;
}

// A field option whose text-format value nests blocks depth_ deep in all,
// counting the message and the option's brackets: libprotobuf bounds none of it.
std::string nestedOption(const std::string& package_, unsigned depth_) {
  std::string text = "syntax = \"proto2\";\npackage " + package_ +
                     ";\nimport \"google/protobuf/descriptor.proto\";\n"
                     "message R { optional R r = 1; }\n"
                     "extend google.protobuf.FieldOptions { optional R ropt = 50000; }\n"
                     "message M0 {\n  optional int32 a = 1 [(ropt) = {";
  for (unsigned i = 3; i < depth_; ++i) text += " r <";
  for (unsigned i = 3; i < depth_; ++i) text += ">";
  return text + "}];\n}\n";
}

std::string descriptorSet() {
  google::protobuf::FileDescriptorSet set;
  google::protobuf::FileDescriptorProto::descriptor()->file()->CopyTo(set.add_file());
  return set.SerializeAsString();
}

std::string randomBytes(size_t n_) {
  std::mt19937_64 random(24);
  std::string bytes(n_, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

TEST(HostileSchemaFiles, RefusedAtOnceWithOneLineThatSaysWhy) {
  (void)api();
  tarn_test::TempDir dir;
  const std::string fifo = tarn_test::uniqueName("fifo") + ".proto";
  ASSERT_EQ(0, ::mkfifo((dir.path() + "/" + fifo).c_str(), 0600));
  const std::string large = tarn_test::uniqueName("large") + ".proto";
  ASSERT_EQ(0, ::truncate(dir.write(large, "").c_str(), (16 << 20) + 1));
  const std::string random = tarn_test::uniqueName("random") + ".proto";
  dir.write(random, randomBytes(10 << 20));
  const std::string desc = tarn_test::uniqueName("image") + ".desc";
  dir.write(desc, descriptorSet());

  struct Case {
    std::string dir, file, reason;
  };
  const Case cases[] = {
      {dir.path(), fifo, dir.path() + "/" + fifo + " is not a regular file"},
      {"/dev", "zero", "/dev/zero is not a regular file"},
      {"/dev", "urandom", "/dev/urandom is not a regular file"},
      {dir.path(), large, dir.path() + "/" + large + " is larger than 16 MB"},
      {dir.path(), random,
       dir.path() + "/" + random + " holds binary content (a NUL byte), not .proto text"},
      {dir.path(), desc,
       dir.path() + "/" + desc + " holds binary content (a NUL byte), not .proto text"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = create(c.dir, c.file, "x.Y");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_FALSE(outcome.created);
    EXPECT_EQ(std::vector<std::string>{importError(c.file, c.reason)}, outcome.fileLines);
    EXPECT_LE(outcome.newLines, 20u);
    expectStillWorking();
  }
}

TEST(HostileSchemaFiles, ADirectoryPassesTheSearchOnAsBefore) {
  tarn_test::TempDir first, second;
  const std::string file = tarn_test::uniqueName("dir") + ".proto";
  ASSERT_EQ(0, ::mkdir((first.path() + "/" + file).c_str(), 0700));
  second.write(file, "syntax = \"proto3\";\npackage dir;\nmessage D {}\n");
  tarn_host::ContextOptions options;
  const std::string a = ";" + first.path(), b = ";" + second.path();
  options.add("ProtoPath", a.c_str()).add("ProtoPath", b.c_str());
  options.add("ProtoFile", file.c_str()).add("Type", "dir.D");
  tarn_message_type_context context = api().create_context(options.get());
  EXPECT_NE(nullptr, context);
  api().destroy_context(context);
}

TEST(HostileSchemaFiles, NestingBeyondTheStackIsRefusedNamingTheDepth) {
  (void)api();
  tarn_test::TempDir dir;
  std::filesystem::create_directories(dir.path() + "/google/protobuf");
  std::filesystem::copy_file("/usr/include/google/protobuf/descriptor.proto",
                             dir.path() + "/google/protobuf/descriptor.proto");
  struct Case {
    size_t stack;
    std::string (*text)(const std::string&, unsigned);
    unsigned depth;
    bool created;
    std::string reason;  // after the disk path
  };
  const Case cases[] = {
      {256 << 10, nestedMessages, 2000, false,
       " nests blocks 2000 deep, past the 100 levels allowed on this thread (line 102 column 13)"},
      {256 << 10, nestedMessages, 20000, false, " nests blocks 20000 deep, past the 100 levels"},
      {64 << 10, nestedMessages, 2000, false, " nests blocks 2000 deep, past the "},
      {256 << 10, nestedMessages, 31, true, ""},
      {8 << 20, nestedOption, 100, true, ""},
      {8 << 20, nestedOption, 101, false,
       " nests blocks 101 deep, past the 100 levels allowed on this thread (line 6 column "},
      // Less stack, fewer levels: libprotobuf would need about 130 KB for these.
      {128 << 10, nestedOption, 100, false, " nests blocks 100 deep, past the "},
  };
  for (const Case& c : cases) {
    const std::string package = tarn_test::uniqueName("deep"), file = package + ".proto";
    SCOPED_TRACE(file + " on " + std::to_string(c.stack >> 10) + " KB");
    dir.write(file, c.text(package, c.depth));
    Outcome outcome;
    onStackOf(c.stack, [&] { outcome = create(dir.path(), file, package + ".M0"); });
    EXPECT_EQ(c.created, outcome.created);
    if (c.created) continue;
    ASSERT_EQ(1u, outcome.fileLines.size());
    const std::string expected = importError(file, dir.path() + "/" + file + c.reason);
    EXPECT_EQ(expected, outcome.fileLines[0].substr(0, expected.size()));
    onStackOf(c.stack, expectStillWorking);
  }
}

TEST(HostileSchemaFiles, ImportsChainedBeyondTheStackAreRefused) {
  (void)api();
  tarn_test::TempDir dir;
  const std::string stem = tarn_test::uniqueName("chain");
  const int length = 400;  // libprotobuf alone overflows 256 KB at about 190
  for (int i = 0; i < length; ++i) {
    std::string text = "syntax = \"proto3\";\npackage chain;\n";
    if (i + 1 < length) text += "import \"" + stem + std::to_string(i + 1) + ".proto\";\n";
    dir.write(stem + std::to_string(i) + ".proto",
              text + "message C" + std::to_string(i) + " {}\n");
  }
  Outcome outcome;
  onStackOf(256 << 10, [&] { outcome = create(dir.path(), stem + "0.proto", "chain.C0"); });
  EXPECT_FALSE(outcome.created);
  bool named = false;
  for (const LogLine& line : outcome.lines)
    named |= line.text.find(stem) != std::string::npos &&
             line.text.find("this thread") != std::string::npos;
  EXPECT_TRUE(named);
  onStackOf(256 << 10, expectStillWorking);
}

// The module logs names as given; a host escapes them when it shows a line.
TEST(HostileSchemaFiles, ControlCharactersInNamesReachTheLoggerAsGivenAndAreEscapedOnShow) {
  const std::string file = "evil\n[  2] tarn_protobuf forged\x1b[2J\\.proto";
  const Outcome outcome = create("/nonexistent-dir-for-names", file, "x.Y");
  EXPECT_FALSE(outcome.created);
  const LogLine given{8, "tarn_protobuf message type MODULE_INIT: ProtoFile = " + file};
  EXPECT_NE(outcome.lines.end(), std::find(outcome.lines.begin(), outcome.lines.end(), given));
  EXPECT_EQ("evil\\x0a[  2] tarn_protobuf forged\\x1b[2J\\x5c.proto",
            Logger::printable(file.c_str()));
}

TEST(HostileSchemaFiles, BracesInCommentsAndStringsDoNotCount) {
  tarn_test::TempDir dir;
  const std::string file = tarn_test::uniqueName("quoted") + ".proto";
  const std::string many(300, '{');
  dir.write(file, "syntax = \"proto2\";\npackage quoted;\n// " + many + "\n/* " + many +
                      "\n */\nmessage Q {\n  optional string s = 1 [default = \"" + many +
                      "\"];\n  optional string t = 2 [default = '" + many + "\\'" + many +
                      "'];\n}\n");
  EXPECT_TRUE(create(dir.path(), file, "quoted.Q").created);
}

}  // namespace
