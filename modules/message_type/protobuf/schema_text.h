// What a schema file must be before libprotobuf's parser may see it, decided
// from its bytes alone: text without NUL bytes, and blocks nested no deeper
// than the calling thread's stack can carry through libprotobuf's recursive
// parser, option interpreter and descriptor builder.
//
// The parser recurses once per nested message, group, option aggregate or list,
// and the descriptor pool once more per imported file; none of them bounds the
// depth. A stack overflow there would kill the host, so the depth is bounded
// here, by the stack actually left on the thread that creates the context.
#ifndef TARN_PROTOBUF_SCHEMA_TEXT_H
#define TARN_PROTOBUF_SCHEMA_TEXT_H

#include <cstddef>
#include <cstdint>

namespace schema_text {

// No schema is read past this size: larger files are refused unread.
constexpr size_t max_file_bytes = size_t{16} << 20;
// Never more nesting than this, however large the stack.
constexpr unsigned max_nesting = 100;
// Stack that one nesting level, or one level of imports, may take inside
// libprotobuf: measured at about 1.3 KB for the costliest kind (a text-format
// option aggregate, and an import), taken with room to spare.
constexpr size_t stack_per_level = 2048;
// Stack that one file needs from where it is opened, without any nesting.
constexpr size_t stack_per_file = 32 * 1024;

// How deep the blocks of a text go: braces, brackets and angle brackets
// outside comments and string literals, counted together. line and column
// (from 0, as the importer counts) are where the text first went deeper than
// the limit it was scanned against.
struct nesting {
  unsigned deepest;
  int line;
  int column;
};
nesting scanNesting(const char* pText_, size_t length_, unsigned limit_);

// The nesting a file may have when it is opened with stackLeft_ bytes of stack
// below the caller's frame: at most max_nesting, 0 when not even a flat file fits.
unsigned allowedNesting(size_t stackLeft_);

// The lowest usable address of the calling thread's stack, or 0 when the
// system does not say. Read once per import, outside libprotobuf, and asked of
// the system only when the thread differs from the last one.
uintptr_t stackLimit();

// Bytes of stack left below the caller's frame, given stackLimit's answer; a
// conservative guess when that was 0.
size_t stackLeft(uintptr_t limit_);

}  // namespace schema_text

#endif
