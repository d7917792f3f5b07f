#include "module_log.h"

#include <cstdio>

tarn_module_logger LOGGER = nullptr;
tarn_module_allocator ALLOCATOR = nullptr;

namespace tarn_protobuf {

void logFormatted(int level_, const char* format_, const char* first_, const char* second_) {
  char buffer[log_buffer_size];
  std::snprintf(buffer, sizeof buffer, format_, first_ ? first_ : "(null)",
                second_ ? second_ : "(null)");
  LOGGER(level_, buffer);
}

}  // namespace tarn_protobuf
