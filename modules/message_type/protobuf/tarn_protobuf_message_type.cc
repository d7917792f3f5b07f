#include "tarn_protobuf_message_type.h"

#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <sstream>

#include "module_log.h"
#include "schema_store.h"
#include "tarn_protobuf_v2_parser.h"
#include "tarn_protobuf_v2_tracer.h"

using google::protobuf::Descriptor;

namespace {

const char* const module_init_format = "tarn_protobuf message type MODULE_INIT: %s = %s";

bool isKey(const char* key_, const char* name_) {
  return std::strlen(key_) == 9 && std::memcmp(key_, name_, 9) == 0;
}

bool isTypeKey(const char* key_) { return std::strncmp(key_, "Type", 4) == 0; }

}  // namespace

bool tarn_protobuf_message_type::addProtoPath(const std::string& root_, const std::string& path_) {
  if (path_.empty()) return false;
  struct stat info;
  if (::stat(path_.c_str(), &info) != 0) {
    // Composed in a stream, not a fixed buffer: the path is shown whole.
    std::ostringstream text;
    text << "Error in tarn_protobuf: proto path does not exist: " << path_;
    LOGGER(tarn_module_log_level_warning, text.str().c_str());
    return false;
  }
  schema_store::get().mapPath(root_, path_);
  return true;
}

bool tarn_protobuf_message_type::addProtoFile(const char* fileName_) {
  if (fileName_ == nullptr) return false;
  schema_store& store = schema_store::get();
  if (store.import(fileName_) != nullptr) {
    tarn_protobuf::logFormatted(tarn_module_log_level_info,
                                "tarn_protobuf successfully loaded proto file %s", fileName_);
    return true;
  }
  store.errors().logErrors(LOGGER);
  return false;
}

bool tarn_protobuf_message_type::addType(const char* typeName_) {
  if (typeName_ == nullptr) return false;
  const Descriptor* pType = schema_store::get().pool().FindMessageTypeByName(typeName_);
  if (pType == nullptr) {
    tarn_protobuf::logFormatted(
        tarn_module_log_level_emergency,
        "tarn_protobuf failed to locate type %s specified in the TARN message type configuration.",
        typeName_);
    return false;
  }
  tarn_protobuf::logFormatted(tarn_module_log_level_info, "tarn_protobuf added type %s", typeName_);
  if (_pRootDescriptor == nullptr) _pRootDescriptor = pType;
  return true;
}

tarn_protobuf_message_type* tarn_protobuf_message_type::create(const tarn_module_options options_) {
  if (schema_store::damaged()) {
    LOGGER(tarn_module_log_level_critical,
           "Error in tarn_protobuf: no new message type context: running out of memory during an "
           "earlier import left the shared schema incomplete; restart the server");
    return nullptr;
  }
  std::unique_ptr<tarn_protobuf_message_type> context(new tarn_protobuf_message_type());

  // Three walks, so that paths are mapped before the import and the import is
  // done before any type is looked up, whatever the order of the options.
  int hasFiles = 0;
  for (const tarn_module_option* pOption = options_; pOption && pOption->key; ++pOption) {
    if (isKey(pOption->key, "ProtoFile")) {
      ++hasFiles;
    } else if (isKey(pOption->key, "ProtoPath")) {
      tarn_protobuf::logFormatted(tarn_module_log_level_info, module_init_format, pOption->key,
                                  pOption->value);
      if (pOption->value == nullptr) continue;
      const char* pSplit = std::strchr(pOption->value, ';');
      if (pSplit == nullptr) continue;
      addProtoPath(std::string(pOption->value, pSplit), std::string(pSplit + 1));
    }
  }
  if (hasFiles == 0) {
    LOGGER(tarn_module_log_level_critical,
           "tarn_protobuf a ProtoFile is required in the configuration");
    return nullptr;
  }
  if (hasFiles > 1) {
    LOGGER(tarn_module_log_level_critical,
           "tarn_protobuf only one ProtoFile may be set in the configuration");
    return nullptr;
  }

  for (const tarn_module_option* pOption = options_; pOption->key; ++pOption) {
    if (!isKey(pOption->key, "ProtoFile")) continue;
    tarn_protobuf::logFormatted(tarn_module_log_level_info, module_init_format, pOption->key,
                                pOption->value);
    // A failed import does not refuse the context by itself: its type may
    // already be in the shared pool from an earlier context.
    addProtoFile(pOption->value);
  }

  uint32_t typeCount = 0;
  for (const tarn_module_option* pOption = options_; pOption->key; ++pOption) {
    if (!isTypeKey(pOption->key)) continue;
    if (!context->addType(pOption->value)) return nullptr;
    ++typeCount;
  }
  if (typeCount == 0) {
    LOGGER(tarn_module_log_level_emergency, "tarn_protobuf at least one Type is required");
    return nullptr;
  }

  context->_pRootTable = field_tables::of(context->_pRootDescriptor);
  LOGGER(tarn_module_log_level_trace, "tarn_protobuf message type context created successfully");
  return context.release();
}

int tarn_protobuf_message_type::parseMessage(const char* pData_, size_t length_,
                                             tarn_message_xpath_value_set valueSet_,
                                             tarn_message_xpath_find_set findSet_) const {
  tarn_protobuf_v2_parser parser(_pRootTable, valueSet_, findSet_);
  return parser.parse(pData_, length_);
}

void tarn_protobuf_message_type::trace(const tarn_trace_buffer* pTraceBuffer_,
                                       tarn_trace_output_buffer* pOutputBuffer_) const {
  tarn_protobuf_v2_tracer tracer(_pRootTable, pOutputBuffer_);
  tracer.trace(pTraceBuffer_);
}
