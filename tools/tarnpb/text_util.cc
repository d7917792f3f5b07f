#include "text_util.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstring>

namespace tarnpb {

namespace {

const char hex_digits[] = "0123456789abcdef";

bool printable(unsigned char c_) { return c_ >= 0x20 && c_ < 0x7F; }

void appendByteHex(std::string& out_, unsigned char c_) {
  out_ += hex_digits[c_ >> 4];
  out_ += hex_digits[c_ & 15];
}

template <typename T>
void appendInteger(std::string& out_, T value_) {
  char text[24];
  const auto result = std::to_chars(text, text + sizeof text, value_);
  out_.append(text, result.ptr);
}

// {fmt}'s plain form of a value has its shortest digits that read back;
// they are laid out again as "%g" lays out that many (at least six).
template <typename T>
void appendGeneral(std::string& out_, T value_) {
  char text[48];
  const char* const pEnd = fmt::format_to(text, "{}", value_);
  if (!std::isfinite(value_)) {
    out_.append(text, static_cast<size_t>(pEnd - text));
    return;
  }
  const char* p = text;
  if (*p == '-') out_ += *p++;
  // The significant digits, and the exponent of the first: d.ddd times 10^exponent.
  char digits[24];
  size_t count = 0;
  int exponent = -1;
  bool point = false;
  for (; p != pEnd && *p != 'e'; ++p) {
    if (*p == '.') {
      point = true;
    } else if ((count != 0 || *p != '0') && count < sizeof digits) {
      digits[count++] = *p;
      if (!point) ++exponent;
    } else if (point) {
      --exponent;
    }
  }
  if (count == 0) {
    out_ += '0';
    return;
  }
  if (p != pEnd) {
    int shift = 0;
    std::from_chars(p + (p[1] == '+' ? 2 : 1), pEnd, shift);
    exponent += shift;
  }
  while (count > 1 && digits[count - 1] == '0') --count;
  const int precision = count > 6 ? static_cast<int>(count) : 6;
  if (exponent < -4 || exponent >= precision) {
    out_ += digits[0];
    if (count > 1) {
      out_ += '.';
      out_.append(digits + 1, count - 1);
    }
    out_ += exponent < 0 ? "e-" : "e+";
    const int magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude < 10) out_ += '0';
    appendInteger(out_, magnitude);
  } else if (exponent < 0) {
    out_ += "0.";
    out_.append(static_cast<size_t>(-exponent - 1), '0');
    out_.append(digits, count);
  } else {
    const size_t whole = static_cast<size_t>(exponent) + 1;
    if (count <= whole) {
      out_.append(digits, count);
      out_.append(whole - count, '0');
    } else {
      out_.append(digits, whole);
      out_ += '.';
      out_.append(digits + whole, count - whole);
    }
  }
}

}  // namespace

char* writeHex(char* p_, const char* pData_, size_t length_) {
  for (size_t i = 0; i < length_; ++i) {
    const auto c = static_cast<unsigned char>(pData_[i]);
    if (i) *p_++ = ' ';
    *p_++ = hex_digits[c >> 4];
    *p_++ = hex_digits[c & 15];
  }
  return p_;
}

char* writeHash(char* p_, uint32_t hash_) {
  // The tree view writes one hash a line: its eight digits are made side by
  // side in one word rather than looked up one by one. Each nibble goes to a
  // byte of its own, the first digit in the lowest byte once swapped ...
  uint64_t x = hash_;
  x = ((x & 0xFFFF0000u) << 16) | (x & 0xFFFFu);
  x = ((x & 0x0000FF000000FF00u) << 8) | (x & 0x000000FF000000FFu);
  x = ((x & 0x00F000F000F000F0u) << 4) | (x & 0x000F000F000F000Fu);
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the word is stored low byte first");
  x = __builtin_bswap64(x);
  // ... and becomes '0' + n, or 'a' + n - 10 where n is 10 or more.
  const uint64_t letters = ((x + 0x0606060606060606u) >> 4) & 0x0101010101010101u;
  x += 0x3030303030303030u + letters * ('a' - '0' - 10);
  *p_++ = '0';
  *p_++ = 'x';
  std::memcpy(p_, &x, 8);
  return p_ + 8;
}

void appendHex(std::string& out_, const char* pData_, size_t length_, size_t maxBytes_) {
  const size_t shown = maxBytes_ != 0 && length_ > maxBytes_ ? maxBytes_ : length_;
  // In pieces of a local buffer: one append per piece, not three per byte.
  char text[3 * 64];
  for (size_t done = 0; done < shown;) {
    const size_t count = shown - done < 64 ? shown - done : 64;
    if (done) out_ += ' ';
    out_.append(text, static_cast<size_t>(writeHex(text, pData_ + done, count) - text));
    done += count;
  }
  if (shown < length_) {
    out_ += " ... (";
    appendDecimal(out_, static_cast<uint64_t>(length_));
    out_ += " bytes)";
  }
}

std::string hexBytes(const char* pData_, size_t length_, size_t maxBytes_) {
  std::string out;
  appendHex(out, pData_, length_, maxBytes_);
  return out;
}

char* writeHexCompact(char* p_, const char* pData_, size_t length_) {
  for (size_t i = 0; i < length_; ++i) {
    const auto c = static_cast<unsigned char>(pData_[i]);
    *p_++ = hex_digits[c >> 4];
    *p_++ = hex_digits[c & 15];
  }
  return p_;
}

bool appendQuoted(std::string& out_, const char* pData_, size_t length_, size_t maxCharacters_) {
  out_ += '"';
  const auto* p = reinterpret_cast<const unsigned char*>(pData_);
  size_t i = 0;
  for (size_t shown = 0; i < length_ && (maxCharacters_ == 0 || shown < maxCharacters_); ++shown) {
    const unsigned char c = p[i];
    // UTF-8 text is shown as text.
    if (const size_t n = c >= 0x80 ? utf8SequenceLength(p + i, length_ - i) : 0) {
      out_.append(pData_ + i, n);
      i += n;
      continue;
    }
    switch (c) {
      case '"':
        out_ += "\\\"";
        break;
      case '\\':
        out_ += "\\\\";
        break;
      case '\n':
        out_ += "\\n";
        break;
      case '\t':
        out_ += "\\t";
        break;
      case '\r':
        out_ += "\\r";
        break;
      default:
        if (printable(c)) {
          out_ += static_cast<char>(c);
        } else {
          out_ += "\\x";
          appendByteHex(out_, c);
        }
    }
    ++i;
  }
  out_ += '"';
  if (i == length_) return false;
  out_ += "...";
  return true;
}

std::string escapeBinary(const std::string& text_) {
  std::string out;
  out.reserve(text_.size());
  const auto* p = reinterpret_cast<const unsigned char*>(text_.data());
  for (size_t i = 0; i < text_.size();) {
    const unsigned char c = p[i];
    if (printable(c)) {
      out += static_cast<char>(c);
      ++i;
    } else if (const size_t n = utf8SequenceLength(p + i, text_.size() - i)) {
      out.append(text_, i, n);
      i += n;
    } else {
      out += "\\x";
      appendByteHex(out, c);
      ++i;
    }
  }
  return out;
}

size_t utf8SequenceLength(const unsigned char* p_, size_t left_) {
  const unsigned char c = p_[0];
  size_t length;
  unsigned char low = 0x80, high = 0xBF;  // the allowed range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    length = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    length = 3;
    if (c == 0xE0) low = 0xA0;   // no overlong forms
    if (c == 0xED) high = 0x9F;  // no surrogates
  } else if (c >= 0xF0 && c <= 0xF4) {
    length = 4;
    if (c == 0xF0) low = 0x90;
    if (c == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (left_ < length || p_[1] < low || p_[1] > high) return 0;
  for (size_t i = 2; i < length; ++i)
    if ((p_[i] & 0xC0) != 0x80) return 0;
  return length;
}

void appendDecimal(std::string& out_, int64_t value_) { appendInteger(out_, value_); }
void appendDecimal(std::string& out_, uint64_t value_) { appendInteger(out_, value_); }

void appendDecimal(std::string& out_, uint32_t value_, size_t width_) {
  char text[16];
  const auto result = std::to_chars(text, text + sizeof text, value_);
  const size_t length = static_cast<size_t>(result.ptr - text);
  if (length < width_) out_.append(width_ - length, ' ');
  out_.append(text, length);
}

void appendDouble(std::string& out_, double value_) { appendGeneral(out_, value_); }
void appendFloat(std::string& out_, float value_) { appendGeneral(out_, value_); }

void appendHash(std::string& out_, uint32_t hash_) {
  char text[10];
  out_.append(text, static_cast<size_t>(writeHash(text, hash_) - text));
}

}  // namespace tarnpb
