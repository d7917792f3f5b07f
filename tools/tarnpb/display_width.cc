#include "display_width.h"

#include <locale.h>
#include <wchar.h>

#include <cstdint>
#include <cstring>

#include "text_util.h"

namespace tarnpb {

namespace {

// wcwidth reads the calling thread's locale: the C.UTF-8 one is put in place
// for the call only, so neither the user's LANG nor anything else the thread
// does sees a difference.
size_t codePointColumns(char32_t c_) {
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(0));
  if (utf8 == locale_t(0)) return 1;
  const locale_t previous = uselocale(utf8);
  const int columns = wcwidth(static_cast<wchar_t>(c_));
  uselocale(previous);
  return columns < 0 ? 1 : static_cast<size_t>(columns);
}

}  // namespace

TextSpan characterAt(const char* p_, size_t left_) {
  const auto* p = reinterpret_cast<const unsigned char*>(p_);
  if (p[0] < 0x80) return {1, 1};
  const size_t length = utf8SequenceLength(p, left_);
  if (length == 0) return {1, 1};
  // The lead byte keeps 7 - length bits of the code point, each further byte 6.
  char32_t c = p[0] & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) c = (c << 6) | (p[i] & 0x3Fu);
  return {length, codePointColumns(c)};
}

size_t columnsOf(const char* p_, size_t length_) {
  if (isAscii(p_, length_)) return length_;
  size_t columns = 0;
  for (size_t i = 0; i < length_;) {
    const TextSpan c = characterAt(p_ + i, length_ - i);
    i += c.bytes;
    columns += c.columns;
  }
  return columns;
}

TextSpan prefixWithin(const char* p_, size_t length_, size_t columns_, size_t bytes_) {
  // Leading ASCII one byte a column; the first other character ends the
  // fast path.
  size_t limit = length_ < columns_ ? length_ : columns_;
  if (bytes_ < limit) limit = bytes_;
  size_t ascii = 0;
  while (ascii < limit && static_cast<unsigned char>(p_[ascii]) < 0x80) ++ascii;
  TextSpan kept = {ascii, ascii};
  while (kept.bytes < length_) {
    const TextSpan c = characterAt(p_ + kept.bytes, length_ - kept.bytes);
    if (kept.columns + c.columns > columns_ || kept.bytes + c.bytes > bytes_) break;
    kept.bytes += c.bytes;
    kept.columns += c.columns;
  }
  return kept;
}

namespace {

// fitAt's cut, out of line so that the padding most columns need saves no
// registers for it.
[[gnu::noinline]] char* cutAt(char* p_, TextSpan text_, size_t width_) {
  const size_t dots = width_ > 3 ? 3 : 0;
  const size_t room = width_ - dots;
  // Only ASCII takes one byte a column (a character beyond it takes more
  // bytes than columns): it is cut by bytes.
  TextSpan kept;
  if (text_.bytes == text_.columns) {
    kept.bytes = kept.columns = text_.bytes < room ? text_.bytes : room;
  } else {
    kept = prefixWithin(p_, text_.bytes, room, text_.bytes);
  }
  char* const p = p_ + kept.bytes;
  std::memcpy(p, "...", dots);
  std::memset(p + dots, ' ', room - kept.columns);
  return p + dots + (room - kept.columns);
}

}  // namespace

char* fitAt(char* p_, TextSpan text_, size_t width_, bool clipped_) {
  if (clipped_ || text_.columns > width_) return cutAt(p_, text_, width_);
  std::memset(p_ + text_.bytes, ' ', width_ - text_.columns);
  return p_ + text_.bytes + (width_ - text_.columns);
}

void appendFitted(std::string& out_, const char* pText_, size_t length_, size_t width_) {
  const size_t start = out_.size();
  out_.append(pText_, length_);
  out_.resize(start + length_ + width_);
  char* const pEnd = fitAt(&out_[start], {length_, columnsOf(pText_, length_)}, width_, false);
  out_.resize(static_cast<size_t>(pEnd - out_.data()));
}

}  // namespace tarnpb
