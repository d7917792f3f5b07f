#include "module_fixture.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

namespace tarn_test {

const tarn_host::ModuleApi& api() {
  static tarn_host::LoadedModule* pModule = [] {
    auto* p = new tarn_host::LoadedModule();
    std::string error;
    if (!p->open(TARN_MODULE_PATH, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      std::abort();
    }
    p->api().module_init(nullptr, &tarn_host::Logger::log, &std::malloc);
    return p;
  }();
  return pModule->api();
}

std::string dataDir() { return std::string(TARN_SOURCE_DIR) + "/tests/data"; }

std::string corpusDir() {
  std::string dir = std::string(TARN_SOURCE_DIR) + "/../shared/corpus/protobuf-v21.12";
  struct stat info;
  return ::stat(dir.c_str(), &info) == 0 ? dir : std::string();
}

tarn_message_type_context makeContext(const std::string& dir, const std::string& file,
                                      const std::string& type) {
  tarn_host::ContextOptions options;
  std::string path = ";" + dir;
  options.add("ProtoPath", path.c_str()).add("ProtoFile", file.c_str()).add("Type", type.c_str());
  return api().create_context(options.get());
}

int parse(tarn_message_type_context context, const std::string& body, tarn_host::ValueSet& set) {
  tarn_input_message input = {};
  input.message_type_context = context;
  input.data = body.data();
  input.byte_count = body.size();
  return api().parse_message(&input, set.handle());
}

}  // namespace tarn_test
