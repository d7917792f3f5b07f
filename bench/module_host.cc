#include "module_host.h"

#include <cstdlib>

#include "host/logger.h"

namespace tarn_bench {

bool ModuleHost::open(std::string& error_, const std::string& path_) {
  if (!_module.load(path_, error_)) return false;
  _module.api().module_init(nullptr, &tarn_host::Logger::log, &std::malloc);
  return true;
}

ModuleHost::~ModuleHost() {
  if (!_module.isOpen()) return;
  for (tarn_message_type_context c : _contexts) _module.api().destroy_context(c);
  _module.api().module_terminate();
}

tarn_message_type_context ModuleHost::context(const std::string& dir_, const std::string& file_,
                                              const std::string& type_) {
  tarn_host::ContextOptions options;
  const std::string path = ";" + dir_;
  options.add("ProtoPath", path.c_str()).add("ProtoFile", file_.c_str()).add("Type", type_.c_str());
  tarn_message_type_context c = _module.api().create_context(options.get());
  if (c != nullptr) _contexts.push_back(c);
  return c;
}

int ModuleHost::parse(tarn_message_type_context context_, const std::string& body_,
                      tarn_host::ValueSet& set_) const {
  tarn_input_message input = {};
  input.message_type_context = context_;
  input.data = body_.data();
  input.byte_count = body_.size();
  return _module.api().parse_message(&input, set_.handle());
}

}  // namespace tarn_bench
