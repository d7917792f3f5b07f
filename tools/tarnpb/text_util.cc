#include "text_util.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>

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

}  // namespace

void appendHex(std::string& out_, const char* pData_, size_t length_, size_t maxBytes_) {
  const size_t shown = maxBytes_ != 0 && length_ > maxBytes_ ? maxBytes_ : length_;
  for (size_t i = 0; i < shown; ++i) {
    if (i) out_ += ' ';
    appendByteHex(out_, static_cast<unsigned char>(pData_[i]));
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

void appendHexCompact(std::string& out_, const char* pData_, size_t length_) {
  for (size_t i = 0; i < length_; ++i) appendByteHex(out_, static_cast<unsigned char>(pData_[i]));
}

void appendQuoted(std::string& out_, const char* pData_, size_t length_, size_t maxBytes_) {
  out_ += '"';
  const size_t shown = maxBytes_ != 0 && length_ > maxBytes_ ? maxBytes_ : length_;
  for (size_t i = 0; i < shown; ++i) {
    const unsigned char c = static_cast<unsigned char>(pData_[i]);
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
  }
  out_ += '"';
  if (shown < length_) out_ += "...";
}

std::string escapeBinary(const std::string& text_) {
  std::string out;
  out.reserve(text_.size());
  for (char ch : text_) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (printable(c)) {
      out += ch;
    } else {
      out += "\\x";
      appendByteHex(out, c);
    }
  }
  return out;
}

void appendJsonString(std::string& out_, const char* pData_, size_t length_) {
  out_ += '"';
  for (size_t i = 0; i < length_; ++i) {
    const unsigned char c = static_cast<unsigned char>(pData_[i]);
    if (c == '"') {
      out_ += "\\\"";
    } else if (c == '\\') {
      out_ += "\\\\";
    } else if (printable(c)) {
      out_ += static_cast<char>(c);
    } else {
      out_ += "\\u00";
      appendByteHex(out_, c);
    }
  }
  out_ += '"';
}

void appendDecimal(std::string& out_, int64_t value_) { appendInteger(out_, value_); }
void appendDecimal(std::string& out_, uint64_t value_) { appendInteger(out_, value_); }

void appendDouble(std::string& out_, double value_) {
  char text[64];
  for (int precision = 6; precision <= 17; ++precision) {
    std::snprintf(text, sizeof text, "%.*g", precision, value_);
    if (std::strtod(text, nullptr) == value_) break;
  }
  out_ += text;
}

void appendHash(std::string& out_, uint32_t hash_) {
  out_ += "0x";
  for (int shift = 28; shift >= 0; shift -= 4) out_ += hex_digits[(hash_ >> shift) & 15];
}

void appendFitted(std::string& out_, const char* pText_, size_t length_, size_t width_) {
  if (length_ <= width_) {
    out_.append(pText_, length_);
    out_.append(width_ - length_, ' ');
  } else if (width_ <= 3) {
    out_.append(pText_, width_);
  } else {
    out_.append(pText_, width_ - 3);
    out_ += "...";
  }
}

}  // namespace tarnpb
