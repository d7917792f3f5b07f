// Collects the importer's error reports as finished log lines. The list only
// grows: every failed import logs every line collected since the module was
// loaded, oldest first, so an operator sees earlier failures again.
#ifndef TARN_PROTOBUF_MODULE_ERROR_COLLECTOR_H
#define TARN_PROTOBUF_MODULE_ERROR_COLLECTOR_H

#include <google/protobuf/compiler/importer.h>

#include <string>
#include <vector>

#include "module/tarn_module.h"

class ModuleErrorCollector : public google::protobuf::compiler::MultiFileErrorCollector {
 public:
  class ErrorMessage {
   public:
    ErrorMessage(const std::string& fileName_, int line_, int column_, const std::string& message_);
    ErrorMessage(ErrorMessage&&) = default;
    ~ErrorMessage() = default;

    std::string _message;
  };

  ModuleErrorCollector() = default;
  ~ModuleErrorCollector() override = default;

  // Never throws: a line that finds no memory is counted instead of kept, so
  // that the importer fails the file through its own error path, which
  // leaves its pool consistent, rather than being unwound by an exception.
  void AddError(const std::string& fileName_, int line_, int column_,
                const std::string& message_) override;

  // Logs every collected line at the error level, then how many were lost
  // for want of memory, if any; the list is kept.
  void logErrors(tarn_module_logger LOGGER) const;

 private:
  std::vector<ErrorMessage> _errors;
  size_t _lost = 0;
};

#endif
