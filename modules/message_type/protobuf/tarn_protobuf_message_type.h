// One configured message type. The object holds its root descriptor and the
// field table of the root, which the engines walk. Like the schema objects
// behind every descriptor (schema_store.h), the tables are process-wide,
// shared by all contexts and kept until the module is unloaded: a context may
// name a type that an earlier context loaded, its tables are complete before
// it is returned and read-only from then on, and neither descriptors nor
// tables ever dangle.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_MESSAGE_TYPE_H
#define TARN_PROTOBUF_TARN_PROTOBUF_MESSAGE_TYPE_H

#include <google/protobuf/descriptor.h>

#include <string>

#include "field_table.h"
#include "message_type/tarn_message_type.h"

class tarn_protobuf_message_type {
 public:
  tarn_protobuf_message_type() : _pRootDescriptor(nullptr), _pRootTable(nullptr) {}

  // Builds a context from the host's options, or returns null and says why in
  // the log. Must not run on two threads at once: it changes the shared schema.
  // Throws std::bad_alloc when memory runs out; the shared schema is then as
  // it was, or marked damaged (schema_store.h).
  static tarn_protobuf_message_type* create(const tarn_module_options options_);

  static bool addProtoPath(const std::string& root_, const std::string& path_);
  static bool addProtoFile(const char* fileName_);
  bool addType(const char* typeName_);

  // Parses a body into valueSet_ (keeping only what findSet_ asks for, when
  // it is not null). Returns the parser's status; throws std::bad_alloc when
  // a level with more than 16 gaps in its field order finds no memory.
  [[nodiscard]] int parseMessage(const char* pData_, size_t length_,
                                 tarn_message_xpath_value_set valueSet_,
                                 tarn_message_xpath_find_set findSet_) const;
  // Renders the trace of a body into pOutputBuffer_. Throws
  // trace_output_stream::trace_output_exception when the buffer is full,
  // leaving the text that fitted.
  void trace(const tarn_trace_buffer* pTraceBuffer_,
             tarn_trace_output_buffer* pOutputBuffer_) const;

 private:
  const google::protobuf::Descriptor* _pRootDescriptor;
  const type_table* _pRootTable;  // shared, owned by field_tables
};

#endif
