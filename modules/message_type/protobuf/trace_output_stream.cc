#include "trace_output_stream.h"

#include <cstdio>
#include <cstring>

void trace_output_stream::_ensure(size_t size_) {
  // Written so that neither side can wrap: a host buffer that already claims
  // more than its capacity simply has no room.
  if (_pOutput->length > _pOutput->capacity || size_ > _pOutput->capacity - _pOutput->length)
    throw trace_output_exception();
}

void trace_output_stream::_append(const char* p_, size_t n_) {
  // An empty write may come with a null source or a null host buffer.
  if (n_ == 0) return;
  std::memcpy(_pOutput->output + _pOutput->length, p_, n_);
  _pOutput->length += n_;
}

template <typename T>
trace_output_stream& trace_output_stream::_number(const char* format_, T value_) {
  _ensure(convert_buffer_size);
  char text[convert_buffer_size];
  int n = std::snprintf(text, sizeof(text), format_, value_);
  if (n <= 0) return *this;
  // No number these formats produce comes near 64 characters; cut anyway.
  size_t length = static_cast<size_t>(n);
  _append(text, length < sizeof(text) ? length : sizeof(text) - 1);
  return *this;
}

trace_output_stream& trace_output_stream::operator<<(char c_) {
  _ensure(1);
  _append(&c_, 1);
  return *this;
}

trace_output_stream& trace_output_stream::operator<<(const tarn::cstring& text_) {
  _ensure(text_._len);
  _append(text_._p, text_._len);
  return *this;
}

trace_output_stream& trace_output_stream::operator<<(const std::string& text_) {
  _ensure(text_.size());
  _append(text_.data(), text_.size());
  return *this;
}

trace_output_stream& trace_output_stream::operator<<(const char* text_) {
  size_t n = std::strlen(text_);
  _ensure(n);
  _append(text_, n);
  return *this;
}

trace_output_stream& trace_output_stream::operator<<(double value_) {
  return _number("%g", value_);
}

trace_output_stream& trace_output_stream::operator<<(uint64_t value_) {
  return _number("%lu", static_cast<unsigned long>(value_));
}

trace_output_stream& trace_output_stream::operator<<(int64_t value_) {
  return _number("%ld", static_cast<long>(value_));
}

trace_output_stream& trace_output_stream::operator<<(uint32_t value_) {
  return _number("%u", static_cast<unsigned>(value_));
}

trace_output_stream& trace_output_stream::operator<<(int32_t value_) {
  return _number("%d", static_cast<int>(value_));
}
