// encode and decode: between text format and wire format with libprotobuf, on
// the tool's side only, so that test messages can be written by hand.
#include <cstdio>

#include "body_check.h"
#include "commands.h"
#include "input.h"
#include "text_util.h"

namespace tarnpb {

namespace {

// The common options, so that one set of options serves every command; the
// module is not loaded here, so --module and --quiet change nothing.
std::vector<OptionSpec> codecOptions() {
  std::vector<OptionSpec> options = schemaOptions();
  for (auto& o : options) {
    if (std::string(o.name) == "module" || std::string(o.name) == "quiet")
      o.help = "accepted for uniform command lines; no effect (the module is not loaded)";
  }
  return options;
}

std::string shownName(const std::string& path_) { return path_ == "-" ? "<stdin>" : path_; }

int runEncode(const Args& args_) {
  auto bench = Workbench::open(args_, false);
  std::vector<std::string> inputs = args_.positional();
  if (inputs.empty()) inputs.push_back("-");
  const bool delimited = args_.has("delimited");
  if (inputs.size() > 1 && !delimited)
    throw ToolError(exit_usage, "several inputs make one stream only with --delimited");
  std::string out;
  for (const auto& path : inputs) {
    const std::string wire = bench->schema->encode(bench->pRoot, readInput(path), shownName(path));
    if (delimited) appendVarint(out, wire.size());
    out += wire;
  }
  if (!args_.has("output") && stdoutIsTerminal()) {
    std::printf("%zu bytes\n%s\n", out.size(), hexBytes(out.data(), out.size()).c_str());
  } else {
    writeOutput(args_.get("output"), out);
  }
  return exit_ok;
}

int runDecode(const Args& args_) {
  auto bench = Workbench::open(args_, false);
  const std::string path = args_.positional().empty() ? "-" : args_.positional()[0];
  const std::string data = readInput(path);
  std::vector<std::pair<size_t, size_t>> messages;
  std::string streamError;
  if (args_.has("delimited")) {
    Delimited stream = splitDelimited(data);
    messages = stream.messages;
    streamError = stream.error;
  } else {
    messages.emplace_back(0, data.size());
  }
  for (size_t i = 0; i < messages.size(); ++i) {
    std::string text;
    if (!bench->schema->decode(bench->pRoot, data.substr(messages[i].first, messages[i].second),
                               text)) {
      std::string which = messages.size() > 1 || args_.has("delimited")
                              ? "message " + std::to_string(i + 1) + " of " + shownName(path)
                              : shownName(path);
      const std::string body = data.substr(messages[i].first, messages[i].second);
      const std::string verdict =
          looksLikeTextBody(body)
              ? "the input is text: tarnpb encode turns text format into wire format"
              : notProtobufVerdict(body);
      throw ToolError(exit_refused, which + " is not a valid " + bench->config.type +
                                        " in wire format" +
                                        (verdict.empty() ? "" : "; " + verdict));
    }
    if (args_.has("delimited")) std::printf("# message %zu\n", i + 1);
    std::fputs(text.c_str(), stdout);
  }
  if (!streamError.empty()) throw ToolError(exit_refused, "corrupt stream: " + streamError);
  return exit_ok;
}

}  // namespace

Command encodeCommand() {
  std::vector<OptionSpec> options = codecOptions();
  options.push_back({"output", 'o', "FILE", false,
                     "write the wire format to FILE (default: the standard output; shown as "
                     "hex on a terminal)"});
  options.push_back({"delimited", 'd', nullptr, false,
                     "write each input behind its length as a varint, making one stream"});
  return {{"encode", "[options] [TEXT...]",
           "Turn protobuf text format into wire format with libprotobuf.",
           "TEXT is a file, or - (the default) for the standard input. Required fields may\n"
           "be left out: the module does not insist on them, and tests may want to see that.",
           options, 0, -1},
          runEncode};
}

Command decodeCommand() {
  std::vector<OptionSpec> options = codecOptions();
  options.push_back({"delimited", 'd', nullptr, false,
                     "the input is a stream of varint-length-delimited messages"});
  return {{"decode", "[options] [MESSAGE]",
           "Turn wire format into protobuf text format with libprotobuf.",
           "MESSAGE is a file, or - (the default) for the standard input.", options, 0, 1},
          runDecode};
}

}  // namespace tarnpb
