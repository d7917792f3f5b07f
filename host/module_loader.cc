#include "module_loader.h"

#include <dlfcn.h>

#include <cstdlib>

namespace tarn_host {

const std::vector<std::string>& entryPointNames() {
  static const std::vector<std::string> names = {
      "tarn_module_init",
      "tarn_module_terminate",
      "tarn_message_type_create_context",
      "tarn_message_type_destroy_context",
      "tarn_message_type_get_supported_options",
      "tarn_message_type_parse_message",
      "tarn_message_type_partial_parse_message",
      "tarn_message_type_trace_message",
      "tarn_message_type_compute_serialize_size",
      "tarn_message_type_serialize_message",
      "tarn_message_type_delta_publish_merge",
  };
  return names;
}

namespace {

template <typename F>
bool resolve(void* pHandle_, const char* name_, F& slot_, const std::string& path_,
             std::string& error_) {
  slot_ = reinterpret_cast<F>(dlsym(pHandle_, name_));
  if (slot_ != nullptr) return true;
  error_ = "module " + path_ + " lacks the entry point " + name_;
  return false;
}

}  // namespace

bool LoadedModule::open(const std::string& path_, std::string& error_) {
  _pHandle = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (_pHandle == nullptr) {
    const char* why = dlerror();
    error_ = "cannot load module " + path_ + ": " + (why ? why : "unknown error");
    return false;
  }
  const auto& n = entryPointNames();
  bool ok = resolve(_pHandle, n[0].c_str(), _api.module_init, path_, error_) &&
            resolve(_pHandle, n[1].c_str(), _api.module_terminate, path_, error_) &&
            resolve(_pHandle, n[2].c_str(), _api.create_context, path_, error_) &&
            resolve(_pHandle, n[3].c_str(), _api.destroy_context, path_, error_) &&
            resolve(_pHandle, n[4].c_str(), _api.get_supported_options, path_, error_) &&
            resolve(_pHandle, n[5].c_str(), _api.parse_message, path_, error_) &&
            resolve(_pHandle, n[6].c_str(), _api.partial_parse_message, path_, error_) &&
            resolve(_pHandle, n[7].c_str(), _api.trace_message, path_, error_) &&
            resolve(_pHandle, n[8].c_str(), _api.compute_serialize_size, path_, error_) &&
            resolve(_pHandle, n[9].c_str(), _api.serialize_message, path_, error_) &&
            resolve(_pHandle, n[10].c_str(), _api.delta_publish_merge, path_, error_);
  if (!ok) {
    dlclose(_pHandle);
    _pHandle = nullptr;
    _api = ModuleApi();
  }
  return ok;
}

LoadedModule::~LoadedModule() {
  if (_pHandle != nullptr) dlclose(_pHandle);
}

std::string installedPath(const char* relative_) {
  Dl_info self;
  if (dladdr(reinterpret_cast<void*>(&installedPath), &self) == 0 || self.dli_fname == nullptr)
    return "";
  std::string path = self.dli_fname;
  const size_t slash = path.rfind('/');
  path = (slash == std::string::npos ? std::string(".") : path.substr(0, slash)) + "/" + relative_;
  // Canonical, so that what is shown is the plain installed path.
  char* pResolved = ::realpath(path.c_str(), nullptr);
  if (pResolved == nullptr) return "";
  path = pResolved;
  std::free(pResolved);
  return path;
}

std::string defaultModulePath() {
  if (const char* env = std::getenv("TARN_MODULE")) return env;
#ifdef TARN_INSTALLED_MODULE
  const std::string installed = installedPath(TARN_INSTALLED_MODULE);
  if (!installed.empty()) return installed;
#endif
  return TARN_DEFAULT_MODULE_PATH;
}

ContextOptions& ContextOptions::add(const char* key_, const char* value_) {
  _texts.emplace_back(key_ ? key_ : "", value_ ? value_ : "");
  _nullValue.push_back(value_ == nullptr);
  return *this;
}

tarn_module_options ContextOptions::get() {
  _options.clear();
  for (size_t i = 0; i < _texts.size(); ++i)
    _options.push_back(
        {_texts[i].first.c_str(), _nullValue[i] ? nullptr : _texts[i].second.c_str()});
  _options.push_back({nullptr, nullptr});
  return _options.data();
}

}  // namespace tarn_host
