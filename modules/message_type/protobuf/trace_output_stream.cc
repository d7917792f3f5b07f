#include "trace_output_stream.h"

#include <charconv>
#include <type_traits>

void trace_output_stream::_overflow() { throw trace_output_exception(); }

// std::to_chars writes what printf writes for these values in the C locale:
// plain decimal for integers, and for a double with chars_format::general and
// precision 6 exactly the "%g" text (six significant digits, the shorter of
// fixed and exponent notation, trailing zeros dropped, "inf", "-nan").
template <typename T>
trace_output_stream& trace_output_stream::_number(T value_) {
  _ensure(convert_buffer_size);
  char* const pFirst = _pOutput->output + _pOutput->length;
  std::to_chars_result result;
  if constexpr (std::is_floating_point<T>::value) {
    result =
        std::to_chars(pFirst, pFirst + convert_buffer_size, value_, std::chars_format::general, 6);
  } else {
    result = std::to_chars(pFirst, pFirst + convert_buffer_size, value_);
  }
  // No number comes near 64 characters; a failure would write nothing.
  if (result.ec == std::errc()) _pOutput->length += static_cast<size_t>(result.ptr - pFirst);
  return *this;
}

trace_output_stream& trace_output_stream::operator<<(double value_) { return _number(value_); }

trace_output_stream& trace_output_stream::operator<<(uint64_t value_) { return _number(value_); }

trace_output_stream& trace_output_stream::operator<<(int64_t value_) { return _number(value_); }

trace_output_stream& trace_output_stream::operator<<(uint32_t value_) { return _number(value_); }

trace_output_stream& trace_output_stream::operator<<(int32_t value_) { return _number(value_); }
