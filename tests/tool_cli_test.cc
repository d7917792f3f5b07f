// tarnpb's command lines, read by a command's option table: what each
// command line gives the command, or the one line that refuses it.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include "cli.h"
#include "tool_run.h"

namespace {

using tarnpb::Args;
using tarnpb::CommandSpec;

CommandSpec command() {
  std::vector<tarnpb::OptionSpec> options = tarnpb::schemaOptions();
  options.push_back({"json", 'j', nullptr, false, ""});
  options.push_back({"find", 'f', "PATH", true, ""});
  options.push_back({"capacity", 'c', "N", false, ""});
  return {"parse", "[options] MESSAGE [MORE]", "", "", options, 1, 2};
}

// Every option given, in table order, with its values in brackets (flags
// with none), then the positional arguments.
std::string shown(const CommandSpec& command_, const Args& args_) {
  std::string out = args_.has("help") ? "help " : "";
  for (const auto& o : command_.options) {
    if (!args_.has(o.name)) continue;
    out += o.name;
    if (o.valueName != nullptr)
      for (const auto& value : args_.all(o.name)) out += "[" + value + "]";
    out += " ";
  }
  out += "|";
  for (const auto& arg : args_.positional()) out += " [" + arg + "]";
  return out;
}

TEST(ToolCli, CommandLinesReadAsGetoptReadsThem) {
  const CommandSpec spec = command();
  const struct {
    std::vector<std::string> argv;
    std::string args;  // or the refusal, when status is not 0
    int status;
  } cases[] = {
      // Values apart, after '=', attached to a short name, after flags.
      {{"--proto", "a.proto", "-t", "x.A", "m"}, "proto[a.proto] type[x.A] | [m]", 0},
      {{"--proto=a.proto", "--type=x.A", "m"}, "proto[a.proto] type[x.A] | [m]", 0},
      {{"-pa.proto", "-Idir", "m"}, "proto-path[dir] proto[a.proto] | [m]", 0},
      {{"-qjIdir", "m"}, "proto-path[dir] quiet json | [m]", 0},
      {{"-I=dir", "m"}, "proto-path[=dir] | [m]", 0},
      // Repeated options keep every value in order, verbatim.
      {{"-I", "a", "--proto-path=b", "m", "-Ic", "--type", "x.A", "-t", "x.B"},
       "proto-path[a][b][c] type[x.A][x.B] | [m]",
       0},
      {{"--option", "ProtoPath=feeds;/a dir", "--option=Type=x.A=b", "m"},
       "option[ProtoPath=feeds;/a dir][Type=x.A=b] | [m]",
       0},
      // A value may start with '-' or be empty; an empty '--name=' does not
      // take the next argument.
      {{"--proto", "--quiet", "-c", "-5", "m"}, "proto[--quiet] capacity[-5] | [m]", 0},
      {{"--proto=", "m"}, "proto[] | [m]", 0},
      {{"-f", "", "--find=", "m"}, "find[][] | [m]", 0},
      // "-" is the standard input, "--" ends the options, and a dash with a
      // digit is an argument, there being no option of that letter.
      {{"-", "-q"}, "quiet | [-]", 0},
      {{"-q", "--", "--proto", "-"}, "quiet | [--proto] [-]", 0},
      {{"m", "-5"}, "| [m] [-5]", 0},
      // Help wins over everything else, where CLI11 finds an option.
      {{"--help"}, "help |", 0},
      {{"-qh", "--bogus"}, "help |", 0},
      {{"-h", "--proto"}, "help |", 0},
      {{"--type", "--help", "m"}, "type[--help] | [m]", 0},
      {{"--", "-h"}, "| [-h]", 0},
      // Refusals.
      {{"--protp", "x"}, "unknown option --protp (did you mean --proto?)", 2},
      {{"--bogus=1", "x"}, "unknown option --bogus (see tarnpb parse --help)", 2},
      {{"-x", "m"}, "unknown option -x (see tarnpb parse --help)", 2},
      // Within a group as getopt reads it: letter by letter up to one that
      // takes a value; the argument after such a letter is its value.
      {{"-qx", "m"}, "unknown option letter 'x' in -qx (see tarnpb parse --help)", 2},
      {{"-q=x", "m"}, "unknown option letter '=' in -q=x (see tarnpb parse --help)", 2},
      {{"-q5", "m"}, "unknown option letter '5' in -q5 (see tarnpb parse --help)", 2},
      {{"-q-", "m"}, "unknown option letter '-' in -q- (see tarnpb parse --help)", 2},
      {{"---q", "m"}, "unknown option ---q (see tarnpb parse --help)", 2},
      {{"-qp", "-x5", "m"}, "proto[-x5] quiet | [m]", 0},
      {{"--find", "-q5", "m"}, "find[-q5] | [m]", 0},
      {{"-f-q5", "m"}, "find[-q5] | [m]", 0},
      {{"m", "--proto"}, "option --proto needs a value FILE", 2},
      {{"m", "-qp"}, "option -p needs a value FILE", 2},
      {{"--quiet=x", "m"}, "option --quiet takes no value (see tarnpb parse --help)", 2},
      {{"--quiet=", "m"}, "option --quiet takes no value (see tarnpb parse --help)", 2},
      {{"--json=true", "m"}, "option --json takes no value (see tarnpb parse --help)", 2},
      {{"-p", "a", "--proto", "a", "m"}, "option --proto may be given only once", 2},
      {{"-q", "-q", "m"}, "option --quiet may be given only once", 2},
      {{"-q"}, "missing argument: tarnpb parse [options] MESSAGE [MORE]", 2},
      {{"a", "b", "c"}, "unexpected argument 'c' (see tarnpb parse --help)", 2},
      {{"a", "b", "--", "-c"}, "unexpected argument '-c' (see tarnpb parse --help)", 2},
      {{}, "missing argument: tarnpb parse [options] MESSAGE [MORE]", 2},
  };
  for (const auto& c : cases) {
    std::string got;
    int status = 0;
    try {
      got = shown(spec, tarnpb::parseArgs(spec, c.argv));
    } catch (const tarnpb::ToolError& e) {
      got = e.what();
      status = e.status();
    }
    std::string line;
    for (const auto& arg : c.argv) line += " '" + arg + "'";
    EXPECT_EQ(c.args, got) << line;
    EXPECT_EQ(c.status, status) << line;
  }
}

TEST(ToolCli, SizesAreDecimalDigitsOnly) {
  const CommandSpec spec = command();
  const struct {
    std::string value, size;  // or the refusal
  } cases[] = {
      {"0", "0"},
      {"007", "7"},
      {"999999999999999999", "999999999999999999"},
      {"1000000000000000000", "--capacity wants a number, not '1000000000000000000'"},
      {"", "--capacity wants a number, not ''"},
      {"-5", "--capacity wants a number, not '-5'"},
      {"+5", "--capacity wants a number, not '+5'"},
      {" 5", "--capacity wants a number, not ' 5'"},
      {"5k", "--capacity wants a number, not '5k'"},
  };
  for (const auto& c : cases) {
    const Args args = tarnpb::parseArgs(spec, {"--capacity=" + c.value, "m"});
    try {
      EXPECT_EQ(c.size, std::to_string(args.getSize("capacity", 1))) << c.value;
    } catch (const tarnpb::ToolError& e) {
      EXPECT_EQ(c.size, e.what());
      EXPECT_EQ(2, e.status());
    }
  }
  EXPECT_EQ(64u, tarnpb::parseArgs(spec, {"m"}).getSize("capacity", 64));
}

// The built tool answers help for each command the same way, on standard
// output and with status 0, whatever else the command line holds.
TEST(ToolCli, EveryCommandAnswersHelp) {
  for (const std::string name :
       {"parse", "trace", "merge", "serialize", "encode", "decode", "check", "raw", "demo"}) {
    const tool_run::ToolRun help = tool_run::tarnpb(name + " --help");
    EXPECT_EQ(0, help.status) << name;
    EXPECT_EQ("", help.err) << name;
    EXPECT_EQ("usage: tarnpb " + name + " ", help.out.substr(0, 15 + name.size()));
    for (const std::string& args : {name + " -h", "help " + name, name + " --bogus x y z -h"}) {
      const tool_run::ToolRun same = tool_run::tarnpb(args);
      EXPECT_EQ(0, same.status) << args;
      EXPECT_EQ(help.out, same.out) << args;
    }
  }
}

}  // namespace

#endif
