#include "tool_run.h"

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace tarn_test {

std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::string quote(const std::string& path) { return "'" + path + "'"; }

TempDir& scratch() {
  static TempDir* pDir = new TempDir();
  return *pDir;
}

ToolRun tarnpb(const std::string& args) {
  const std::string errPath = scratch().path() + "/stderr";
  const std::string command =
      quote(TARNPB_PATH) + " " + args + " 2>" + quote(errPath) + " </dev/null";
  ToolRun run{-1, "", ""};
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  char chunk[4096];
  for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, pipe)) != 0;) run.out.append(chunk, n);
  const int raw = ::pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  std::string err = readFile(errPath);
  while (!err.empty() && err.back() == '\n') err.pop_back();
  run.lastError = err.substr(err.rfind('\n') == std::string::npos ? 0 : err.rfind('\n') + 1);
  return run;
}

}  // namespace tarn_test
