// How many terminal columns text takes, for the tree view's aligned columns.
// Text here is what the printers write: printable ASCII and whole UTF-8
// characters (quoting has already turned every other byte into an escape).
//
// A character's columns are what the C library's wcwidth gives it in the
// C.UTF-8 locale, whatever locale the tool runs in, so that LANG never changes
// the layout: 2 for East Asian wide and fullwidth characters (CJK, kana,
// Hangul, most emoji), 0 for combining marks and zero-width characters, 1 for
// the rest. A character it calls unprintable (a C1 control, a code point not
// yet assigned) counts as 1, as does every byte that starts no well-formed
// UTF-8 sequence; without a C.UTF-8 locale every character counts as 1.
#ifndef TARN_TOOLS_TARNPB_DISPLAY_WIDTH_H
#define TARN_TOOLS_TARNPB_DISPLAY_WIDTH_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace tarnpb {

// A stretch of text: its bytes and the columns they take.
struct TextSpan {
  size_t bytes;
  size_t columns;
};

// Whether the length_ bytes at p_ are all ASCII, the fast path of every
// function below: eight bytes at a time, the last eight (or four) read again
// rather than byte by byte.
inline bool isAscii(const char* p_, size_t length_) {
  uint64_t seen = 0;
  if (length_ >= 8) {
    for (size_t i = 0; i + 8 < length_; i += 8) {
      uint64_t word;
      std::memcpy(&word, p_ + i, 8);
      seen |= word;
    }
    uint64_t last;
    std::memcpy(&last, p_ + length_ - 8, 8);
    seen |= last;
  } else if (length_ >= 4) {
    uint32_t first, last;
    std::memcpy(&first, p_, 4);
    std::memcpy(&last, p_ + length_ - 4, 4);
    seen = first | last;
  } else {
    for (size_t i = 0; i < length_; ++i) seen |= static_cast<unsigned char>(p_[i]);
  }
  return (seen & 0x8080808080808080u) == 0;
}

// The character at p_ (left_ > 0 bytes remain): one whole UTF-8 sequence, or
// one byte.
TextSpan characterAt(const char* p_, size_t left_);

// The columns of the length_ bytes at p_.
size_t columnsOf(const char* p_, size_t length_);

// The longest run of whole characters from p_ that takes at most columns_
// columns and at most bytes_ bytes. Zero-width characters after the last one
// that fits stay with it, as far as bytes_ allows.
TextSpan prefixWithin(const char* p_, size_t length_, size_t columns_, size_t bytes_);

// Fits the text at p_, text_.bytes bytes in text_.columns columns, to exactly
// width_ columns: padded with spaces when it fits and clipped_ does not say
// that more was left out before it; otherwise cut to the whole characters that
// fit in width_ - 3 columns, then "..." and a space for a column a wide
// character leaves over. The result takes at most text_.bytes + width_ bytes,
// room for which must follow p_. Returns its end.
char* fitAt(char* p_, TextSpan text_, size_t width_, bool clipped_);
// Appends the text fitted to width_ columns as fitAt does.
void appendFitted(std::string& out_, const char* pText_, size_t length_, size_t width_);

}  // namespace tarnpb

#endif
