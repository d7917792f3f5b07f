// demo: the whole cycle on the bundled order-book example, no argument needed.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "commands.h"
#include "input.h"
#include "text_util.h"

namespace tarnpb {

namespace {

const char* const example_proto = "market_data.proto";
const char* const example_type = "tarn.example.BookSnapshot";
const char* const example_stored = "snapshot.txtpb";
const char* const example_update = "update.txtpb";

std::string examplesDir(const Args& args_) {
  if (args_.has("examples")) return args_.get("examples");
  if (const char* env = std::getenv("TARNPB_EXAMPLES")) return env;
#ifdef TARNPB_INSTALLED_EXAMPLES
  const std::string installed = tarn_host::installedPath(TARNPB_INSTALLED_EXAMPLES);
  if (!installed.empty()) return installed;
#endif
  return TARNPB_EXAMPLES_DIR;
}

void heading(const std::string& text_) { std::printf("\n== %s\n", text_.c_str()); }

// Counts what the module refused, so that the demo runs to its end and still
// exits with the right status.
struct Outcome {
  std::vector<std::string> refusals;
  void check(int status_, const std::string& what_) {
    if (status_ != TARN_SUCCESS) {
      refusals.push_back("the module refused " + what_ + " (status " + std::to_string(status_) +
                         ")");
      std::printf("(%s)\n", refusals.back().c_str());
    }
  }
};

void showTrace(const Workbench& bench_, const std::string& body_, Outcome& outcome_) {
  try {
    std::printf("%s\n", escapeBinary(bench_.module->trace(body_)).c_str());
  } catch (const ToolError& e) {
    outcome_.refusals.push_back(e.what());
    std::printf("(%s)\n", e.what());
  }
}

int runDemo(const Args& args_) {
  const std::string dir = examplesDir(args_);
  struct stat info;
  if (::stat((dir + "/" + example_proto).c_str(), &info) != 0)
    throw ToolError(exit_usage, "the example is not in " + dir + " (give --examples DIR)");
  SchemaConfig config;
  config.protoPaths.emplace_back("", dir);
  config.file = example_proto;
  config.type = example_type;
  const std::string modulePath = args_.get("module", tarn_host::defaultModulePath());

  std::printf("tarnpb demo: a market-data order book through the protobuf message type\n");
  std::printf("module %s\nschema %s/%s, root type %s\n", modulePath.c_str(), dir.c_str(),
              example_proto, example_type);
  std::fflush(stdout);
  auto bench = Workbench::open(config, modulePath, args_.has("quiet"));
  Outcome outcome;

  const std::string storedPath = dir + "/" + example_stored;
  const std::string updatePath = dir + "/" + example_update;
  Parsed stored = parseWith(*bench, bench->loadMessage(storedPath, true));
  Parsed update = parseWith(*bench, bench->loadMessage(updatePath, true));

  heading(std::string("stored message: ") + example_stored + ", encoded by libprotobuf");
  std::printf("%zu bytes: %s\n", stored.body.size(),
              hexBytes(stored.body.data(), stored.body.size(), 48).c_str());
  heading("the module's value set for it");
  showParse(stdout, *bench, stored, "");
  outcome.check(stored.status, "the stored message");
  heading("the module's trace of it");
  showTrace(*bench, stored.body, outcome);

  heading(std::string("update message: ") + example_update);
  std::printf("%zu bytes: %s\n", update.body.size(),
              hexBytes(update.body.data(), update.body.size(), 48).c_str());
  showTrace(*bench, update.body, outcome);
  outcome.check(update.status, "the update message");

  heading("merged by the module (delta publish)");
  try {
    if (stored.status != TARN_SUCCESS || update.status != TARN_SUCCESS)
      throw ToolError(exit_refused, "nothing to merge: a message was refused");
    const std::string merged = mergeBodies(*bench->module, *update.set, *stored.set);
    std::printf("%zu bytes: %s\n", merged.size(),
                hexBytes(merged.data(), merged.size(), 48).c_str());
    const Parsed again = parseWith(*bench, merged);
    showParse(stdout, *bench, again, "");
    outcome.check(again.status, "the merged message");
    heading("the module's trace of the merged message");
    showTrace(*bench, merged, outcome);
    heading("the merged message as libprotobuf reads it");
    std::string text;
    if (bench->schema->decode(bench->pRoot, merged, text)) {
      std::fputs(text.c_str(), stdout);
    } else {
      outcome.refusals.push_back("libprotobuf cannot read the merged message");
      std::printf("(%s)\n", outcome.refusals.back().c_str());
    }
  } catch (const ToolError& e) {
    outcome.refusals.push_back(e.what());
    std::printf("(%s)\n", e.what());
  }
  std::fflush(stdout);
  if (!outcome.refusals.empty()) throw ToolError(exit_refused, outcome.refusals.front());
  return exit_ok;
}

}  // namespace

Command demoCommand() {
  std::vector<OptionSpec> options = moduleOptions();
  options.push_back({"examples", 0, "DIR", false,
                     "where the example lies (default: the examples directory of the source "
                     "tree, or $TARNPB_EXAMPLES)"});
  return {{"demo", "[options]", "Run the whole cycle on the bundled order-book example.",
           "Loads the example schema into the module, encodes the stored snapshot and an\n"
           "update from their text form, shows the stored message parsed and traced, merges\n"
           "the update into it and shows the merged message parsed, traced and as\n"
           "libprotobuf reads it.",
           options, 0, 0},
          runDemo};
}

}  // namespace tarnpb
