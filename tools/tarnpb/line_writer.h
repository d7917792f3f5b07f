// One line of text written through a pointer into room reserved at the end of
// a string, for the tree view's lines: one resize per line instead of one
// append per piece.
#ifndef TARN_TOOLS_TARNPB_LINE_WRITER_H
#define TARN_TOOLS_TARNPB_LINE_WRITER_H

#include <charconv>
#include <cstring>
#include <string>

#include "text_util.h"

namespace tarnpb {

// Writes one tree line through a pointer into room reserved at the end of the
// text, instead of one string append per piece. Every piece is bounded: text
// that is fitted to a column is copied only as far as the column and one
// character beyond, which is enough to know that it must be cut.
class LineWriter {
 public:
  explicit LineWriter(std::string& out_) : _out(out_), _at(out_.size()) {
    _out.resize(_at + line_room);
    _p = &_out[_at];
  }
  void done() { _out.resize(static_cast<size_t>(_p - _out.data())); }

  char* mark() const { return _p; }
  void put(char c_) { *_p++ = c_; }
  void put(const char* pText_, size_t length_) {
    std::memcpy(_p, pText_, length_);
    _p += length_;
  }
  void bounded(const char* pText_, size_t length_, size_t limit_) {
    put(pText_, length_ < limit_ ? length_ : limit_);
  }
  void spaces(size_t count_) {
    std::memset(_p, ' ', count_);
    _p += count_;
  }
  // What was written since pStart_, padded or cut ("...") to width_.
  void fit(char* pStart_, size_t width_) {
    _p = fitAt(pStart_, static_cast<size_t>(_p - pStart_), width_);
  }
  template <typename T>
  void decimal(T value_, size_t width_ = 0) {
    char text[24];
    const auto result = std::to_chars(text, text + sizeof text, value_);
    const size_t length = static_cast<size_t>(result.ptr - text);
    if (length < width_) spaces(width_ - length);
    put(text, length);
  }
  void hash(uint32_t hash_) { _p = writeHash(_p, hash_); }
  // "08 96 01", the bytes past maxBytes_ summarised as " ... (N bytes)".
  void hex(const char* pData_, size_t length_, size_t maxBytes_) {
    const size_t shown = length_ > maxBytes_ ? maxBytes_ : length_;
    _p = writeHex(_p, pData_, shown);
    if (shown < length_) {
      put(" ... (", 6);
      decimal(length_);
      put(" bytes)", 7);
    }
  }

 private:
  // The longest line: index, hash, a field column of at most 41 characters,
  // kind, a value of at most 52 before it is fitted, raw bytes with their
  // summary, with room to spare.
  static constexpr size_t line_room = 320;

  std::string& _out;
  size_t _at;
  char* _p;
};

}  // namespace tarnpb

#endif
