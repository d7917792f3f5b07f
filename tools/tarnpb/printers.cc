#include "printers.h"

#include "entry_walker.h"
#include "line_writer.h"
#include "text_util.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

const size_t tree_value_width = 28;
const size_t tree_raw_bytes = 12;
const size_t tree_string_bytes = 24;
const size_t tree_max_field_width = 40;
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
    LineWriter line(out);
    line.decimal(i, 5);
    line.put("  ", 2);
    line.hash(e.hash);
    line.put("  ", 2);
    // An entry kept without its enclosing message is named by its whole path.
    char* pStart = line.mark();
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
    line.fit(pStart, fieldWidth);
    line.put("  ", 2);
    line.put(l.kind, std::char_traits<char>::length(l.kind));
    line.fit(line.mark() - std::char_traits<char>::length(l.kind), 7);
    line.put("  ", 2);
    pStart = line.mark();
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
        appendQuoted(scratch, e.string_rep, e.string_rep_length, tree_string_bytes);
      }
      cut = scratch.size() > tree_value_width;
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
    line.fit(pStart, tree_value_width);
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
