// Command-line handling for tarnpb: the option tables of each subcommand, the
// reading of a command line by them (with CLI11) and the generated --help
// text. Every failure the user can cause is a ToolError carrying the exit
// status and one line of explanation.
#ifndef TARN_TOOLS_TARNPB_CLI_H
#define TARN_TOOLS_TARNPB_CLI_H

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnpb {

// Exit statuses, the same for every subcommand.
enum ExitStatus {
  exit_ok = 0,
  exit_refused = 1,  // the module (or the schema) refused the input
  exit_usage = 2,    // the command line is wrong or names something unreadable
};

class ToolError : public std::runtime_error {
 public:
  ToolError(int status_, const std::string& message_)
      : std::runtime_error(message_), _status(status_) {}
  int status() const { return _status; }

 private:
  int _status;
};

struct OptionSpec {
  const char* name;       // long name without dashes
  char shortName;         // 0 when there is none
  const char* valueName;  // null for a flag
  bool repeatable;
  const char* help;
};

struct CommandSpec {
  const char* name;
  const char* synopsis;  // after "tarnpb NAME"
  const char* summary;   // one line, for the command list
  const char* details;   // paragraphs shown by --help
  std::vector<OptionSpec> options;
  int minPositional;
  int maxPositional;  // -1: any number
};

// What the command line gave: option values by long name (flags hold one
// empty string per occurrence; "help" when -h or --help was given) and the
// positional arguments in order.
class Args {
 public:
  bool has(const std::string& name_) const { return _values.count(name_) != 0; }
  // The last value given, or fallback_ when the option is absent.
  std::string get(const std::string& name_, const std::string& fallback_ = "") const;
  const std::vector<std::string>& all(const std::string& name_) const;
  // The value as a non-negative integer; a ToolError (usage) when it is not one.
  size_t getSize(const std::string& name_, size_t fallback_) const;

  const std::vector<std::string>& positional() const { return _positional; }

  void add(const std::string& name_, const std::string& value_) {
    _values[name_].push_back(value_);
  }
  void addPositional(const std::string& value_) { _positional.push_back(value_); }

 private:
  std::map<std::string, std::vector<std::string>> _values;
  std::vector<std::string> _positional;
};

// Reads argv (after the subcommand name) as the command's table declares it,
// with getopt's habits: "--name value", "--name=value", "-Ivalue", "-qj", "--"
// ending the options, "-" a positional argument. Throws ToolError with
// exit_usage on an unknown option, a missing value, a flag given a value, a
// repeated single option or a wrong number of positional arguments, unless
// help was asked for.
Args parseArgs(const CommandSpec& command_, const std::vector<std::string>& argv_);

std::string commandHelp(const CommandSpec& command_);

// The options shared by every subcommand that loads a schema.
std::vector<OptionSpec> schemaOptions();
// --module, --quiet: shared by every subcommand that loads the module.
std::vector<OptionSpec> moduleOptions();

}  // namespace tarnpb

#endif
