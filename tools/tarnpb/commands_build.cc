// merge and serialize: the two ways the module writes a message.
#include <cstring>
#include <future>
#include <memory>

#include "commands.h"
#include "host/module_driver.h"
#include "host/value_list.h"
#include "input.h"
#include "json_out.h"
#include "merge_check.h"
#include "text_util.h"

namespace tarnpb {

namespace {

// Bytes behind the room a call was given that must still hold this pattern
// afterwards: a module writing past its room is caught, not silently wrong.
const size_t guard_bytes = 64;
const char guard_fill = '\xA5';

// The room a module is given to write into, and the guard behind it. The room
// itself is not filled: only the pages the module writes are touched.
class GuardedRoom {
 public:
  explicit GuardedRoom(size_t room_) : _room(room_), _pBytes(new char[room_ + guard_bytes]) {
    std::memset(_pBytes.get() + room_, guard_fill, guard_bytes);
  }
  char* data() { return _pBytes.get(); }
  bool guardIntact() const {
    for (size_t i = _room; i < _room + guard_bytes; ++i)
      if (_pBytes[i] != guard_fill) return false;
    return true;
  }
  std::string take(size_t length_) const { return std::string(_pBytes.get(), length_); }

 private:
  size_t _room;
  std::unique_ptr<char[]> _pBytes;
};

// Where a rebuilt body goes: -o FILE, the standard output when it is not a
// terminal, or nowhere (shown as hex instead: here, or with --json under
// "body_hex", then set in hexInJson_). The summary (and --view) goes to the
// standard output, or to standard error while the body occupies it.
std::FILE* deliver(const Args& args_, const std::string& body_, const std::string& what_,
                   bool& hexInJson_) {
  hexInJson_ = false;
  if (args_.has("output")) {
    writeOutput(args_.get("output"), body_);
    return stdout;
  }
  if (!stdoutIsTerminal()) {
    writeOutput("", body_);
    return stderr;
  }
  if (args_.has("json")) {
    hexInJson_ = true;
  } else {
    std::printf("%s: %zu bytes\n%s\n", what_.c_str(), body_.size(),
                hexBytes(body_.data(), body_.size()).c_str());
  }
  return stdout;
}

// The warnings of a command, on standard error as they arise; with --json
// they are gathered for the document instead, which keeps it whole wherever
// it goes.
class Warnings {
 public:
  Warnings(const Args& args_, const char* command_)
      : _json(args_.has("json")), _command(command_) {}
  void add(const std::string& kind_, const std::string& path_, const std::string& text_,
           const std::string& line_) {
    if (_json) {
      _list.push_back({kind_, path_, text_, line_});
    } else {
      warn(_command, line_);
    }
  }
  void add(const MergeWarning& w_) { add(w_.kind, w_.path, w_.text, w_.line); }
  // Fields of a message that do not fit the schema.
  void misfits(const std::string& what_, const BodyFit& fit_) {
    for (const auto& line : misfitLines(fit_)) add("misfit", "", what_ + ": " + line, line);
  }
  void writeJson(JsonOut& out_) const {
    out_.key("warnings").beginArray();
    for (const auto& w : _list) {
      out_.beginObject();
      out_.key("kind").string(w.kind);
      out_.key("path").string(w.path);
      out_.key("text").string(w.text);
      out_.endObject();
    }
    out_.endArray();
  }

 private:
  bool _json;
  const char* _command;
  std::vector<MergeWarning> _list;
};

Parsed parseOrRefuse(const Workbench& bench_, std::string body_, const std::string& what_,
                     Warnings& warnings_) {
  Parsed parsed;
  std::future<BodyFit> fit = parseChecked(bench_, parsed, std::move(body_));
  if (parsed.status != TARN_SUCCESS) {
    showParse(stderr, bench_, parsed, what_);
    throw ToolError(exit_refused, "the module refused the " + what_ + " (status " +
                                      std::to_string(parsed.status) + ")" +
                                      refusalDetail(bench_, parsed.body));
  }
  warnings_.misfits(what_, fit.get());
  return parsed;
}

}  // namespace

std::string mergeBodies(const ModuleSession& module_, tarn_host::ValueSet& update_,
                        tarn_host::ValueSet& stored_) {
  // The module checks no capacity: the host sizes the segment beforehand.
  const size_t room = static_cast<size_t>(tarn_host::mergeRoom(update_.handle(), stored_.handle()));
  GuardedRoom buffer(room);
  tarn_message_segment output = {};
  output.data = buffer.data();
  const int count = module_.driver().merge(update_.handle(), stored_.handle(), output);
  if (!buffer.guardIntact() || static_cast<size_t>(count) > room || output.byte_count > room) {
    throw ToolError(exit_refused,
                    "the module's merge wrote past the " + std::to_string(room) + " bytes of room");
  }
  return buffer.take(output.byte_count);
}

namespace {

int runMergeCommand(const Args& args_) {
  auto bench = Workbench::open(args_);
  const bool text = args_.has("text");
  Warnings warnings(args_, "merge");
  std::string merged;
  std::unique_ptr<tarn_host::ValueSet> reused;
  std::vector<MergeWarning> departures;
  size_t storedBytes, updateBytes;
  {
    // The update's value set is dropped and the stored one's storage parses
    // the result: at most two are held at once.
    Parsed stored = parseOrRefuse(*bench, bench->loadMessage(args_.positional()[0], text),
                                  "stored message", warnings);
    Parsed update = parseOrRefuse(*bench, bench->loadMessage(args_.positional()[1], text),
                                  "update message", warnings);
    departures = mergeDepartures(bench->pRoot, stored.body, update.body);
    storedBytes = stored.body.size();
    updateBytes = update.body.size();
    merged = mergeBodies(*bench->module, *update.set, *stored.set);
    reused = std::move(stored.set);
  }
  MergeWarning size;
  if (sizeDeparture(storedBytes, updateBytes, merged.size(), size)) departures.push_back(size);
  for (const auto& w : departures) warnings.add(w);

  bool hexInJson;
  std::FILE* pOut = deliver(args_, merged, "merged message", hexInJson);
  const bool view = args_.has("view"), trace = args_.has("trace");
  const Parsed again = parseWith(*bench, merged, nullptr, std::move(reused));
  if (args_.has("json")) {
    JsonOut json(pOut);
    json.beginObject();
    json.key("type").string(bench->config.type);
    json.key("bytes").unsignedInteger(merged.size());
    json.key("stored_bytes").unsignedInteger(storedBytes);
    json.key("update_bytes").unsignedInteger(updateBytes);
    warnings.writeJson(json);
    if (hexInJson) json.key("body_hex").hex(merged.data(), merged.size());
    if (view) printJson(json.key("parsed"), again.view(*bench, ""));
    if (trace) {
      const std::string traced = bench->module->trace(merged);
      json.bytes("trace", "trace_hex", traced.data(), traced.size());
    }
    json.endObject();
  } else {
    std::fprintf(pOut, "merged message: %s, %zu bytes from a stored %zu and an update %zu; %s\n",
                 bench->config.type.c_str(), merged.size(), storedBytes, updateBytes,
                 departures.empty() ? "no departure from protobuf's merge"
                                    : (std::to_string(departures.size()) +
                                       (departures.size() == 1 ? " departure" : " departures") +
                                       " from protobuf's merge (see the warnings)")
                                          .c_str());
    if (view) {
      std::fflush(pOut);
      showParse(pOut, *bench, again, "merged message");
    }
    if (trace) std::fprintf(pOut, "%s\n", escapeBinary(bench->module->trace(merged)).c_str());
  }
  if (again.status != TARN_SUCCESS)
    throw ToolError(exit_refused, "the module cannot parse its own merged message");
  return exit_ok;
}

int runSerialize(const Args& args_) {
  auto bench = Workbench::open(args_);
  Warnings warnings(args_, "serialize");
  Parsed parsed = parseOrRefuse(
      *bench, bench->loadMessage(args_.positional()[0], args_.has("text")), "message", warnings);
  const std::string& input = parsed.body;
  auto list = std::make_unique<tarn_host::ValueList>();
  list->build(*parsed.set);

  const tarn_host::ModuleDriver& module = bench->module->driver();
  tarn_message_segment out = {};
  // The size answer counts each value's bytes and each submessage's length slot.
  const int sizeAnswer = module.serializeRoom(*list->list(), out);
  const size_t roomSize = static_cast<size_t>(sizeAnswer < 0 ? 0 : sizeAnswer);
  GuardedRoom room(roomSize);
  out.data = room.data();
  const int status = module.serialize(*list->list(), out);
  if (!room.guardIntact() || out.byte_count > roomSize) {
    throw ToolError(exit_refused, "the module's serialization wrote past the " +
                                      std::to_string(roomSize) + " bytes of room");
  }
  if (status != TARN_SUCCESS) {
    throw ToolError(exit_refused,
                    "the module refused to serialize (status " + std::to_string(status) + ")");
  }
  const std::string buffer = room.take(out.byte_count);
  const size_t valueCount = list->values().size();
  // The rebuilt body no longer needs the list or the entries behind it; the
  // value set's storage parses the rebuild.
  list.reset();

  bool hexInJson;
  std::FILE* pOut = deliver(args_, buffer, "rebuilt message", hexInJson);
  // libprotobuf's reading of the rebuild runs beside the module's parse of it.
  std::future<bool> same = std::async(
      std::launch::async, [&] { return bench->schema->sameMessage(bench->pRoot, input, buffer); });
  const bool json = args_.has("json"), view = args_.has("view");
  int againStatus;
  {
    const Parsed again = parseWith(*bench, buffer, nullptr, std::move(parsed.set));
    againStatus = again.status;
    const bool equal = same.get();
    if (json) {
      JsonOut out(pOut);
      out.beginObject();
      out.key("type").string(bench->config.type);
      out.key("values").unsignedInteger(valueCount);
      out.key("size_answer").integer(sizeAnswer);
      out.key("bytes").unsignedInteger(buffer.size());
      out.key("same_message").boolean(equal);
      warnings.writeJson(out);
      if (hexInJson) out.key("body_hex").hex(buffer.data(), buffer.size());
      if (view) printJson(out.key("parsed"), again.view(*bench, ""));
      out.endObject();
    } else {
      std::fprintf(pOut,
                   "rebuilt message: %s, %zu values, size answer %d, %zu bytes written; "
                   "libprotobuf reads %s\n",
                   bench->config.type.c_str(), valueCount, sizeAnswer, buffer.size(),
                   equal ? "the same message as the input" : "a DIFFERENT message from the input");
      if (view) {
        std::fflush(pOut);
        showParse(pOut, *bench, again, "rebuilt message");
      }
    }
  }
  if (againStatus != TARN_SUCCESS)
    throw ToolError(exit_refused, "the module cannot parse its own rebuilt message");
  return exit_ok;
}

std::vector<OptionSpec> buildOptions() {
  std::vector<OptionSpec> options = schemaOptions();
  options.push_back(
      {"text", 0, nullptr, false,
       "the inputs are protobuf text format (implied by .txtpb, .textproto, .pbtxt)"});
  options.push_back({"output", 'o', "FILE", false,
                     "write the message body to FILE (default: the standard output when it is "
                     "not a terminal)"});
  options.push_back({"json", 'j', nullptr, false,
                     "print the summary as one JSON document, with the warnings in it (not on "
                     "standard error), each a \"kind\", \"path\" and \"text\", and --view "
                     "under \"parsed\""});
  options.push_back({"view", 'v', nullptr, false,
                     "also show the result parsed by the module, as parse does (long for large "
                     "messages: a summary is printed by default)"});
  return options;
}

}  // namespace

Command mergeCommand() {
  std::vector<OptionSpec> options = buildOptions();
  options.push_back({"trace", 0, nullptr, false,
                     "also show the module's trace of the result (with --json, under \"trace\")"});
  return {{"merge", "[options] STORED UPDATE",
           "Merge an update message into a stored one, as a delta publish does.",
           "Both messages are parsed by the module, then merged by it, by field path:\n"
           "fields the update carries are written first and replace the stored fields of\n"
           "the same path whole; nested messages on both sides are merged field by field;\n"
           "the stored fields the update lacks follow. A summary is printed (--view shows\n"
           "the result parsed); the merged body goes to -o FILE, or to the standard output\n"
           "when it is not a terminal, the summary then going to standard error.\n\n"
           "Where this departs from protobuf's merge (MergeFrom), a warning says so:\n"
           "- a oneof member set while the stored message holds another: both are\n"
           "  written, the update's first, so readers see the stored one. Value\n"
           "  {number_value: 3} merged with {string_value: \"new\"} reads as number_value 3.\n"
           "- a repeated field or map is replaced whole: stored map keys 1 and -5 are\n"
           "  gone when the update carries key 2; 3 items and 2 in the update give 2.\n"
           "- each update item of a repeated message is merged against one stored item\n"
           "  and receives its fields: two update items {b: true} over a stored {s: \"x\"}\n"
           "  both come out with s \"x\".\n"
           "- so the output can be many times the size of its inputs.\n"
           "- an empty nested message in the update replaces the stored one whole.\n"
           "In --json their kinds are oneof, repeated and map, items, size and empty;\n"
           "misfit is a body that does not fit its schema.\n"
           "docs/integrating.md explains how publishers should shape deltas.",
           options, 2, 2},
          runMergeCommand};
}

Command serializeCommand() {
  return {{"serialize", "[options] MESSAGE",
           "Rebuild a message from the value list of its parse, as a server does.",
           "Every entry with bytes becomes one value at its depth, a packed field once. A\n"
           "message with a member that carries bytes opens a submessage, whose length the\n"
           "module writes as a four-byte varint; an empty one, or one of defaults only,\n"
           "goes whole as a plain value. A summary says whether libprotobuf reads the\n"
           "result as the input message; --view shows it parsed by the module.",
           buildOptions(), 1, 1},
          runSerialize};
}

}  // namespace tarnpb
