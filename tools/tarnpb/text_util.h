// Small text helpers shared by the printers: hex dumps, quoting for the
// terminal, numbers written so that they read back exactly. Each
// appends to a string the caller reuses, so that printing a value set costs no
// allocation per entry; the forms returning a string are for one-off lines.
#ifndef TARN_TOOLS_TARNPB_TEXT_UTIL_H
#define TARN_TOOLS_TARNPB_TEXT_UTIL_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarnpb {

// "08 96 01" for the length_ bytes at pData_, written at p_ (3 * length_ - 1
// characters, none for no bytes); returns the end of what was written.
char* writeHex(char* p_, const char* pData_, size_t length_);
// "0x1d5b3c2a", ten characters written at p_; returns their end.
char* writeHash(char* p_, uint32_t hash_);

// "08 96 01"; past maxBytes_ (0: no limit) the rest is summarised as
// " ... (N bytes)".
void appendHex(std::string& out_, const char* pData_, size_t length_, size_t maxBytes_ = 0);
std::string hexBytes(const char* pData_, size_t length_, size_t maxBytes_ = 0);
// "089601", 2 * length_ characters written at p_; returns their end.
char* writeHexCompact(char* p_, const char* pData_, size_t length_);

// The bytes between double quotes, C-style escapes for quotes, backslashes and
// any byte neither printable ASCII nor part of well-formed UTF-8; past
// maxCharacters_ characters (0: no limit), each a whole UTF-8 sequence or a
// single byte, cut with "...". Returns whether it cut.
bool appendQuoted(std::string& out_, const char* pData_, size_t length_, size_t maxCharacters_ = 0);

// The bytes as they are, except control bytes and bytes that are no part of
// well-formed UTF-8, which become \xNN so that binary trace text cannot upset
// a terminal.
std::string escapeBinary(const std::string& text_);

// The bytes of the well-formed UTF-8 sequence at p_ (2 to 4), or 0 when there
// is none there (ASCII included).
size_t utf8SequenceLength(const unsigned char* p_, size_t left_);

void appendDecimal(std::string& out_, int64_t value_);
void appendDecimal(std::string& out_, uint64_t value_);
// Right-aligned in width_ columns.
void appendDecimal(std::string& out_, uint32_t value_, size_t width_ = 0);
// The shortest digits that read back as the same double, laid out as
// printf's "%g" lays out that many digits (at least six): 0.1, 1e+07, 1.5e-07.
void appendDouble(std::string& out_, double value_);
// The same for a float: the shortest digits that read back as that float
// (1.5e-07, not the 1.500000053056283e-07 of its widened double).
void appendFloat(std::string& out_, float value_);

// "0x1d5b3c2a"
void appendHash(std::string& out_, uint32_t hash_);

}  // namespace tarnpb

#endif
