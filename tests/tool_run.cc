#include "tool_run.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "module_fixture.h"

namespace tool_run {

tarn_test::TempDir& scratch() {
  static tarn_test::TempDir* pDir = new tarn_test::TempDir();
  return *pDir;
}

std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void expectLastLines(const std::vector<LastLine>& cases) {
  for (const auto& c : cases) {
    const ToolRun run = tarnpb(c.args);
    EXPECT_EQ(c.status, run.status) << c.args;
    EXPECT_EQ(c.lastError, run.lastError) << c.args;
  }
}

std::string writeScratch(const std::string& name, const std::string& text) {
  const std::string path = scratchPath(name);
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

std::string quote(const std::string& path) { return "'" + path + "'"; }

std::string file(const std::string& bytes) {
  return quote(scratch().write(tarn_test::uniqueName("m"), bytes));
}

std::string scratchPath(const std::string& name) { return scratch().path() + "/" + name; }

ToolRun tarnpb(const std::string& args, const std::string& stdin_, const std::string& cwd_) {
  const std::string errPath = scratchPath(tarn_test::uniqueName("stderr"));
  const std::string command = (cwd_.empty() ? "" : "cd " + quote(cwd_) + " && ") +
                              quote(TARNPB_PATH) + " " + args + " 2>" + quote(errPath) + " <" +
                              quote(stdin_);
  ToolRun run{-1, "", "", ""};
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  char chunk[4096];
  for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, pipe)) != 0;) run.out.append(chunk, n);
  const int raw = ::pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  run.err = readFile(errPath);
  std::string err = run.err;
  while (!err.empty() && err.back() == '\n') err.pop_back();
  run.lastError = err.substr(err.rfind('\n') == std::string::npos ? 0 : err.rfind('\n') + 1);
  return run;
}

const std::string examples = std::string(TARN_SOURCE_DIR) + "/examples";
const std::string book =
    "-q -I " + quote(examples) + " --proto market_data.proto --type tarn.example.BookSnapshot ";
const std::string sample = "-q -I " + quote(std::string(TARN_SOURCE_DIR) + "/tests/data") +
                           " --proto sample.proto --type tarn.test.Sample ";

}  // namespace tool_run
