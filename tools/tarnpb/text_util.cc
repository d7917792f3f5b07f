#include "text_util.h"

#include <cstdio>
#include <cstdlib>

namespace tarnpb {

namespace {

const char hex_digits[] = "0123456789abcdef";

bool printable(unsigned char c_) { return c_ >= 0x20 && c_ < 0x7F; }

}  // namespace

std::string hexBytes(const char* pData_, size_t length_, size_t maxBytes_) {
  std::string out;
  const size_t shown = maxBytes_ != 0 && length_ > maxBytes_ ? maxBytes_ : length_;
  for (size_t i = 0; i < shown; ++i) {
    const unsigned char c = static_cast<unsigned char>(pData_[i]);
    if (i) out += ' ';
    out += hex_digits[c >> 4];
    out += hex_digits[c & 15];
  }
  if (shown < length_) out += " ... (" + std::to_string(length_) + " bytes)";
  return out;
}

std::string hexCompact(const char* pData_, size_t length_) {
  std::string out;
  out.reserve(length_ * 2);
  for (size_t i = 0; i < length_; ++i) {
    const unsigned char c = static_cast<unsigned char>(pData_[i]);
    out += hex_digits[c >> 4];
    out += hex_digits[c & 15];
  }
  return out;
}

std::string quoted(const char* pData_, size_t length_, size_t maxBytes_) {
  std::string out = "\"";
  const size_t shown = maxBytes_ != 0 && length_ > maxBytes_ ? maxBytes_ : length_;
  for (size_t i = 0; i < shown; ++i) {
    const unsigned char c = static_cast<unsigned char>(pData_[i]);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (printable(c)) {
          out += static_cast<char>(c);
        } else {
          out += "\\x";
          out += hex_digits[c >> 4];
          out += hex_digits[c & 15];
        }
    }
  }
  out += '"';
  if (shown < length_) out += "...";
  return out;
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
      out += hex_digits[c >> 4];
      out += hex_digits[c & 15];
    }
  }
  return out;
}

std::string jsonString(const char* pData_, size_t length_) {
  std::string out = "\"";
  for (size_t i = 0; i < length_; ++i) {
    const unsigned char c = static_cast<unsigned char>(pData_[i]);
    if (c == '"') {
      out += "\\\"";
    } else if (c == '\\') {
      out += "\\\\";
    } else if (printable(c)) {
      out += static_cast<char>(c);
    } else {
      out += "\\u00";
      out += hex_digits[c >> 4];
      out += hex_digits[c & 15];
    }
  }
  out += '"';
  return out;
}

std::string formatDouble(double value_) {
  char text[64];
  for (int precision = 6; precision <= 17; ++precision) {
    std::snprintf(text, sizeof text, "%.*g", precision, value_);
    if (std::strtod(text, nullptr) == value_) break;
  }
  return text;
}

std::string hashHex(uint32_t hash_) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", hash_);
  return text;
}

std::string fit(const std::string& text_, size_t width_) {
  if (text_.size() <= width_) return text_ + std::string(width_ - text_.size(), ' ');
  if (width_ <= 3) return text_.substr(0, width_);
  return text_.substr(0, width_ - 3) + "...";
}

}  // namespace tarnpb
