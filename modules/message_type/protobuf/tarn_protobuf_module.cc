// Start, stop, context handling and the parse and trace doors. No exception
// may cross into the host: every entry point that can meet one stops it here.
#include <new>

#include "message_type/tarn_message_type.h"
#include "module_log.h"
#include "tarn_export.h"
#include "tarn_protobuf_message_type.h"

namespace {

const char* const g_protobuf_supported_options = "delta";

}  // namespace

TARN_EXPORT int tarn_module_init(tarn_module_options /*options*/, tarn_module_logger logger,
                                 tarn_module_allocator allocator) {
  tarn_protobuf::setLogger(logger);
  ALLOCATOR = allocator;
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
    // Only running out of memory gets here; the host sees a refusal.
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

TARN_EXPORT int tarn_message_type_parse_message(tarn_input_message* pInputMessage_,
                                                tarn_message_xpath_value_set valueSet_) {
  const auto* pContext =
      static_cast<const tarn_protobuf_message_type*>(pInputMessage_->message_type_context);
  return pContext->parseMessage(pInputMessage_->data, pInputMessage_->byte_count, valueSet_,
                                nullptr);
}

TARN_EXPORT int tarn_message_type_partial_parse_message(tarn_input_message* pInputMessage_,
                                                        const tarn_message_xpath_find_set findSet_,
                                                        tarn_message_xpath_value_set valueSet_) {
  const auto* pContext =
      static_cast<const tarn_protobuf_message_type*>(pInputMessage_->message_type_context);
  return pContext->parseMessage(pInputMessage_->data, pInputMessage_->byte_count, valueSet_,
                                findSet_);
}

TARN_EXPORT int tarn_message_type_trace_message(tarn_message_type_context context_,
                                                const tarn_trace_buffer* pTraceBuffer_,
                                                tarn_trace_output_buffer* pOutputBuffer_) {
  return static_cast<const tarn_protobuf_message_type*>(context_)->trace(pTraceBuffer_,
                                                                         pOutputBuffer_);
}
