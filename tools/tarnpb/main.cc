// tarnpb: shows what the protobuf message-type module does with a schema and
// its messages before they are deployed on a server. It loads the built module
// the way a server does and drives it through its entry points only.
#include <google/protobuf/stubs/common.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

#include "commands.h"
#include "host/module_driver.h"
#include "self_docs.h"
#include "text_util.h"

namespace {

void printUsage(std::FILE* pOut_) {
  std::fprintf(pOut_,
               "usage: tarnpb COMMAND [options] [arguments]\n\n"
               "Loads the protobuf message-type module as a server does and shows what it\n"
               "does with a schema and its messages.\n\ncommands:\n");
  for (const auto& c : tarnpb::commands())
    std::fprintf(pOut_, "  %-10s %s\n", c.spec.name, c.spec.summary);
  std::fprintf(pOut_,
               "\n'tarnpb COMMAND --help' describes a command, 'tarnpb --version' the builds\n"
               "in use. Common options: --proto FILE, --proto-path DIR (repeatable),\n"
               "--type NAME, --option KEY=VALUE (a server's configuration, verbatim),\n"
               "--module PATH, --quiet. 'man tarnpb' has every command in one page.\n"
               "The module's log lines go to standard error with their level names.\n"
               "exit status: 0 success, 1 refused by the module or the schema, 2 usage error\n");
}

bool isHelp(const std::string& arg_) { return arg_ == "--help" || arg_ == "-h"; }

// What an operator quotes in a report: this tool's version, the module it
// loads by default (TARN_MODULE overrides it) and the libprotobuf it reads
// schemas with.
void printVersion() {
  std::printf("tarnpb %s\nmodule %s\nlibprotobuf %s\n", TARNPB_VERSION,
              tarn_host::defaultModulePath().c_str(),
              google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION).c_str());
}

int run(int argc_, char** argv_) {
  if (argc_ < 2) {
    printUsage(stderr);
    return tarnpb::exit_usage;
  }
  std::string name = argv_[1];
  if (name == "--version" || name == "version") {
    printVersion();
    return tarnpb::exit_ok;
  }
  // For the build, which installs what these print.
  if (name == "--man") {
    std::fputs(tarnpb::manPage(TARNPB_VERSION).c_str(), stdout);
    return tarnpb::exit_ok;
  }
  if (name == "--bash-completion") {
    std::fputs(tarnpb::bashCompletion().c_str(), stdout);
    return tarnpb::exit_ok;
  }
  std::vector<std::string> rest(argv_ + 2, argv_ + argc_);
  if (isHelp(name) || name == "help") {
    if (name == "help" && !rest.empty()) {
      name = rest[0];
      rest.assign(1, "--help");
    } else {
      printUsage(stdout);
      return tarnpb::exit_ok;
    }
  }
  for (const auto& command : tarnpb::commands()) {
    if (name != command.spec.name) continue;
    try {
      const tarnpb::Args args = tarnpb::parseArgs(command.spec, rest);
      if (!args.has("help")) return command.run(args);
      std::fputs(tarnpb::commandHelp(command.spec).c_str(), stdout);
      return tarnpb::exit_ok;
    } catch (const tarnpb::ToolError& e) {
      std::fflush(stdout);
      // What the user typed, or a schema holds, may hold a newline or a
      // control byte; the error stays one line a terminal shows as it is.
      std::fprintf(stderr, "tarnpb %s: %s\n", command.spec.name,
                   tarnpb::escapeBinary(e.what()).c_str());
      return e.status();
    }
  }
  std::fprintf(stderr, "tarnpb: unknown command '%s' (see tarnpb --help)\n",
               tarnpb::escapeBinary(name).c_str());
  return tarnpb::exit_usage;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fflush(stdout);
    std::fprintf(stderr, "tarnpb: out of memory\n");
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "tarnpb: %s\n", e.what());
  }
  return tarnpb::exit_refused;
}
