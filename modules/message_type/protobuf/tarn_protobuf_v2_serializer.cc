// Serialization and merge are not built yet: build nothing and say so.
#include "message_type/tarn_message_type.h"
#include "tarn_export.h"

TARN_EXPORT int tarn_message_type_compute_serialize_size(tarn_output_message_data*) { return 0; }

TARN_EXPORT int tarn_message_type_serialize_message(tarn_output_message_data*) {
  return TARN_FAILURE;
}

TARN_EXPORT int tarn_message_type_delta_publish_merge(tarn_delta_message_data* pDeltaMessage_) {
  return static_cast<int>(pDeltaMessage_->output.byte_count);
}
