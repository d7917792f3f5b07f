#include "module_driver.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "protobuf/tarn_protobuf_merge_room.h"

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

// A copy of the file at path_ in a directory of its own, for a load that
// shares nothing with other loads of the same file; "" when it cannot be made.
std::string privateCopy(const std::string& path_, std::string& error_) {
  std::error_code failed;
  std::string dir = (std::filesystem::temp_directory_path(failed) / "tarn-module-XXXXXX").string();
  if (failed || ::mkdtemp(&dir[0]) == nullptr) {
    error_ = "cannot make a directory for a private copy of module " + path_;
    return "";
  }
  const std::string copy = dir + "/" + std::filesystem::path(path_).filename().string();
  if (!std::filesystem::copy_file(path_, copy, failed)) {
    std::filesystem::remove_all(dir, failed);
    error_ = "cannot copy module " + path_ + ": " + failed.message();
    return "";
  }
  return copy;
}

}  // namespace

bool ModuleDriver::load(const std::string& path_, std::string& error_, bool privateCopy_) {
  std::string file = path_;
  if (privateCopy_) {
    file = privateCopy(path_, error_);
    if (file.empty()) return false;
  }
  _pHandle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (privateCopy_) {
    // Mapped now: the copy's name is no longer needed.
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(file).parent_path(), ignored);
  }
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

void ModuleDriver::start(tarn_module_logger logger_) {
  _api.module_init(nullptr, logger_, &std::malloc);
  _started = true;
}

bool ModuleDriver::open(const std::string& path_, tarn_module_logger logger_, std::string& error_,
                        bool privateCopy_) {
  if (!load(path_, error_, privateCopy_)) return false;
  start(logger_);
  return true;
}

ModuleDriver::~ModuleDriver() {
  if (_pHandle == nullptr) return;
  if (_started) _api.module_terminate();
  dlclose(_pHandle);
}

tarn_message_type_context ModuleDriver::createContext(const std::vector<std::string>& protoDirs_,
                                                      const std::string& file_,
                                                      const std::string& type_) const {
  std::vector<std::pair<std::string, std::string>> options;
  for (const std::string& dir : protoDirs_) options.emplace_back("ProtoPath", ";" + dir);
  options.emplace_back("ProtoFile", file_);
  options.emplace_back("Type", type_);
  return createContext(options);
}

tarn_message_type_context ModuleDriver::createContext(
    const std::vector<std::pair<std::string, std::string>>& options_) const {
  ContextOptions options;
  for (const auto& option : options_) options.add(option.first.c_str(), option.second.c_str());
  return _api.create_context(options.get());
}

int ModuleDriver::destroyContext(tarn_message_type_context context_) const {
  return _api.destroy_context(context_);
}

int ModuleDriver::serialize(const tarn_message_value_list& list_, std::string& segment_) const {
  tarn_message_segment message = {};
  message.byte_count = static_cast<uint32_t>(segment_.size());
  const int room = serializeRoom(list_, message);
  if (room > 0 && static_cast<size_t>(room) > segment_.size()) segment_.resize(room);
  message.data = &segment_[0];
  const int status = serialize(list_, message);
  segment_.resize(message.byte_count);
  return status;
}

uint32_t ModuleDriver::merge(tarn_message_xpath_value_set update_,
                             tarn_message_xpath_value_set stored_, std::string& segment_) const {
  const size_t content = segment_.size();
  segment_.resize(content + mergeRoom(update_, stored_));
  tarn_message_segment output = {};
  output.data = &segment_[0];
  output.byte_count = static_cast<uint32_t>(content);
  const uint32_t count = static_cast<uint32_t>(merge(update_, stored_, output));
  segment_.resize(count);
  return count;
}

uint64_t mergeRoom(tarn_message_xpath_value_set update_, tarn_message_xpath_value_set stored_) {
  return tarn_protobuf_merge_room(update_, stored_);
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
