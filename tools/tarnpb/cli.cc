#include "cli.h"

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

const OptionSpec* findLong(const CommandSpec& command_, const std::string& name_) {
  for (const auto& o : command_.options)
    if (name_ == o.name) return &o;
  return nullptr;
}

const OptionSpec* findShort(const CommandSpec& command_, char name_) {
  for (const auto& o : command_.options)
    if (o.shortName != 0 && o.shortName == name_) return &o;
  return nullptr;
}

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

// " (did you mean --proto?)" for a long option name with a slip in it, or the
// pointer to --help.
std::string suggestion(const CommandSpec& command_, const std::string& name_) {
  std::vector<std::string> names;
  for (const auto& o : command_.options) names.push_back(std::string("--") + o.name);
  const std::string close = didYouMean("--" + name_, names);
  return close.empty() ? see(command_) : close;
}

}  // namespace

namespace {

// Records one occurrence of an option, taking its value from inline_ (the
// text after "=", or after a short option's letter) or from the next argument.
void takeOption(const CommandSpec& command_, const OptionSpec& spec_, const std::string& shown_,
                const std::string* pInline_, const std::vector<std::string>& argv_, size_t& i_,
                Args& args_) {
  std::string value;
  if (spec_.valueName != nullptr) {
    if (pInline_ != nullptr) {
      value = *pInline_;
    } else if (i_ + 1 < argv_.size()) {
      value = argv_[++i_];
    } else {
      throw ToolError(exit_usage, "option " + shown_ + " needs a value " + spec_.valueName);
    }
  } else if (pInline_ != nullptr) {
    throw ToolError(exit_usage, "option " + shown_ + " takes no value" + see(command_));
  }
  if (!spec_.repeatable && args_.has(spec_.name))
    throw ToolError(exit_usage, "option " + shown_ + " may be given only once");
  args_.add(spec_.name, value);
}

}  // namespace

Args scanArgs(const CommandSpec& command_, const std::vector<std::string>& argv_) {
  Args args;
  bool optionsEnded = false;
  for (size_t i = 0; i < argv_.size(); ++i) {
    const std::string& arg = argv_[i];
    // A lone "-" is the standard input, a positional argument.
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      args.addPositional(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg[1] == '-') {
      std::string name = arg.substr(2);
      const size_t eq = name.find('=');
      std::string inlineValue;
      if (eq != std::string::npos) {
        inlineValue = name.substr(eq + 1);
        name.resize(eq);
      }
      const OptionSpec* pSpec = findLong(command_, name);
      if (pSpec == nullptr) {
        throw ToolError(exit_usage, "unknown option --" + name + suggestion(command_, name));
      }
      takeOption(command_, *pSpec, "--" + name, eq == std::string::npos ? nullptr : &inlineValue,
                 argv_, i, args);
      continue;
    }
    // Short options as getopt reads them: flags may be combined (-qj), and a
    // value may follow its letter directly (-I/usr/include).
    for (size_t k = 1; k < arg.size(); ++k) {
      const OptionSpec* pSpec = findShort(command_, arg[k]);
      const std::string shown = std::string("-") + arg[k];
      if (pSpec == nullptr) throw ToolError(exit_usage, "unknown option " + shown + see(command_));
      if (pSpec->valueName != nullptr && k + 1 < arg.size()) {
        const std::string rest = arg.substr(k + 1);
        takeOption(command_, *pSpec, shown, &rest, argv_, i, args);
        break;
      }
      takeOption(command_, *pSpec, shown, nullptr, argv_, i, args);
    }
  }
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
