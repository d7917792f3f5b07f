// merge and serialize: the two ways the module writes a message.
#include <cstring>
#include <future>
#include <memory>

#include "commands.h"
#include "host/merge_bound.h"
#include "host/value_list.h"
#include "input.h"
#include "modules/message_type/protobuf/tarn_protobuf_v2_serializer.h"
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
// terminal, or nowhere (shown as hex instead). The parsed view goes to the
// standard output, or to standard error while the body occupies it.
std::FILE* deliver(const Args& args_, const std::string& body_, const std::string& what_) {
  if (args_.has("output")) {
    writeOutput(args_.get("output"), body_);
    return stdout;
  }
  if (!stdoutIsTerminal()) {
    writeOutput("", body_);
    return stderr;
  }
  std::printf("%s: %zu bytes\n%s\n", what_.c_str(), body_.size(),
              hexBytes(body_.data(), body_.size()).c_str());
  return stdout;
}

Parsed parseOrRefuse(const Workbench& bench_, const std::string& path_, bool text_,
                     const std::string& what_) {
  Parsed parsed = parseWith(bench_, bench_.loadMessage(path_, text_));
  if (parsed.status != TARN_SUCCESS) {
    showParse(stderr, bench_, parsed, what_, false);
    throw ToolError(exit_refused, "the module refused the " + what_ + " (status " +
                                      std::to_string(parsed.status) + ")" +
                                      refusalDetail(bench_, parsed.body));
  }
  return parsed;
}

}  // namespace

std::string mergeBodies(const ModuleSession& module_, tarn_host::ValueSet& update_,
                        tarn_host::ValueSet& stored_) {
  // The module checks no capacity: the host sizes the segment beforehand.
  const size_t room = static_cast<size_t>(tarn_host::mergeOutputBound(update_, stored_));
  GuardedRoom buffer(room);
  tarn_delta_message_data delta = {};
  delta.output.data = buffer.data();
  delta.update_value_set = update_.handle();
  delta.source_value_set = stored_.handle();
  const int count = module_.api().delta_publish_merge(&delta);
  if (!buffer.guardIntact() || static_cast<size_t>(count) > room ||
      delta.output.byte_count > room) {
    throw ToolError(exit_refused,
                    "the module's merge wrote past the " + std::to_string(room) + " bytes of room");
  }
  return buffer.take(delta.output.byte_count);
}

namespace {

int runMergeCommand(const Args& args_) {
  auto bench = Workbench::open(args_);
  const bool text = args_.has("text");
  std::string merged;
  std::unique_ptr<tarn_host::ValueSet> reused;
  {
    // The update's value set is dropped and the stored one's storage parses
    // the result: at most two are held at once.
    Parsed stored = parseOrRefuse(*bench, args_.positional()[0], text, "stored message");
    Parsed update = parseOrRefuse(*bench, args_.positional()[1], text, "update message");
    merged = mergeBodies(*bench->module, *update.set, *stored.set);
    reused = std::move(stored.set);
  }

  std::FILE* pOut = deliver(args_, merged, "merged message");
  const Parsed again = parseWith(*bench, merged, nullptr, std::move(reused));
  showParse(pOut, *bench, again, "merged message", args_.has("json"));
  if (args_.has("trace"))
    std::fprintf(pOut, "%s\n", escapeBinary(bench->module->trace(merged)).c_str());
  if (again.status != TARN_SUCCESS)
    throw ToolError(exit_refused, "the module cannot parse its own merged message");
  return exit_ok;
}

int runSerialize(const Args& args_) {
  auto bench = Workbench::open(args_);
  Parsed parsed = parseOrRefuse(*bench, args_.positional()[0], args_.has("text"), "message");
  auto list = std::make_unique<tarn_host::ValueList>();
  list->build(*parsed.set);

  tarn_output_message_data out = {};
  out.body_type = tarn_protobuf_v2_serializer::serializable_body_type;
  out.value_list = list->list();
  const int sizeAnswer = bench->module->api().compute_serialize_size(&out);
  // The size answer counts each value's bytes; a submessage's four-byte length
  // slot can be longer than the prefix it replaces, so room is added for it.
  const size_t roomSize =
      static_cast<size_t>(sizeAnswer < 0 ? 0 : sizeAnswer) + 4 * list->documents();
  GuardedRoom room(roomSize);
  out.message.data = room.data();
  const int status = bench->module->api().serialize_message(&out);
  if (!room.guardIntact() || out.message.byte_count > roomSize) {
    throw ToolError(exit_refused, "the module's serialization wrote past the " +
                                      std::to_string(roomSize) + " bytes of room");
  }
  if (status != TARN_SUCCESS) {
    throw ToolError(exit_refused,
                    "the module refused to serialize (status " + std::to_string(status) + ")");
  }
  const std::string buffer = room.take(out.message.byte_count);
  const size_t valueCount = list->values().size();
  // The rebuilt body no longer needs the list or the entries behind it; the
  // value set's storage parses the rebuild.
  list.reset();

  std::FILE* pOut = deliver(args_, buffer, "rebuilt message");
  // libprotobuf's reading of both bodies needs nothing of the module's: it
  // runs beside the module's parse of the rebuild and the printing of it.
  std::future<bool> same;
  if (!args_.has("json")) {
    same = std::async(std::launch::async, [&] {
      return bench->schema->sameMessage(bench->pRoot, parsed.body, buffer);
    });
  }
  int againStatus;
  {
    const Parsed again = parseWith(*bench, buffer, nullptr, std::move(parsed.set));
    showParse(pOut, *bench, again, "rebuilt message", args_.has("json"));
    againStatus = again.status;
  }
  if (same.valid()) {
    std::fprintf(
        pOut, "%zu values, size answer %d, %zu bytes written; libprotobuf reads %s\n", valueCount,
        sizeAnswer, buffer.size(),
        same.get() ? "the same message as the input" : "a DIFFERENT message from the input");
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
  options.push_back({"json", 'j', nullptr, false, "show the result's entries as JSON"});
  return options;
}

}  // namespace

Command mergeCommand() {
  std::vector<OptionSpec> options = buildOptions();
  options.push_back({"trace", 0, nullptr, false, "also show the module's trace of the result"});
  return {{"merge", "[options] STORED UPDATE",
           "Merge an update message into a stored one, as a delta publish does.",
           "Both messages are parsed by the module, then merged by it: fields the update\n"
           "carries replace the stored ones, nested messages on both sides are merged\n"
           "field by field, stored fields the update lacks stay. The merged body is\n"
           "written out and shown parsed. While the body goes to the standard output,\n"
           "the parsed view goes to standard error.",
           options, 2, 2},
          runMergeCommand};
}

Command serializeCommand() {
  return {{"serialize", "[options] MESSAGE",
           "Rebuild a message from the value list of its parse, as a server does.",
           "Every entry with bytes becomes one value at its depth, a packed field once. A\n"
           "message with a member that carries bytes opens a submessage, whose length the\n"
           "module writes as a four-byte varint; an empty one, or one of defaults only,\n"
           "goes whole as a plain value. The result is shown parsed, with whether\n"
           "libprotobuf reads it as the input message.",
           buildOptions(), 1, 1},
          runSerialize};
}

}  // namespace tarnpb
