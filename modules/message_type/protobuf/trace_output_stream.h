// Appends trace text to a host-owned buffer that never grows. Every write
// either fits whole or throws trace_output_exception before touching the
// buffer, so a trace that runs out of room can be abandoned from any depth and
// the host still finds the text written so far, counted exactly by `length`.
#ifndef TARN_PROTOBUF_TRACE_OUTPUT_STREAM_H
#define TARN_PROTOBUF_TRACE_OUTPUT_STREAM_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "tarn_common.h"
#include "util/base/cstring.h"

class trace_output_stream {
 public:
  // Thrown by value when a write does not fit; carries nothing.
  class trace_output_exception {};

  // The stream does not own the buffer and writes nothing until asked.
  explicit trace_output_stream(tarn_trace_output_buffer* pOutput_) : _pOutput(pOutput_) {}

  trace_output_stream& operator<<(char c_);
  trace_output_stream& operator<<(const tarn::cstring& text_);
  trace_output_stream& operator<<(const std::string& text_);
  trace_output_stream& operator<<(const char* text_);

  // Numbers demand convert_buffer_size free bytes whatever their text, so the
  // room check never depends on formatting.
  trace_output_stream& operator<<(double value_);
  trace_output_stream& operator<<(uint64_t value_);
  trace_output_stream& operator<<(int64_t value_);
  trace_output_stream& operator<<(uint32_t value_);
  trace_output_stream& operator<<(int32_t value_);

 private:
  static const unsigned int convert_buffer_size = 64;

  // Throws unless size_ more bytes fit behind `length`.
  void _ensure(size_t size_);
  void _append(const char* p_, size_t n_);
  template <typename T>
  trace_output_stream& _number(const char* format_, T value_);

  tarn_trace_output_buffer* _pOutput;
};

#endif
