#include "module_error_collector.h"

#include <cstdio>
#include <new>
#include <sstream>

ModuleErrorCollector::ErrorMessage::ErrorMessage(const std::string& fileName_, int line_,
                                                 int column_, const std::string& message_) {
  // Numbers pass through as the importer gave them: 0-based, -1 for a whole file.
  std::ostringstream text;
  text << "Error in tarn_protobuf parsing file " << fileName_ << " at line " << line_ << " column "
       << column_ << ": " << message_;
  _message = text.str();
}

void ModuleErrorCollector::AddError(const std::string& fileName_, int line_, int column_,
                                    const std::string& message_) {
  try {
    _errors.emplace_back(fileName_, line_, column_, message_);
  } catch (const std::bad_alloc&) {
    ++_lost;
  }
}

void ModuleErrorCollector::logErrors(tarn_module_logger LOGGER) const {
  for (size_t i = 0; i < _errors.size(); ++i)
    LOGGER(tarn_module_log_level_error, _errors[i]._message.c_str());
  if (_lost == 0) return;
  char text[128];
  std::snprintf(text, sizeof text,
                "Error in tarn_protobuf: %zu import error lines were lost: out of memory", _lost);
  LOGGER(tarn_module_log_level_error, text);
}
