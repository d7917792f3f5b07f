// Runs the built command-line host as a user runs it, for the tool's tests:
// standard output, the last line of standard error and the exit status.
#ifndef TARN_TESTS_TOOL_RUN_H
#define TARN_TESTS_TOOL_RUN_H

#include <string>

#include "module_fixture.h"

namespace tarn_test {

struct ToolRun {
  int status;
  std::string out, lastError;
};

std::string readFile(const std::string& path);
std::string quote(const std::string& path);

// A directory that lives as long as the test process.
TempDir& scratch();

// Runs tarnpb with the arguments (already shell-quoted where needed), with no
// standard input.
ToolRun tarnpb(const std::string& args);

}  // namespace tarn_test

#endif
