// One line of text written through a pointer into room reserved at the end of
// a string, for the tree view's lines: one resize per line instead of one
// append per piece.
#ifndef TARN_TOOLS_TARNPB_LINE_WRITER_H
#define TARN_TOOLS_TARNPB_LINE_WRITER_H

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

#include "display_width.h"
#include "text_util.h"

namespace tarnpb {

// Writes one tree line through a pointer into room reserved at the end of the
// text, instead of one string append per piece. A column is what is written
// between column() and fit(): the writer keeps count of how its terminal
// columns differ from its bytes as the pieces go in, so that fitting ASCII
// needs no second look at it.
//
// Every piece is bounded, so a caller can add up the most a line takes:
// put(), spaces() and decimal() write what they are given (ASCII), a byte a
// column; bounded() at most max_bytes_per_column bytes for each column it may
// fill; fit() leaves its width in columns and as many bytes beyond them as
// bounded() wrote into the column.
class LineWriter {
 public:
  // A UTF-8 character takes at most 4 bytes and, unless it is zero-width, at
  // least one column; an escape such as \xff takes 4 bytes in 4 columns. A run
  // of zero-width characters is what this bound stops.
  static constexpr size_t max_bytes_per_column = 4;

  // REQUIRES: no line written through this writer takes more than room_ bytes.
  LineWriter(std::string& out_, size_t room_) : _out(out_), _at(out_.size()) {
    _out.resize(_at + room_);
    _p = &_out[_at];
    _pEnd = _p + room_;
  }
  // A line past its room has already overwritten what lies beyond: that is a
  // bug in the caller's bounds, and the process stops before it spreads.
  void done() {
    if (_p > _pEnd) std::abort();
    _out.resize(static_cast<size_t>(_p - _out.data()));
  }

  void put(char c_) { *_p++ = c_; }
  void put(const char* pText_, size_t length_) {
    std::memcpy(_p, pText_, length_);
    _p += length_;
  }
  void spaces(size_t count_) {
    std::memset(_p, ' ', count_);
    _p += count_;
  }
  // The whole characters of the text (display_width.h) that fit in columns_
  // columns and max_bytes_per_column bytes a column; when some are left out,
  // the column is cut. Bounding a piece to one column more than its column
  // lets the fit tell text that fills the column from text that overflows it.
  void bounded(const char* pText_, size_t length_, size_t columns_) {
    const size_t ascii = length_ < columns_ ? length_ : columns_;
    // ASCII, when the byte after it (if any) is ASCII too and so cannot be a
    // zero-width character that would go with it.
    if (isAscii(pText_, ascii) &&
        (ascii == length_ || static_cast<unsigned char>(pText_[ascii]) < 0x80)) {
      put(pText_, ascii);
      if (ascii < length_) _clipped = true;
      return;
    }
    const TextSpan kept = prefixWithin(pText_, length_, columns_, columns_ * max_bytes_per_column);
    put(pText_, kept.bytes);
    _excess += kept.bytes - kept.columns;
    if (kept.bytes < length_) _clipped = true;
  }

  // Starts a column.
  void column() {
    _pColumn = _p;
    _excess = 0;
    _clipped = false;
  }
  // The column padded or cut ("...") to width_ columns.
  void fit(size_t width_) {
    const size_t bytes = static_cast<size_t>(_p - _pColumn);
    _p = fitAt(_pColumn, {bytes, bytes - _excess}, width_, _clipped);
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
  std::string& _out;
  size_t _at;
  char* _p;
  char* _pEnd;
  char* _pColumn = nullptr;  // where the column began
  // The bytes written since then beyond one a column: only bounded() writes
  // text that is not ASCII.
  size_t _excess = 0;
  bool _clipped = false;  // bounded() left text out of the column
};

}  // namespace tarnpb

#endif
