#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "did_you_mean.h"

namespace tarnpb {

std::string Args::get(const std::string& name_, const std::string& fallback_) const {
  auto it = _values.find(name_);
  return it == _values.end() ? fallback_ : it->second.back();
}

const std::vector<std::string>& Args::all(const std::string& name_) const {
  static const std::vector<std::string> none;
  auto it = _values.find(name_);
  return it == _values.end() ? none : it->second;
}

size_t Args::getSize(const std::string& name_, size_t fallback_) const {
  if (!has(name_)) return fallback_;
  const std::string text = get(name_);
  bool digits = !text.empty() && text.size() <= 18;
  for (char c : text) digits = digits && c >= '0' && c <= '9';
  if (!digits) throw ToolError(exit_usage, "--" + name_ + " wants a number, not '" + text + "'");
  return static_cast<size_t>(std::strtoull(text.c_str(), nullptr, 10));
}

namespace {

// Words of text_ on lines that end by column width_, every line after the
// first indented to column indent_.
std::string wrap(const std::string& text_, size_t indent_, size_t width_) {
  std::string out;
  size_t column = indent_;
  std::istringstream words(text_);
  std::string word;
  while (words >> word) {
    if (column > indent_ && column + 1 + word.size() > width_) {
      out += "\n" + std::string(indent_, ' ');
      column = indent_;
    } else if (column > indent_) {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
  }
  return out;
}

std::string see(const CommandSpec& command_) {
  return " (see tarnpb " + std::string(command_.name) + " --help)";
}

// CLI11 reads "--name=" as "--name" and takes the next argument for the
// value, and keeps "--flag=value" as the flag's value. A NUL, which no
// argument can hold, put after the '=' keeps an empty value where it was
// given and marks a flag's value as typed; every value read loses it again.
const char inline_mark = '\0';

std::string marked(const std::string& arg_) {
  const size_t eq = arg_.find('=');
  if (arg_.compare(0, 2, "--") != 0 || eq == std::string::npos) return arg_;
  return arg_.substr(0, eq + 1) + inline_mark + arg_.substr(eq + 1);
}

std::string unmarked(std::string text_) {
  text_.erase(std::remove(text_.begin(), text_.end(), inline_mark), text_.end());
  return text_;
}

// An argument CLI11 did not take: "--name[=value]" or a group of short
// options whose first letter is unknown. A long name with a slip in it gets
// " (did you mean --proto?)", anything else the pointer to --help.
ToolError unknownOption(const CommandSpec& command_, const std::string& arg_) {
  if (arg_.compare(0, 2, "--") != 0)
    return ToolError(exit_usage, "unknown option " + arg_.substr(0, 2) + see(command_));
  const std::string shown = arg_.substr(0, arg_.find('='));
  std::vector<std::string> names;
  for (const auto& o : command_.options) names.push_back(std::string("--") + o.name);
  const std::string close = didYouMean(shown, names);
  return ToolError(exit_usage, "unknown option " + shown + (close.empty() ? see(command_) : close));
}

// CLI11 splits "-q5" into "-q" and "-5", which it keeps as an argument, and
// reads "-q-" as "-q --"; getopt, whose habits users bring, calls both an
// unknown option. Each group of short options is read here as getopt reads
// it, letter by letter up to the first that takes a value; the argument after
// an option that takes its value from the next is that value, not a group.
void checkShortGroups(const CommandSpec& command_, const std::vector<std::string>& argv_) {
  auto find = [&](char letter_) -> const OptionSpec* {
    for (const auto& o : command_.options)
      if (o.shortName == letter_) return &o;
    return nullptr;
  };
  bool valueNext = false;
  for (const auto& arg : argv_) {
    if (valueNext) {
      valueNext = false;
      continue;
    }
    if (arg == "--") return;
    if (arg.compare(0, 3, "---") == 0) throw unknownOption(command_, arg);
    if (arg.compare(0, 2, "--") == 0) {
      for (const auto& o : command_.options)
        valueNext = valueNext || (o.valueName != nullptr && arg == std::string("--") + o.name);
      continue;
    }
    // "-" is the standard input and "-5" an argument: no option is a digit.
    if (arg.size() < 2 || arg[0] != '-' || (arg[1] >= '0' && arg[1] <= '9')) continue;
    for (size_t i = 1; i < arg.size(); ++i) {
      if (arg[i] == 'h') return;  // help is answered whatever follows
      const OptionSpec* pOption = find(arg[i]);
      if (pOption == nullptr && i > 1) {
        throw ToolError(exit_usage, std::string("unknown option letter '") + arg[i] + "' in " +
                                        arg + see(command_));
      }
      if (pOption == nullptr || pOption->valueName != nullptr) {
        valueNext = pOption != nullptr && i + 1 == arg.size();
        break;
      }
    }
  }
}

}  // namespace

Args parseArgs(const CommandSpec& command_, const std::vector<std::string>& argv_) {
  CLI::App app;
  app.allow_extras();
  std::vector<const CLI::Option*> options;  // as the table lists them
  for (const auto& o : command_.options) {
    const std::string names =
        (o.shortName != 0 ? std::string{'-', o.shortName, ','} : "") + "--" + o.name;
    options.push_back((o.valueName != nullptr ? app.add_option(names)->type_name(o.valueName)
                                              : app.add_flag(names))
                          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
  }
  CLI::Option* pPositional = app.add_option("arguments")->expected(0, -1)->allow_extra_args();

  std::vector<std::string> reversed;
  for (auto it = argv_.rbegin(); it != argv_.rend(); ++it) reversed.push_back(marked(*it));
  Args args;
  checkShortGroups(command_, argv_);
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    // Answered below, before any complaint about the rest.
  } catch (const CLI::ArgumentMismatch& e) {
    // Only an option that ends the command line lacks its value: "--proto",
    // or the last letter of "-qp".
    const std::string& last = argv_.back();
    const std::string shown = last.compare(0, 2, "--") == 0 ? last : std::string{'-', last.back()};
    const CLI::Option* pOption = app.get_option_no_throw(shown);
    if (app.get_help_ptr()->count() == 0) {
      throw ToolError(exit_usage, pOption == nullptr ? e.what()
                                                     : "option " + shown + " needs a value " +
                                                           pOption->get_type_name());
    }
  }
  if (app.get_help_ptr()->count() != 0) {
    args.add("help", "");
    return args;
  }

  for (const auto& arg : app.remaining())
    if (arg != "--") throw unknownOption(command_, unmarked(arg));
  for (size_t i = 0; i < options.size(); ++i) {
    const OptionSpec& o = command_.options[i];
    const std::string shown = std::string("--") + o.name;
    for (const auto& result : options[i]->results()) {
      if (o.valueName == nullptr && result.find(inline_mark) != std::string::npos)
        throw ToolError(exit_usage, "option " + shown + " takes no value" + see(command_));
      if (!o.repeatable && args.has(o.name))
        throw ToolError(exit_usage, "option " + shown + " may be given only once");
      args.add(o.name, o.valueName != nullptr ? unmarked(result) : "");
    }
  }
  for (const auto& arg : pPositional->results()) args.addPositional(unmarked(arg));

  const int count = static_cast<int>(args.positional().size());
  if (count < command_.minPositional) {
    throw ToolError(exit_usage, std::string("missing argument: tarnpb ") + command_.name + " " +
                                    command_.synopsis);
  }
  if (command_.maxPositional >= 0 && count > command_.maxPositional) {
    throw ToolError(
        exit_usage,
        "unexpected argument '" + args.positional()[command_.maxPositional] + "'" + see(command_));
  }
  return args;
}

std::string commandHelp(const CommandSpec& command_) {
  std::ostringstream out;
  out << "usage: tarnpb " << command_.name << " " << command_.synopsis << "\n\n"
      << command_.summary << "\n";
  if (command_.details[0] != '\0') out << "\n" << command_.details << "\n";
  out << "\noptions:\n";
  for (const auto& o : command_.options) {
    std::string left = "  ";
    if (o.shortName != 0) {
      left += "-";
      left += o.shortName;
      left += ", ";
    } else {
      left += "    ";
    }
    left += "--";
    left += o.name;
    if (o.valueName != nullptr) {
      left += " ";
      left += o.valueName;
    }
    if (left.size() < 26)
      left.resize(26, ' ');
    else
      left += "\n" + std::string(26, ' ');
    out << left << wrap(std::string(o.help) + (o.repeatable ? " (repeatable)" : ""), 26, 80)
        << "\n";
  }
  out << "  -h, --help              this text\n"
      << "\nexit status: 0 success, 1 refused by the module or the schema, 2 usage error\n";
  return out.str();
}

std::vector<OptionSpec> moduleOptions() {
  return {
      {"module", 0, "PATH", false,
       "the module library to load (default: the one built or installed with tarnpb); a plain "
       "file name in the working directory is that file"},
      {"quiet", 'q', nullptr, false, "do not echo the module's log lines below warning"},
  };
}

std::vector<OptionSpec> schemaOptions() {
  std::vector<OptionSpec> options = {
      {"proto-path", 'I', "DIR", true,
       "directory searched for .proto files; libprotobuf's own (google/protobuf/*.proto) are "
       "found without it, as protoc finds them"},
      {"proto", 'p', "FILE", false,
       ".proto file to load, relative to a proto path, or a disk path under one"},
      {"type", 't', "NAME", true,
       "full name of the root message type (default: the file's only message); further ones "
       "are checked by the module as a server's further Type options are"},
      {"option", 0, "KEY=VALUE", true,
       "one option of a server's configuration, verbatim (ProtoPath='feeds;/dir', "
       "ProtoFile=..., Type=...): the module gets exactly these, instead of -I, --proto and "
       "--type"},
  };
  for (const auto& o : moduleOptions()) options.push_back(o);
  return options;
}

}  // namespace tarnpb
