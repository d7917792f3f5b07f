#include "printers.h"

#include <vector>

#include "display_width.h"
#include "entry_walker.h"
#include "line_writer.h"
#include "text_util.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

// Column widths are terminal columns (display_width.h).
const size_t tree_value_width = 28;
const size_t tree_raw_bytes = 12;
const size_t tree_string_characters = 24;
const size_t tree_max_field_width = 40;

// The most bytes one tree line takes, piece by piece, as LineWriter bounds
// them. Only bounded() writes more bytes than columns, at most
// max_bytes_per_column - 1 more for each column it may fill; a column takes
// those on top of its width once it is fitted, and on top of the columns
// written into it before.
constexpr size_t columnBytes(size_t written_, size_t width_, size_t bounded_) {
  return (written_ > width_ ? written_ : width_) +
         bounded_ * (LineWriter::max_bytes_per_column - 1);
}
const size_t max_decimal = 20;
// The indent and the name bounded together to a column past the field, and
// the '*' of a required field.
const size_t tree_field_bytes =
    columnBytes(tree_max_field_width + 2, tree_max_field_width, tree_max_field_width + 1);
// "message" is the longest kind.
const size_t tree_kind_bytes = 7;
// An integer with its enum name in parentheses is the longest value; a double
// or a quoted string, or a count of children, takes less.
const size_t tree_value_bytes =
    columnBytes(max_decimal + 2 + tree_value_width + 1 + 1, tree_value_width, tree_value_width + 1);
// "08 96 ... (N bytes)"; "-- schema default" and "= #N (packed)" are shorter.
const size_t tree_raw_bytes_text = 3 * tree_raw_bytes - 1 + 6 + max_decimal + 7;
const size_t tree_line_room = max_decimal + 2 + 10 + 2 + tree_field_bytes + 2 + tree_kind_bytes +
                              2 + tree_value_bytes + 2 + tree_raw_bytes_text + 1;
// Text is handed to the stream in pieces of about this size.
const size_t flush_bytes = size_t{1} << 16;

// Text built entry by entry in one string whose capacity is kept.
class Sink {
 public:
  explicit Sink(std::FILE* pOut_) : _pOut(pOut_) { _text.reserve(2 * flush_bytes); }
  ~Sink() { flush(); }
  std::string& text() { return _text; }
  void lineDone() {
    if (_text.size() >= flush_bytes) flush();
  }
  void flush() {
    std::fwrite(_text.data(), 1, _text.size(), _pOut);
    _text.clear();
  }

 private:
  std::FILE* _pOut;
  std::string _text;
};

void appendFloating(std::string& out_, const EntryLine& line_, double value_) {
  if (declaredFloat(line_)) {
    appendFloat(out_, static_cast<float>(value_));
  } else {
    appendDouble(out_, value_);
  }
}

// Entries directly below a message entry, along its child links.
uint32_t childCount(const EntryWalker& walker_, uint32_t index_) {
  uint32_t count = 0;
  for (uint32_t i = walker_.entry(index_).first_child;
       i != invalid && i > index_ && i < walker_.size() && walker_.entry(i).parent == index_;) {
    ++count;
    const uint32_t next = walker_.entry(i).next_sibling;
    if (next <= i) break;
    i = next;
  }
  return count;
}

}  // namespace

void printTree(std::FILE* pOut_, const ParseView& view_) {
  const tarn_host::ValueSet& set = *view_.pSet;
  Sink sink(pOut_);
  std::string& out = sink.text();
  if (!view_.title.empty()) out += view_.title + ": ";
  out += view_.typeName + ", ";
  appendDecimal(out, static_cast<uint64_t>(view_.pBody->size()));
  out += " bytes, ";
  appendDecimal(out, set.size());
  out += set.size() == 1 ? " entry" : " entries";
  if (view_.partial) out += " kept by the find set";
  if (view_.status != 0) {
    out += ", parse FAILED with status ";
    appendDecimal(out, static_cast<int64_t>(view_.status));
  }
  out += '\n';
  if (set.size() == 0) return;

  // A first walk for the width of the field column.
  size_t fieldWidth = 5;
  bool anyRequired = false;
  {
    EntryWalker widths(view_, false, false);
    for (uint32_t i = 0; i < set.size() && fieldWidth < tree_max_field_width; ++i) {
      const EntryLine& l = widths.describe(i);
      const size_t width = 2 * static_cast<size_t>(l.depth) +
                           (l.detached ? l.pPath->size() : l.nameLength) + (l.required ? 1 : 0);
      if (width > fieldWidth) fieldWidth = width;
    }
    for (uint32_t i = 0; i < set.size() && !anyRequired; ++i)
      anyRequired = (set[i].value_flags & tarn_message_value_set_entry_flag_required) != 0;
  }
  if (fieldWidth > tree_max_field_width) fieldWidth = tree_max_field_width;

  out += "    #  hash        ";
  appendFitted(out, "field", 5, fieldWidth);
  out += "  kind     ";
  appendFitted(out, "value", 5, tree_value_width);
  out += "  raw bytes\n";
  EntryWalker walker(view_, true, false);
  std::string scratch;
  for (uint32_t i = 0; i < set.size(); ++i) {
    const EntryLine& l = walker.describe(i);
    const tarn_message_value_set_entry& e = set[i];
    LineWriter line(out, tree_line_room);
    line.decimal(i, 5);
    line.put("  ", 2);
    line.hash(e.hash);
    line.put("  ", 2);
    // An entry kept without its enclosing message is named by its whole path.
    line.column();
    const size_t keep = fieldWidth + 1;  // enough to know that it is cut
    size_t indent = 2 * static_cast<size_t>(l.depth);
    line.spaces(indent < keep ? indent : keep);
    const size_t room = indent < keep ? keep - indent : 0;
    if (l.detached) {
      line.bounded(l.pPath->data(), l.pPath->size(), room);
    } else {
      line.bounded(l.pName, l.nameLength, room);
    }
    if (l.required) line.put('*');
    line.fit(fieldWidth);
    line.put("  ", 2);
    line.column();
    line.put(l.kind, std::char_traits<char>::length(l.kind));
    line.fit(7);
    line.put("  ", 2);
    line.column();
    bool cut = false;
    if (l.kind[0] == 'i') {
      if (declaredUnsigned64(l)) {
        line.decimal(static_cast<uint64_t>(e.l));
      } else {
        line.decimal(static_cast<int64_t>(e.l));
      }
      if (const std::string* pName = enumNameOf(l, e.l)) {
        line.put(" (", 2);
        line.bounded(pName->data(), pName->size(), tree_value_width + 1);
        line.put(')');
      }
    } else if (l.kind[0] == 'd' || l.kind[0] == 's') {
      scratch.clear();
      if (l.kind[0] == 'd') {
        appendFloating(scratch, l, e.d);
      } else {
        cut = appendQuoted(scratch, e.string_rep, e.string_rep_length, tree_string_characters);
      }
      cut = cut || columnsOf(scratch.data(), scratch.size()) > tree_value_width;
      line.bounded(scratch.data(), scratch.size(), tree_value_width + 1);
    } else {
      const uint32_t count = childCount(walker, i);
      line.decimal(count);
      if (count == 1) {
        line.put(" child", 6);
      } else {
        line.put(" children", 9);
      }
    }
    line.fit(tree_value_width);
    line.put("  ", 2);
    if (l.isDefault) {
      line.put("-- schema default", 17);
    } else if (l.sameBytesAs >= 0) {
      line.put("= #", 3);
      line.decimal(l.sameBytesAs);
      line.put(" (packed)", 9);
    } else {
      line.hex(e.raw_bytes, e.raw_bytes_length, tree_raw_bytes);
    }
    line.put('\n');
    line.done();
    // --wide: a value the column cuts follows whole on a line of its own.
    if (cut && view_.wide) {
      out += "       whole value: ";
      if (l.kind[0] == 's') {
        appendQuoted(out, e.string_rep, e.string_rep_length);
      } else {
        out += scratch;
      }
      out += '\n';
    }
    sink.lineDone();
  }
  if (anyRequired) out += "(* required field)\n";
}

}  // namespace tarnpb
