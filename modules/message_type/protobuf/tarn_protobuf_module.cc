// The module's eleven entry points, and the only place that catches an
// exception: none may cross into the host. Each entry point checks what the
// host's records say, then hands over to the context (parse, trace) or to the
// serializer (serialize, merge), which hold no entry-point logic of their own.
//
// Exceptions that reach here: std::bad_alloc from context creation, from a
// parse level with more than 16 gaps in its field order and from a
// serialization with more than 64 submessages open at once; and the trace
// stream's overflow, which ends a trace whose buffer is full.
#include <new>

#include "message_type/tarn_message_type.h"
#include "module_log.h"
#include "schema_store.h"
#include "tarn_export.h"
#include "tarn_protobuf_message_type.h"
#include "tarn_protobuf_v2_serializer.h"
#include "trace_output_stream.h"

namespace {

const char* const g_protobuf_supported_options = "delta";

}  // namespace

TARN_EXPORT int tarn_module_init(tarn_module_options /*options*/, tarn_module_logger logger,
                                 tarn_module_allocator allocator) {
  tarn_protobuf::setLogger(logger);
  ALLOCATOR = allocator;
  schema_store::prepare();
  LOGGER(tarn_module_log_level_info, "tarn_protobuf message type module loaded");
  return TARN_SUCCESS;
}

TARN_EXPORT int tarn_module_terminate(void) {
  // Nothing is released: descriptors handed out stay valid until unload.
  LOGGER(tarn_module_log_level_info, "tarn_protobuf message type module terminating");
  return TARN_SUCCESS;
}

TARN_EXPORT tarn_message_type_context
tarn_message_type_create_context(const tarn_module_options options_) {
  try {
    return tarn_protobuf_message_type::create(options_);
  } catch (...) {
    // Only running out of memory (in this module or in libprotobuf's
    // importer) gets here; the host sees a refusal. A fixed text: composing
    // one could need memory again.
    LOGGER(tarn_module_log_level_critical,
           "Error in tarn_protobuf: out of memory while creating the message type context");
    return nullptr;
  }
}

TARN_EXPORT int tarn_message_type_destroy_context(tarn_message_type_context context_) {
  LOGGER(tarn_module_log_level_trace, "tarn_protobuf message type context destroy");
  delete static_cast<tarn_protobuf_message_type*>(context_);
  return TARN_SUCCESS;
}

TARN_EXPORT int tarn_message_type_get_supported_options(tarn_message_type_context /*context_*/,
                                                        const char** optionsOut_,
                                                        size_t* optionsOutLength_) {
  *optionsOut_ = g_protobuf_supported_options;
  *optionsOutLength_ = 5;
  return TARN_SUCCESS;
}

namespace {

int parse(const tarn_input_message* pInputMessage_, tarn_message_xpath_value_set valueSet_,
          tarn_message_xpath_find_set findSet_) {
  const auto* pContext =
      static_cast<const tarn_protobuf_message_type*>(pInputMessage_->message_type_context);
  try {
    return pContext->parseMessage(pInputMessage_->data, pInputMessage_->byte_count, valueSet_,
                                  findSet_);
  } catch (const std::bad_alloc&) {
    // The host sees a failed parse.
    return TARN_FAILURE;
  }
}

}  // namespace

TARN_EXPORT int tarn_message_type_parse_message(tarn_input_message* pInputMessage_,
                                                tarn_message_xpath_value_set valueSet_) {
  return parse(pInputMessage_, valueSet_, nullptr);
}

TARN_EXPORT int tarn_message_type_partial_parse_message(tarn_input_message* pInputMessage_,
                                                        const tarn_message_xpath_find_set findSet_,
                                                        tarn_message_xpath_value_set valueSet_) {
  return parse(pInputMessage_, valueSet_, findSet_);
}

TARN_EXPORT int tarn_message_type_trace_message(tarn_message_type_context context_,
                                                const tarn_trace_buffer* pTraceBuffer_,
                                                tarn_trace_output_buffer* pOutputBuffer_) {
  try {
    static_cast<const tarn_protobuf_message_type*>(context_)->trace(pTraceBuffer_, pOutputBuffer_);
  } catch (const trace_output_stream::trace_output_exception&) {
    // The buffer keeps the text that fitted; the host learns only that it is cut.
    return TARN_FAILURE;
  }
  return TARN_SUCCESS;
}

TARN_EXPORT int tarn_message_type_compute_serialize_size(tarn_output_message_data* outputMessage_) {
  if (outputMessage_ == nullptr ||
      outputMessage_->body_type != tarn_protobuf_v2_serializer::serializable_body_type)
    return 0;
  return tarn_protobuf_v2_serializer::serializeRoom(*outputMessage_);
}

TARN_EXPORT int tarn_message_type_serialize_message(tarn_output_message_data* outputMessage_) {
  if (outputMessage_ == nullptr ||
      outputMessage_->body_type != tarn_protobuf_v2_serializer::serializable_body_type)
    return TARN_FAILURE;
  tarn_message_segment& message = outputMessage_->message;
  if (outputMessage_->value_list == nullptr) return TARN_SUCCESS;
  char* pDestination = message.data + message.byte_offset + message.byte_count;
  tarn_protobuf_v2_serializer serializer(pDestination);
  size_t n = 0;
  try {
    n = serializer.serializeDelta(*outputMessage_->value_list);
  } catch (const std::bad_alloc&) {
    // No memory for a deeper tag stack: the message is not written, and a
    // host must not publish the segment as if it were.
    return TARN_FAILURE;
  }
  message.byte_count += static_cast<uint32_t>(n);
  return TARN_SUCCESS;
}

TARN_EXPORT int tarn_message_type_delta_publish_merge(tarn_delta_message_data* pDeltaMessage_) {
  if (pDeltaMessage_ == nullptr) return 0;
  tarn_message_xpath_value_set newValues = pDeltaMessage_->update_value_set;
  tarn_message_xpath_value_set oldValues = pDeltaMessage_->source_value_set;
  tarn_message_segment& output = pDeltaMessage_->output;
  char* pDestination = output.data + output.byte_count;
  tarn_protobuf_v2_serializer serializer(pDestination);
  const size_t n = serializer.serializeMerge(newValues, oldValues);
  output.byte_count += static_cast<uint32_t>(n);
  if (newValues != nullptr) tarn_message_xpath_clear(newValues);
  return static_cast<int>(output.byte_count);
}
