// One message-type module driven the way a server drives it: the library
// loaded with dlopen and its eleven entry points resolved by name, started with
// a logger, contexts created from ProtoPath / ProtoFile / Type options, and
// then only the entry points, each call built from the host's plain records.
// The tests, the fuzz targets, the benchmark and tarnpb all reach the module
// through this one class.
//
// The host's value-set functions must be in the process's global symbol scope
// before a module is loaded: the stand-in host library exports them, so any
// program that links it can load a module.
//
// Ownership: the driver owns the loaded library and unloads it when destroyed,
// after stopping the module if the driver started it. Contexts belong to the
// caller, who gives each back with destroyContext or keeps it for the life of
// the module. Every record, value set and buffer passed to a call stays the
// caller's; the driver keeps no pointer into them after returning.
#ifndef TARN_HOST_MODULE_DRIVER_H
#define TARN_HOST_MODULE_DRIVER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "message_type/tarn_message_type.h"

namespace tarn_host {

struct ModuleApi {
  decltype(&::tarn_module_init) module_init = nullptr;
  decltype(&::tarn_module_terminate) module_terminate = nullptr;
  decltype(&::tarn_message_type_create_context) create_context = nullptr;
  decltype(&::tarn_message_type_destroy_context) destroy_context = nullptr;
  decltype(&::tarn_message_type_get_supported_options) get_supported_options = nullptr;
  decltype(&::tarn_message_type_parse_message) parse_message = nullptr;
  decltype(&::tarn_message_type_partial_parse_message) partial_parse_message = nullptr;
  decltype(&::tarn_message_type_trace_message) trace_message = nullptr;
  decltype(&::tarn_message_type_compute_serialize_size) compute_serialize_size = nullptr;
  decltype(&::tarn_message_type_serialize_message) serialize_message = nullptr;
  decltype(&::tarn_message_type_delta_publish_merge) delta_publish_merge = nullptr;
};

// The names a message-type module must export, in the SDK's order.
const std::vector<std::string>& entryPointNames();

// The module this host library belongs with: the TARN_MODULE environment
// variable if set, else the installed module when this library runs from an
// installation, else the module of the build tree it was built in.
std::string defaultModulePath();

// An installed file, named by its path relative to the directory this library
// is installed in; "" when the library runs from a build tree (or the file is
// missing). Installed programs find their files this way wherever the
// installation was put.
std::string installedPath(const char* relative_);

// Options for a context, kept alive as long as the holder.
class ContextOptions {
 public:
  ContextOptions& add(const char* key_, const char* value_);
  tarn_module_options get();

 private:
  std::vector<std::pair<std::string, std::string>> _texts;
  std::vector<bool> _nullValue;
  std::vector<tarn_module_option> _options;
};

// The body type a protobuf module serializes (the only one it builds).
const uint32_t protobuf_body_type = 5;

class ModuleDriver {
 public:
  ModuleDriver() = default;
  // Stops the module if start() ran, then unloads the library.
  ~ModuleDriver();
  ModuleDriver(const ModuleDriver&) = delete;
  ModuleDriver& operator=(const ModuleDriver&) = delete;

  // Loads the library at path_ and resolves every entry point; the module is
  // not started. With privateCopy_ the library is loaded from a copy of the
  // file made for this driver alone (and removed once mapped), so that its
  // process-wide state (schema pool, mapped paths, logger) is its own even
  // when another driver in the process has the same file loaded.
  // REQUIRES: nothing loaded yet.
  // Returns false, with one line naming the file and what failed in error_,
  // when the library cannot be loaded or lacks an entry point.
  [[nodiscard]] bool load(const std::string& path_, std::string& error_, bool privateCopy_ = false);
  // tarn_module_init with logger_ (no options; the process heap as allocator).
  // REQUIRES: loaded.
  void start(tarn_module_logger logger_);
  // load() then start().
  [[nodiscard]] bool open(const std::string& path_, tarn_module_logger logger_, std::string& error_,
                          bool privateCopy_ = false);

  bool isLoaded() const { return _pHandle != nullptr; }
  // The raw entry points, for calls that need records built by hand.
  const ModuleApi& api() const { return _api; }

  // A context for type_ from file_, with each of protoDirs_ mapped as the root
  // of the virtual tree, in order. Null when the module refuses; its reasons
  // are in its log.
  tarn_message_type_context createContext(const std::vector<std::string>& protoDirs_,
                                          const std::string& file_, const std::string& type_) const;
  // A context from options_ as a server's configuration gives them: each
  // key/value pair handed to the module verbatim, in order.
  tarn_message_type_context createContext(
      const std::vector<std::pair<std::string, std::string>>& options_) const;
  int destroyContext(tarn_message_type_context context_) const;

  // Parses [data_, data_ + size_) into set_: a full parse without findSet_, a
  // partial one with it. Returns the module's status; entries stored before a
  // failure stay in set_.
  int parse(tarn_message_type_context context_, const char* data_, size_t size_,
            tarn_message_xpath_value_set set_,
            tarn_message_xpath_find_set findSet_ = nullptr) const;

  // Traces [data_, data_ + size_) into out_, behind its length. Returns the
  // module's status: TARN_FAILURE when out_ is too small.
  int trace(tarn_message_type_context context_, const char* data_, size_t size_,
            tarn_trace_output_buffer& out_) const;

  // The module's size answer for list_ behind message_'s content: the bytes
  // message_ must hold from its start, content included, for serialize().
  int serializeRoom(const tarn_message_value_list& list_,
                    const tarn_message_segment& message_) const;
  // Serializes list_ behind message_'s content and advances its byte count.
  // REQUIRES: message_ holds serializeRoom() bytes. Returns the module's
  // status.
  int serialize(const tarn_message_value_list& list_, tarn_message_segment& message_) const;
  // The same into segment_'s bytes: grows it by the room, serializes behind
  // its content and trims it to the byte count the module reports.
  int serialize(const tarn_message_value_list& list_, std::string& segment_) const;

  // The delta-publish merge of update_ over stored_ into output_, behind its
  // content. REQUIRES: mergeRoom(update_, stored_) bytes free there. Returns
  // the module's answer, output_'s byte count afterwards; update_ is cleared.
  int merge(tarn_message_xpath_value_set update_, tarn_message_xpath_value_set stored_,
            tarn_message_segment& output_) const;
  // The same into segment_'s bytes: grows it by the room, merges behind its
  // content and trims it to the byte count the module returns.
  uint32_t merge(tarn_message_xpath_value_set update_, tarn_message_xpath_value_set stored_,
                 std::string& segment_) const;

 private:
  static tarn_output_message_data _serializeRequest(const tarn_message_value_list& list_,
                                                    const tarn_message_segment& message_);

  void* _pHandle = nullptr;
  ModuleApi _api;
  bool _started = false;
};

// The bytes a merge of update_ over stored_ may write behind the output
// segment's content, from the module's merge room library (the module's own
// merge walk, counting). Either set may be empty.
uint64_t mergeRoom(tarn_message_xpath_value_set update_, tarn_message_xpath_value_set stored_);

// The per-message calls are inline, so that a benchmark timing them pays for
// the module's work and the records it is handed, nothing more.

inline int ModuleDriver::parse(tarn_message_type_context context_, const char* data_, size_t size_,
                               tarn_message_xpath_value_set set_,
                               tarn_message_xpath_find_set findSet_) const {
  tarn_input_message input = {};
  input.message_type_context = context_;
  input.data = data_;
  input.byte_count = size_;
  return findSet_ == nullptr ? _api.parse_message(&input, set_)
                             : _api.partial_parse_message(&input, findSet_, set_);
}

inline int ModuleDriver::trace(tarn_message_type_context context_, const char* data_, size_t size_,
                               tarn_trace_output_buffer& out_) const {
  const tarn_trace_buffer in = {data_, size_};
  return _api.trace_message(context_, &in, &out_);
}

// A serialization request carries the message segment whole: its offset and
// count place the output.
inline tarn_output_message_data ModuleDriver::_serializeRequest(
    const tarn_message_value_list& list_, const tarn_message_segment& message_) {
  tarn_output_message_data request = {};
  request.message = message_;
  request.value_list = &list_;
  request.body_type = protobuf_body_type;
  return request;
}

inline int ModuleDriver::serializeRoom(const tarn_message_value_list& list_,
                                       const tarn_message_segment& message_) const {
  tarn_output_message_data request = _serializeRequest(list_, message_);
  return _api.compute_serialize_size(&request);
}

inline int ModuleDriver::serialize(const tarn_message_value_list& list_,
                                   tarn_message_segment& message_) const {
  tarn_output_message_data request = _serializeRequest(list_, message_);
  const int status = _api.serialize_message(&request);
  message_.byte_count = request.message.byte_count;
  return status;
}

// The merge reads only the output segment's data and byte count.
inline int ModuleDriver::merge(tarn_message_xpath_value_set update_,
                               tarn_message_xpath_value_set stored_,
                               tarn_message_segment& output_) const {
  tarn_delta_message_data delta = {};
  delta.output.data = output_.data;
  delta.output.byte_count = output_.byte_count;
  delta.update_value_set = update_;
  delta.source_value_set = stored_;
  const int count = _api.delta_publish_merge(&delta);
  output_.byte_count = delta.output.byte_count;
  return count;
}

}  // namespace tarn_host

#endif
