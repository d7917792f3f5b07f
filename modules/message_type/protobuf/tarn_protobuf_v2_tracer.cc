// Tracing is not built yet: report failure and write nothing.
#include "tarn_protobuf_message_type.h"

int tarn_protobuf_message_type::trace(const tarn_trace_buffer*, tarn_trace_output_buffer*) const {
  return TARN_FAILURE;
}
