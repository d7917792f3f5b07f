// Loads a message-type module the way a server does: dlopen, then every entry
// point resolved by name. The host's own value-set functions are already in the
// global symbol scope (this library exports them), so the module binds to them.
#ifndef TARN_HOST_MODULE_LOADER_H
#define TARN_HOST_MODULE_LOADER_H

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

class LoadedModule {
 public:
  // Opens the library and resolves every entry point. On failure returns false
  // and sets error_ to one line naming the file and the missing piece.
  bool open(const std::string& path_, std::string& error_);
  ~LoadedModule();

  const ModuleApi& api() const { return _api; }
  bool isOpen() const { return _pHandle != nullptr; }

 private:
  void* _pHandle = nullptr;
  ModuleApi _api;
};

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

}  // namespace tarn_host

#endif
