// The module as a server drives it: loaded through the stand-in host, one
// context per message type, value sets from the host, and the value list a
// server would hand to serialization.
#ifndef TARN_BENCH_MODULE_HOST_H
#define TARN_BENCH_MODULE_HOST_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "host/module_driver.h"
#include "host/value_list.h"
#include "host/value_set.h"

namespace tarn_bench {

class ModuleHost {
 public:
  // Loads and starts the module (by default the one built beside the host);
  // false with a one-line reason when it cannot.
  bool open(std::string& error_, const std::string& path_ = tarn_host::defaultModulePath());
  ~ModuleHost();

  const tarn_host::ModuleApi& api() const { return _module.api(); }

  // A context for `type_` from `file_`, with `dir_` as the root of the virtual tree.
  tarn_message_type_context context(const std::string& dir_, const std::string& file_,
                                    const std::string& type_);

  int parse(tarn_message_type_context context_, const std::string& body_,
            tarn_host::ValueSet& set_) const;

 private:
  tarn_host::ModuleDriver _module;
  std::vector<tarn_message_type_context> _contexts;
};

// The value list a server hands to serialization: the stand-in host's builder.
using ValueList = tarn_host::ValueList;

}  // namespace tarn_bench

#endif
