// Small text helpers shared by the printers: hex dumps, quoting for the
// terminal and for JSON, numbers written so that they read back exactly.
#ifndef TARN_TOOLS_TARNPB_TEXT_UTIL_H
#define TARN_TOOLS_TARNPB_TEXT_UTIL_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarnpb {

// "08 96 01"; past maxBytes_ (0: no limit) the rest is summarised as
// " ... (N bytes)".
std::string hexBytes(const char* pData_, size_t length_, size_t maxBytes_ = 0);
// "089601": the compact form for JSON.
std::string hexCompact(const char* pData_, size_t length_);

// The bytes between double quotes, C-style escapes for quotes, backslashes and
// anything not printable ASCII; past maxBytes_ (0: no limit) cut with "...".
std::string quoted(const char* pData_, size_t length_, size_t maxBytes_ = 0);

// The bytes as they are, except those outside printable ASCII, which become
// \xNN so that binary trace text cannot upset a terminal.
std::string escapeBinary(const std::string& text_);

// A JSON string literal. Bytes outside printable ASCII become \u00XX, one per
// byte, so any byte string gives valid JSON that names its bytes exactly.
std::string jsonString(const char* pData_, size_t length_);
inline std::string jsonString(const std::string& text_) {
  return jsonString(text_.data(), text_.size());
}

// The shortest "%g" form that reads back as the same double.
std::string formatDouble(double value_);

// "0x1d5b3c2a"
std::string hashHex(uint32_t hash_);

// Pads (or cuts, ending in "...") to exactly width_ characters.
std::string fit(const std::string& text_, size_t width_);

}  // namespace tarnpb

#endif
