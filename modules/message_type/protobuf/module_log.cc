#include "module_log.h"

#include <cstdio>

namespace {

// Where log lines go before tarn_module_init, or when the host hands over no
// logger: nowhere. Every caller can then call LOGGER without a test.
void discardLine(int /*level_*/, const char* /*text_*/) {}

}  // namespace

tarn_module_logger LOGGER = &discardLine;
tarn_module_allocator ALLOCATOR = nullptr;

namespace tarn_protobuf {

void setLogger(tarn_module_logger logger_) { LOGGER = logger_ ? logger_ : &discardLine; }

void logFormatted(int level_, const char* format_, const char* first_, const char* second_) {
  char buffer[log_buffer_size];
  std::snprintf(buffer, sizeof buffer, format_, first_ ? first_ : "(null)",
                second_ ? second_ : "(null)");
  LOGGER(level_, buffer);
}

}  // namespace tarn_protobuf
