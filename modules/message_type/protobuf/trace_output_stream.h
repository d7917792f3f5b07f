// Appends trace text to a host-owned buffer that never grows. Every write
// either fits whole or throws trace_output_exception before touching the
// buffer, so a trace that runs out of room can be abandoned from any depth and
// the host still finds the text written so far, counted exactly by `length`.
//
// A trace is mostly one-character punctuation, names and numbers, so the text
// writes are inline: a bound check and a copy. Numbers are formatted straight
// into the buffer, which their room check has already proved to have
// convert_buffer_size free bytes.
#ifndef TARN_PROTOBUF_TRACE_OUTPUT_STREAM_H
#define TARN_PROTOBUF_TRACE_OUTPUT_STREAM_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "tarn_common.h"
#include "util/base/cstring.h"

class trace_output_stream {
 public:
  // Thrown by value when a write does not fit; carries nothing.
  class trace_output_exception {};

  // The stream does not own the buffer and writes nothing until asked.
  explicit trace_output_stream(tarn_trace_output_buffer* pOutput_) : _pOutput(pOutput_) {}

  trace_output_stream& operator<<(char c_) {
    _ensure(1);
    _pOutput->output[_pOutput->length++] = c_;
    return *this;
  }
  trace_output_stream& operator<<(const tarn::cstring& text_) {
    _write(text_._p, text_._len);
    return *this;
  }
  trace_output_stream& operator<<(const std::string& text_) {
    _write(text_.data(), text_.size());
    return *this;
  }
  trace_output_stream& operator<<(const char* text_) {
    _write(text_, std::strlen(text_));
    return *this;
  }

  // Writes n_ bytes when they all fit and says whether they did; writes
  // nothing otherwise (the caller then writes piece by piece, so that what
  // fits of a longer text is there when the stream throws).
  bool tryWrite(const char* p_, size_t n_) {
    if (_pOutput->length > _pOutput->capacity || n_ > _pOutput->capacity - _pOutput->length)
      return false;
    _copy(_pOutput->output + _pOutput->length, p_, n_);
    _pOutput->length += n_;
    return true;
  }

  // Writes n_ bytes between double quotes when all of it fits and says
  // whether it did, like tryWrite.
  bool tryWriteQuoted(const char* p_, size_t n_) {
    if (_pOutput->length > _pOutput->capacity || n_ + 2 > _pOutput->capacity - _pOutput->length)
      return false;
    char* const pOut = _pOutput->output + _pOutput->length;
    pOut[0] = '"';
    if (n_ != 0) std::memcpy(pOut + 1, p_, n_);
    pOut[n_ + 1] = '"';
    _pOutput->length += n_ + 2;
    return true;
  }

  // Numbers demand convert_buffer_size free bytes whatever their text, so the
  // room check never depends on formatting. Doubles read as "%g" would print
  // them in the C locale; integers in plain decimal.
  trace_output_stream& operator<<(double value_);
  trace_output_stream& operator<<(uint64_t value_);
  trace_output_stream& operator<<(int64_t value_);
  trace_output_stream& operator<<(uint32_t value_);
  trace_output_stream& operator<<(int32_t value_);

 private:
  static const unsigned int convert_buffer_size = 64;

  // Throws unless size_ more bytes fit behind `length`. Written so that
  // neither side can wrap: a host buffer that already claims more than its
  // capacity simply has no room.
  void _ensure(size_t size_) {
    if (__builtin_expect(
            _pOutput->length > _pOutput->capacity || size_ > _pOutput->capacity - _pOutput->length,
            0))
      _overflow();
  }
  [[noreturn]] static void _overflow();

  // Exactly n_ bytes. Keys are short: up to 16 bytes go as two overlapping
  // loads and stores of the widest size that fits, without a library call.
  static void _copy(char* pDst_, const char* pSrc_, size_t n_) {
    if (n_ >= 8 && n_ <= 16) {
      uint64_t head, tail;
      std::memcpy(&head, pSrc_, 8);
      std::memcpy(&tail, pSrc_ + n_ - 8, 8);
      std::memcpy(pDst_, &head, 8);
      std::memcpy(pDst_ + n_ - 8, &tail, 8);
    } else if (n_ >= 4 && n_ < 8) {
      uint32_t head, tail;
      std::memcpy(&head, pSrc_, 4);
      std::memcpy(&tail, pSrc_ + n_ - 4, 4);
      std::memcpy(pDst_, &head, 4);
      std::memcpy(pDst_ + n_ - 4, &tail, 4);
    } else if (n_ != 0) {
      std::memcpy(pDst_, pSrc_, n_);
    }
  }

  void _write(const char* p_, size_t n_) {
    _ensure(n_);
    // An empty write may come with a null source or a null host buffer.
    if (n_ == 0) return;
    std::memcpy(_pOutput->output + _pOutput->length, p_, n_);
    _pOutput->length += n_;
  }

  template <typename T>
  trace_output_stream& _number(T value_);

  tarn_trace_output_buffer* _pOutput;
};

#endif
