// Runs the built command-line host as a user runs it, for the end-to-end
// tests: standard output, standard error (whole and its last line) and the
// exit status (0 success, 1 refused by the module or the schema, 2 usage error).
#ifndef TARN_TESTS_TOOL_RUN_H
#define TARN_TESTS_TOOL_RUN_H

#include <string>
#include <vector>

#include "module_fixture.h"

namespace tool_run {

struct ToolRun {
  int status;
  std::string out, err, lastError;
};

// Runs tarnpb with the arguments (already shell-quoted where needed), with
// the standard input from stdin_ (a file path) or /dev/null, in the working
// directory cwd_ (empty: the test's own).
ToolRun tarnpb(const std::string& args, const std::string& stdin_ = "/dev/null",
               const std::string& cwd_ = "");

// One run and what it must end with: its exit status and the last line of
// its standard error ("" when it writes none).
struct LastLine {
  std::string args;
  int status;
  std::string lastError;
};
// Runs every case and checks both.
void expectLastLines(const std::vector<LastLine>& cases);

std::string readFile(const std::string& path);
// Writes text to a scratch file of that name; returns its path.
std::string writeScratch(const std::string& name, const std::string& text);
std::string quote(const std::string& path);
// A scratch file holding bytes, shell-quoted; it lives until the tests end.
std::string file(const std::string& bytes);
std::string scratchPath(const std::string& name);
// The directory of the scratch files, living as long as the test process.
tarn_test::TempDir& scratch();

extern const std::string examples;
// Common options naming the example book and the test schema's Sample.
extern const std::string book;
extern const std::string sample;

}  // namespace tool_run

#endif
