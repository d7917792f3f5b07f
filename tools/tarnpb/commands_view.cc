// parse and trace: what the module stores for a message, and how it traces it.
#include <chrono>
#include <cstdio>

#include "body_check.h"
#include "commands.h"
#include "input.h"
#include "json_out.h"
#include "text_util.h"

namespace tarnpb {

namespace {

typedef std::chrono::steady_clock Clock;

// The module traces faster than the tool can walk a body against its schema:
// a trace checks the fields that start in this many leading bytes.
const size_t trace_check_bytes = size_t{4} << 20;

double secondsSince(Clock::time_point start_) {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

std::vector<OptionSpec> inputOptions(std::vector<OptionSpec> options_) {
  options_.push_back({"text", 0, nullptr, false,
                      "the input is protobuf text format (implied by .txtpb, .textproto, .pbtxt)"});
  options_.push_back({"delimited", 'd', nullptr, false,
                      "the input is a stream of varint-length-delimited messages: show each, "
                      "then a summary with counts and throughput"});
  options_.push_back({"summary", 's', nullptr, false,
                      "with --delimited, print the summary only (its throughput then times the "
                      "module alone)"});
  return options_;
}

// The stream named by the only argument, split into messages.
Delimited readStream(const Args& args_, std::string& data_) {
  if (args_.has("text")) throw ToolError(exit_usage, "--delimited reads wire format, not --text");
  data_ = readInput(args_.positional()[0]);
  return splitDelimited(data_);
}

// After the summary: the stream's status. detail_ ends the refusal line: why
// the first refused message was refused.
int finishStream(const Delimited& stream_, size_t refused_, const std::string& detail_ = "") {
  if (!stream_.error.empty()) throw ToolError(exit_refused, "corrupt stream: " + stream_.error);
  if (refused_ != 0) {
    throw ToolError(exit_refused, "the module refused " + std::to_string(refused_) + " of " +
                                      std::to_string(stream_.messages.size()) + " messages" +
                                      detail_);
  }
  return exit_ok;
}

// Each dotted path hashed the way the module hashes field paths: the first
// name from the value set's base, every further one from the separator
// added to the hash before it.
tarn::tarn_xpath_hash_set findSet(const Args& args_, const Workbench& bench_,
                                  std::map<uint32_t, std::string>& paths_) {
  tarn::tarn_xpath_hash_set set;
  for (const auto& path : args_.all("find")) {
    const std::vector<std::string> names = splitPath(path);
    if (Schema::fieldAt(bench_.pRoot, names) == nullptr) {
      const std::string close = Schema::closestPath(bench_.pRoot, names);
      throw ToolError(exit_usage, "--find " + path + ": " + bench_.config.type +
                                      " has no such field path" +
                                      (close.empty() ? "" : " (did you mean " + close + "?)"));
    }
    uint32_t hash = tarn_host::default_base_hash;
    for (size_t i = 0; i < names.size(); ++i) {
      if (i) hash = tarn_message_xpath_hash_add_separator(hash);
      hash = tarn_message_xpath_hash_string(names[i].data(), names[i].size(), hash);
    }
    set.insert(hash);
    paths_[hash] = path;
  }
  return set;
}

int runParse(const Args& args_) {
  auto bench = Workbench::open(args_);
  std::map<uint32_t, std::string> paths;
  const tarn::tarn_xpath_hash_set find = findSet(args_, *bench, paths);
  const tarn::tarn_xpath_hash_set* pFind = args_.has("find") ? &find : nullptr;

  if (args_.has("delimited")) {
    std::string data;
    const Delimited stream = readStream(args_, data);
    const bool each = !args_.has("summary");
    // With --json the whole run is one document: the parses under "messages",
    // then the counts under "summary".
    std::unique_ptr<JsonOut> json(args_.has("json") ? new JsonOut(stdout) : nullptr);
    if (json) json->beginObject();
    if (json && each) json->key("messages").beginArray();
    std::unique_ptr<tarn_host::ValueSet> set(new tarn_host::ValueSet);
    size_t refused = 0, bytes = 0, entries = 0, firstRefused = 0;
    const auto start = Clock::now();
    for (size_t n = 0; n < stream.messages.size(); ++n) {
      const auto& m = stream.messages[n];
      Parsed parsed = parseWith(*bench, data.substr(m.first, m.second), pFind, std::move(set));
      if (parsed.status != TARN_SUCCESS && refused++ == 0) firstRefused = n;
      bytes += m.second;
      entries += parsed.set->size();
      if (each) {
        parsed.knownPaths = paths;
        parsed.wide = args_.has("wide");
        if (json) {
          printJson(*json, parsed.view(*bench, ""));
        } else {
          showParse(stdout, *bench, parsed, "message " + std::to_string(n + 1));
        }
      }
      set = std::move(parsed.set);
    }
    const double seconds = secondsSince(start);
    if (json) {
      if (each) json->endArray();
      json->key("summary").beginObject();
      json->key("messages").unsignedInteger(stream.messages.size());
      json->key("refused").unsignedInteger(refused);
      json->key("bytes").unsignedInteger(bytes);
      json->key("entries").unsignedInteger(entries);
      json->key("seconds").number(seconds);
      if (!stream.error.empty()) json->key("stream_error").string(stream.error);
      json->endObject();
      json->endObject();
      json.reset();
    } else {
      std::printf("%s\n", throughputLine("parsed", stream.messages.size(), refused, bytes,
                                         std::to_string(entries) + " entries", seconds)
                              .c_str());
    }
    std::string detail;
    if (refused != 0) {
      const auto& m = stream.messages[firstRefused];
      detail = "; the first is message " + std::to_string(firstRefused + 1) + ", at byte " +
               std::to_string(m.first) + " of the stream" +
               refusalDetail(*bench, data.substr(m.first, m.second));
    }
    return finishStream(stream, refused, detail);
  }

  Parsed parsed;
  std::future<BodyFit> fit = parseChecked(
      *bench, parsed, bench->loadMessage(args_.positional()[0], args_.has("text")), pFind);
  parsed.knownPaths = paths;
  parsed.wide = args_.has("wide");
  if (args_.has("json")) {
    JsonOut json(stdout);
    printJson(json, parsed.view(*bench, ""));
  } else {
    showParse(stdout, *bench, parsed, "");
  }
  std::fflush(stdout);
  if (parsed.status == TARN_SUCCESS) warnMisfits("parse", fit.get());
  if (parsed.status != TARN_SUCCESS) {
    throw ToolError(exit_refused, "the module refused the message (status " +
                                      std::to_string(parsed.status) + ") after storing " +
                                      std::to_string(parsed.set->size()) +
                                      (parsed.set->size() == 1 ? " entry" : " entries") +
                                      refusalDetail(*bench, parsed.body));
  }
  return exit_ok;
}

// One trace on a line of its own. The trace holds string and bytes fields as
// they stand, NUL and control bytes included: on a terminal they are escaped.
void writeTrace(const Args& args_, const std::string& text_) {
  if (args_.has("escape") || (stdoutIsTerminal() && !args_.has("no-escape"))) {
    const std::string escaped = escapeBinary(text_);
    std::fwrite(escaped.data(), 1, escaped.size(), stdout);
  } else {
    std::fwrite(text_.data(), 1, text_.size(), stdout);
  }
  std::fputc('\n', stdout);
}

int runTrace(const Args& args_) {
  auto bench = Workbench::open(args_);
  const bool fixed = args_.has("capacity");
  const size_t capacity = args_.getSize("capacity", 0);

  if (args_.has("delimited")) {
    std::string data;
    const Delimited stream = readStream(args_, data);
    const bool each = !args_.has("summary");
    size_t refused = 0, bytes = 0, chars = 0;
    std::string text;
    const auto start = Clock::now();
    for (const auto& m : stream.messages) {
      const std::string body = data.substr(m.first, m.second);
      if (fixed) {
        if (bench->module->traceOnce(body, capacity, text) != TARN_SUCCESS) ++refused;
      } else {
        text = bench->module->trace(body);
      }
      bytes += m.second;
      chars += text.size();
      if (each) writeTrace(args_, text);
    }
    const double seconds = secondsSince(start);
    std::printf("%s\n", throughputLine("traced", stream.messages.size(), refused, bytes,
                                       std::to_string(chars) + " characters of trace", seconds)
                            .c_str());
    return finishStream(stream, refused);
  }

  const std::string body = bench->loadMessage(args_.positional()[0], args_.has("text"));
  std::future<BodyFit> fitting = startFitCheck(*bench, body, trace_check_bytes);
  std::string text;
  int status = TARN_SUCCESS;
  if (fixed) {
    status = bench->module->traceOnce(body, capacity, text);
  } else {
    text = bench->module->trace(body);
  }
  const size_t written = text.size();
  writeTrace(args_, text);
  std::fflush(stdout);
  const BodyFit fit = fitting.get();
  warnMisfits("trace", fit);
  // The module traces any bytes; text read as wire format gives nonsense.
  if (!args_.has("text") && !looksLikeText(args_.positional()[0]) && looksLikeTextBody(body)) {
    std::fprintf(stderr, "tarnpb trace: note: %s\n", notProtobufVerdict(body).c_str());
  }
  for (const auto& group : fit.groups) {
    std::fprintf(stderr,
                 "tarnpb trace: note: %s is a proto2 group, which the trace does not show as a "
                 "structure: its start and end tags each leave the key \"%s\" with nothing "
                 "after the colon, and the fields inside it are looked up in the message around "
                 "it, where a number it lacks ends that level of the trace\n",
                 group.c_str(), group.substr(group.rfind('.') + 1).c_str());
  }
  if (status != TARN_SUCCESS) {
    throw ToolError(exit_refused, "the module refused the trace (status " + std::to_string(status) +
                                      ") with " + std::to_string(capacity) + " bytes of room; " +
                                      std::to_string(written) + " bytes were written");
  }
  return exit_ok;
}

}  // namespace

Command parseCommand() {
  std::vector<OptionSpec> options = inputOptions(schemaOptions());
  options.push_back({"json", 'j', nullptr, false,
                     "print the entries as one JSON document: strings as UTF-8 text; one that is "
                     "not UTF-8 has U+FFFD for each stray byte and its exact bytes in "
                     "\"value_hex\"; nan and inf as strings; with --delimited, each message's "
                     "parse under \"messages\" and the counts under \"summary\""});
  options.push_back({"wide", 'w', nullptr, false,
                     "show values the tree's column cuts whole, each on a line below its entry"});
  options.push_back({"find", 'f', "PATH", true,
                     "partial parse keeping only this dotted field path (e.g. order.price) "
                     "and what lies below it"});
  return {{"parse", "[options] MESSAGE",
           "Parse a message with the module and show the value set it fills.",
           "MESSAGE is a file, or - for the standard input. Each line of the tree is one\n"
           "entry: its index, path hash, field name (indented below its message), the\n"
           "module's value kind and value, and the field's bytes in the message.\n"
           "Entries made from schema defaults have no bytes; the elements of a packed\n"
           "field share the bytes of the whole field, so every element after the first\n"
           "names the first instead (\"raw_as\" in JSON). A refused message is shown as far\n"
           "as the module stored it, and the tool's own walk says where and why.\n"
           "Columns are terminal columns, counted alike whatever the locale (the C\n"
           "library's wcwidth in C.UTF-8): a wide East Asian character or an emoji\n"
           "takes two, a combining mark none, a byte that is not UTF-8 the four of\n"
           "its \\xNN. A string past 24 characters, or a value past its 28 columns,\n"
           "is cut with \"...\", never inside a character; --wide repeats it whole.",
           options, 1, 1},
          runParse};
}

Command traceCommand() {
  std::vector<OptionSpec> options = inputOptions(schemaOptions());
  options.push_back({"capacity", 'c', "N", false,
                     "give the module a trace buffer of N bytes instead of one that grows "
                     "until the trace fits"});
  options.push_back({"escape", 'e', nullptr, false,
                     "show control bytes and bytes that are not UTF-8 as \\xNN (the trace copies "
                     "string and bytes fields as they stand); the default on a terminal"});
  options.push_back({"no-escape", 0, nullptr, false,
                     "write the trace's bytes as they stand, also on a terminal"});
  return {{"trace", "[options] MESSAGE", "Show the module's trace text of a message.",
           "MESSAGE is a file, or - for the standard input. With --capacity, a buffer\n"
           "too small is refused by the module; the text it wrote up to then is shown.\n"
           "Fields whose wire type their schema never has are warned about (in a body\n"
           "over 4 MB, those of the fields that start in its first 4 MB).",
           options, 1, 1},
          runTrace};
}

}  // namespace tarnpb
