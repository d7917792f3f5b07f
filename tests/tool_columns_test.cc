// The tree view's columns are terminal columns: a value's cell is padded or
// cut by what a terminal shows, so the raw bytes after it start in the same
// place on every line, whatever the characters, and a cut never leaves half a
// character behind.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include "tool_run.h"
#include "wire.h"

namespace {

using namespace tool_run;
using wire::Body;

// Everything before the value column of Sample's name field.
const std::string name_line = "    0  0x141a5f17  name   string   ";

std::string repeat(const std::string& text, size_t times) {
  std::string out;
  for (size_t i = 0; i < times; ++i) out += text;
  return out;
}

// The raw bytes column: the first twelve bytes, then how many there are.
std::string rawColumn(const std::string& body) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < body.size() && i < 12; ++i) {
    if (i) out += ' ';
    out += digits[static_cast<unsigned char>(body[i]) >> 4];
    out += digits[static_cast<unsigned char>(body[i]) & 15];
  }
  if (body.size() > 12) out += " ... (" + std::to_string(body.size()) + " bytes)";
  return out;
}

// The value as a string field's cell shows it, written out by hand: 28
// terminal columns, then the two spaces before the raw bytes.
struct Cell {
  const char* what;
  std::string value;
  std::string cell;
};

const std::string wide = "\xE4\xB8\xAD";              // U+4E2D, two columns
const std::string emoji = "\xF0\x9F\x98\x80";         // U+1F600, two columns
const std::string acute = "\xCC\x81";                 // U+0301, combining: none
const std::string linear_b = "\xF0\x90\x80\x80";      // U+10000, four bytes, one column
const std::string fullwidth_a = "\xEF\xBC\xA1";       // U+FF21, two columns
const std::string zero_width_space = "\xE2\x80\x8B";  // U+200B, none

const std::vector<Cell>& cells() {
  static const std::vector<Cell> cases = {
      // ASCII shows as it always has: 24 characters whole, a 25th cuts.
      {"ascii", "abc", "\"abc\"" + std::string(23, ' ')},
      {"ascii, 24", std::string(24, 'a'), "\"" + std::string(24, 'a') + "\"  "},
      {"ascii, 25", std::string(25, 'a'), "\"" + std::string(24, 'a') + "..."},
      // Two bytes and three bytes a column.
      {"latin", "caf\xC3\xA9 \xE2\x82\xAC", "\"caf\xC3\xA9 \xE2\x82\xAC\"" + std::string(20, ' ')},
      {"latin, 24", repeat("\xC3\xBC", 24), "\"" + repeat("\xC3\xBC", 24) + "\"  "},
      {"latin, 25", repeat("\xC3\xBC", 25), "\"" + repeat("\xC3\xBC", 24) + "..."},
      // Wide characters: 13 fill the cell exactly, a 14th cuts after 12; one
      // that would straddle the cut leaves a space after the dots.
      {"wide, 13", repeat(wide, 13), "\"" + repeat(wide, 13) + "\""},
      {"wide, 14", repeat(wide, 14), "\"" + repeat(wide, 12) + "..."},
      {"wide, straddling", "a" + repeat(wide, 13), "\"a" + repeat(wide, 11) + "... "},
      {"fullwidth", repeat(fullwidth_a, 2),
       "\"" + repeat(fullwidth_a, 2) + "\"" + std::string(22, ' ')},
      {"emoji", repeat(emoji, 3), "\"" + repeat(emoji, 3) + "\"" + std::string(20, ' ')},
      {"emoji, 14", repeat(emoji, 14), "\"" + repeat(emoji, 12) + "..."},
      // Zero-width characters take no column, and a mark stays with the
      // character before it when the cut comes right after that character.
      {"combining", repeat("e" + acute, 5),
       "\"" + repeat("e" + acute, 5) + "\"" + std::string(21, ' ')},
      {"combining at the cut", repeat(wide, 12) + acute + "xyz",
       "\"" + repeat(wide, 12) + acute + "..."},
      {"zero-width space", "a" + zero_width_space + "b",
       "\"a" + zero_width_space + "b\"" + std::string(24, ' ')},
      // Bytes that are not UTF-8 take the four columns of their escape.
      {"invalid", "\xFF\xFE", "\"\\xff\\xfe\"" + std::string(18, ' ')},
      {"invalid, cut", std::string(7, '\xFF'), "\"" + repeat("\\xff", 6) + "..."},
      {"invalid beside wide", wide + "\xFF", "\"" + wide + "\\xff\"" + std::string(20, ' ')},
      // Hostile values, each far longer than any line's room: four bytes a
      // column, no column at all, escapes, wide characters.
      {"4-byte, long", repeat(linear_b, 10000), "\"" + repeat(linear_b, 24) + "..."},
      {"marks only, long", repeat(acute, 10000),
       "\"" + repeat(acute, 24) + "\"..." + std::string(23, ' ')},
      {"invalid, long", std::string(10000, '\xFF'), "\"" + repeat("\\xff", 6) + "..."},
      {"wide, long", repeat(wide, 10000), "\"" + repeat(wide, 12) + "..."},
      {"emoji, long", repeat(emoji, 10000), "\"" + repeat(emoji, 12) + "..."},
      {"mixed, long", repeat(acute + "\xFF" + emoji + linear_b + zero_width_space, 3000),
       "\"" + acute + "\\xff" + emoji + linear_b + zero_width_space + acute + "\\xff" + emoji +
           linear_b + zero_width_space + acute + "\\xff" + emoji + linear_b + zero_width_space +
           acute + "\\xf..."},
  };
  return cases;
}

TEST(ToolColumns, ValuesAreFittedByTerminalColumns) {
  for (const Cell& c : cells()) {
    const std::string body = Body().str(2, c.value).bytes();
    const ToolRun run = tarnpb("parse " + sample + file(body));
    EXPECT_EQ(0, run.status) << c.what << ": " << run.err;
    const std::string line = name_line + c.cell + "  " + rawColumn(body) + "\n";
    EXPECT_NE(std::string::npos, run.out.find("\n" + line)) << c.what << ":\n" << line << run.out;
  }
}

// A cut value follows whole on a line of its own with --wide, also when only
// its characters were cut and its columns would have fitted; one that is not
// cut does not.
TEST(ToolColumns, WideShowsCutValuesWhole) {
  for (const Cell& c : cells()) {
    const bool cut = c.cell.find("...") != std::string::npos;
    const ToolRun run = tarnpb("parse -w " + sample + file(Body().str(2, c.value).bytes()));
    EXPECT_EQ(0, run.status) << c.what << ": " << run.err;
    const size_t whole = run.out.find("\n       whole value: \"");
    EXPECT_EQ(cut, whole != std::string::npos) << c.what << ":\n" << run.out;
    // Text that needs no escape reads back as it went in.
    if (cut && c.value.find('\xFF') == std::string::npos) {
      EXPECT_NE(std::string::npos,
                run.out.find("\n       whole value: \"" + c.value + "\"\n", whole))
          << c.what;
    }
  }
}

// The views of the other commands are the same tree.
TEST(ToolColumns, SerializeViewHasTheSameColumns) {
  const std::string body = Body().str(2, repeat(wide, 14)).bytes();
  const ToolRun run = tarnpb("serialize --view -o /dev/null " + sample + file(body));
  EXPECT_EQ(0, run.status) << run.err;
  EXPECT_NE(std::string::npos,
            run.out.find(name_line + "\"" + repeat(wide, 12) + "...  " + rawColumn(body) + "\n"))
      << run.out;
}

}  // namespace

#endif
