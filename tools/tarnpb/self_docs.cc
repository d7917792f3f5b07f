#include "self_docs.h"

#include <sstream>

#include "commands.h"

namespace tarnpb {

namespace {

// Text as roff reads it: backslashes and hyphens escaped, and no line that
// starts with a control character.
std::string roff(const std::string& text_) {
  std::string out;
  bool lineStart = true;
  for (char c : text_) {
    if (lineStart && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    lineStart = c == '\n';
  }
  return out;
}

std::string optionName(const OptionSpec& o_) {
  std::string name;
  if (o_.shortName != 0) name = std::string("-") + o_.shortName + ", ";
  name += std::string("--") + o_.name;
  if (o_.valueName != nullptr) name += std::string(" ") + o_.valueName;
  return name;
}

// The words bash offers for an option's value: directories, files or none.
const char* valueCompletion(const char* valueName_) {
  const std::string name = valueName_;
  if (name == "DIR") return "COMPREPLY=($(compgen -d -- \"$cur\"))";
  if (name == "FILE" || name == "PATH") return "COMPREPLY=($(compgen -f -- \"$cur\"))";
  return "COMPREPLY=()";
}

}  // namespace

std::string manPage(const std::string& version_) {
  std::ostringstream out;
  out << ".TH TARNPB 1 \"\" \"tarnpb " << version_ << "\" \"User Commands\"\n"
      << ".SH NAME\ntarnpb \\- show what the protobuf message\\-type module does with a schema "
         "and its messages\n"
      << ".SH SYNOPSIS\n.B tarnpb\n.I COMMAND\n[options] [arguments]\n.br\n"
         ".B tarnpb\n.I COMMAND\n.B \\-\\-help\n.br\n.B tarnpb \\-\\-version\n"
      << ".SH DESCRIPTION\n"
      << roff(
             "tarnpb loads the protobuf message-type module as a publish/subscribe server "
             "does, gives it a context for a .proto schema, and shows what the module does "
             "with messages of that schema: the value set a parse fills, the trace text, a "
             "message rebuilt from its values, and the merge of a delta update into a stored "
             "message. Where the module departs from what a protobuf user expects, it says "
             "so. The module's log lines go to standard error with their level names.")
      << "\n.SH COMMANDS\n";
  for (const auto& c : commands()) {
    out << ".SS \"tarnpb " << roff(c.spec.name) << " " << roff(c.spec.synopsis) << "\"\n"
        << roff(c.spec.summary) << "\n";
    if (c.spec.details[0] != '\0') out << ".PP\n.nf\n" << roff(c.spec.details) << "\n.fi\n";
    out << ".PP\nOptions:\n";
    for (const auto& o : c.spec.options) {
      out << ".TP\n.B " << roff(optionName(o)) << "\n"
          << roff(std::string(o.help) + (o.repeatable ? " (repeatable)" : "")) << "\n";
    }
  }
  out << ".SH EXIT STATUS\n0 success; 1 refused by the module or the schema; 2 usage error.\n"
      << ".SH ENVIRONMENT\n.TP\n.B TARN_MODULE\n"
      << roff("the module library to load when --module is not given") << "\n"
      << ".SH SEE ALSO\n.BR protoc (1)\n";
  return out.str();
}

std::string bashCompletion() {
  std::ostringstream out;
  out << "# bash completion for tarnpb, written by tarnpb --bash-completion\n"
      << "_tarnpb() {\n"
      << "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} opts\n"
      << "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
      << "    COMPREPLY=($(compgen -W \"";
  for (const auto& c : commands()) out << c.spec.name << " ";
  out << "help --help --version\" -- \"$cur\"))\n    return\n  fi\n"
      << "  case ${COMP_WORDS[1]} in\n";
  for (const auto& c : commands()) {
    out << "    " << c.spec.name << ")\n      case $prev in\n";
    for (const auto& o : c.spec.options) {
      if (o.valueName == nullptr) continue;
      out << "        --" << o.name;
      if (o.shortName != 0) out << "|-" << o.shortName;
      out << ") " << valueCompletion(o.valueName) << "; return ;;\n";
    }
    out << "      esac\n      opts=\"";
    for (const auto& o : c.spec.options) {
      out << "--" << o.name << " ";
      if (o.shortName != 0) out << "-" << o.shortName << " ";
    }
    out << "--help\" ;;\n";
  }
  out << "    *) return ;;\n  esac\n"
      << "  if [[ $cur == -* ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"$opts\" -- \"$cur\"))\n"
      << "  else\n    COMPREPLY=($(compgen -f -- \"$cur\"))\n  fi\n}\n"
      << "complete -o filenames -F _tarnpb tarnpb\n";
  return out.str();
}

}  // namespace tarnpb
