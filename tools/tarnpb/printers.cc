#include "printers.h"

#include <vector>

#include "display_width.h"
#include "line_writer.h"
#include "schema.h"
#include "text_util.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

const uint32_t invalid = tarn_message_value_invalid_index;
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

bool sameRange(const tarn_message_value_set_entry& a_, const tarn_message_value_set_entry& b_) {
  return a_.raw_bytes != nullptr && a_.raw_bytes == b_.raw_bytes &&
         a_.raw_bytes_length == b_.raw_bytes_length;
}

const char* kindOf(const tarn_message_value_set_entry& entry_) {
  if (entry_.value_mask & tarn_message_xpath_value_mask_long) return "int";
  if (entry_.value_mask & tarn_message_xpath_value_mask_double) return "double";
  if (entry_.string_rep != nullptr) return "string";
  return "message";
}

// The hash the entry should carry if it sits where its parent links say; a
// mismatch means its place is not known (a partial parse that kept a field
// but not the message around it).
uint32_t expectedHash(const tarn_host::ValueSet& set_, const tarn_message_value_set_entry& entry_,
                      uint32_t base_) {
  uint32_t seed = base_;
  if (entry_.parent != invalid && entry_.parent < set_.size())
    seed = tarn_message_xpath_hash_add_separator(set_[entry_.parent].hash);
  return tarn_message_xpath_hash_string(entry_.tag_bytes, entry_.tag_length, seed);
}

// One entry, interpreted. The strings belong to the walker and hold until the
// next entry is described.
struct EntryLine {
  uint32_t index = 0;
  int depth = 0;          // 0 for top-level fields
  bool detached = false;  // its parent is not stored, yet it is not a top-level field
  const char* pName = nullptr;
  size_t nameLength = 0;
  // Dotted names from the top, "?." in front when not known. Built only when
  // the walker is asked for paths, or for a detached entry.
  const std::string* pPath = nullptr;
  const char* kind = "";
  const gp::FieldDescriptor* pField = nullptr;  // the tool's field, when its place is known
  bool isDefault = false;  // made from the schema's default: no bytes in the message
  bool required = false;
  int64_t sameBytesAs = -1;  // the first entry of the packed block it belongs to, or -1
};

// Describes the entries of a set in index order. The module stores them in
// document order, so the entries still open above the current one form a
// stack: an entry's parent is on it, and what lies above the parent is done.
class EntryWalker {
 public:
  EntryWalker(const ParseView& view_, bool withFields_, bool withPaths_)
      : _view(view_),
        _set(*view_.pSet),
        _base(_set.impl()._baseHash),
        _withFields(withFields_),
        _withPaths(withPaths_) {}

  uint32_t size() const { return _set.size(); }
  const tarn_message_value_set_entry& entry(uint32_t index_) const { return _set[index_]; }

  const EntryLine& describe(uint32_t index_) {
    const tarn_message_value_set_entry& e = _set[index_];
    // Parents are stored before their children, so a parent link that does
    // not point backwards cannot be right and is not followed.
    const bool parentKnown = e.parent != invalid && e.parent < index_;
    if (parentKnown) {
      while (_open != 0 && _frames[_open - 1].index != e.parent) --_open;
      if (_open == 0) _reopen(e.parent);
    } else {
      _open = 0;
    }
    Frame& frame = _push(index_);
    EntryLine& line = _line;
    line.index = index_;
    line.depth = frame.depth;
    line.detached = frame.detached;
    line.pName = e.tag_bytes ? e.tag_bytes : "?";
    line.nameLength = e.tag_bytes ? e.tag_length : 1;
    if (frame.known) {
      line.pPath = &frame.path;
    } else {
      _unknownPath = "?.";
      _unknownPath.append(line.pName, line.nameLength);
      line.pPath = &_unknownPath;
    }
    line.kind = kindOf(e);
    line.pField = frame.pField;
    line.isDefault = e.raw_bytes == nullptr;
    line.required = (e.value_flags & tarn_message_value_set_entry_flag_required) != 0;
    int64_t same = -1;
    if (index_ > 0 && sameRange(_set[index_ - 1], e)) same = int64_t{index_} - 1;
    if (same >= 0 && _previousSame >= 0) same = _previousSame;
    line.sameBytesAs = same;
    _previousSame = same;
    return line;
  }

 private:
  struct Frame {
    uint32_t index;
    int depth;
    bool known;     // the dotted path is known
    bool detached;  // not placed by its parent links
    std::string path;
    const gp::FieldDescriptor* pField;
  };

  // Pushes the frame of entry index_ over its parent's (the top frame, when
  // the entry's parent is known).
  Frame& _push(uint32_t index_) {
    const tarn_message_value_set_entry& e = _set[index_];
    const bool parentKnown = e.parent != invalid && e.parent < index_ && _open != 0;
    if (_open == _frames.size()) _frames.emplace_back();
    Frame* pParent = parentKnown ? &_frames[_open - 1] : nullptr;
    Frame& frame = _frames[_open++];
    frame.index = index_;
    frame.depth = pParent ? pParent->depth + 1 : 0;
    frame.pField = nullptr;
    frame.known = _expectedHash(e) == e.hash && (!pParent || pParent->known);
    frame.detached = !frame.known;
    const bool wantField = _withFields && _view.pRoot != nullptr &&
                           (e.value_mask & (tarn_message_xpath_value_mask_long |
                                            tarn_message_xpath_value_mask_double) ||
                            (e.value_mask == 0 && e.string_rep == nullptr));
    if (frame.known) {
      if (_withPaths) {
        if (pParent) {
          frame.path = pParent->path;
          frame.path += '.';
        } else {
          frame.path.clear();
        }
        frame.path.append(e.tag_bytes, e.tag_length);
      }
      if (wantField) {
        const gp::Descriptor* pType =
            pParent ? (pParent->pField ? pParent->pField->message_type() : nullptr) : _view.pRoot;
        frame.pField = pType ? _fieldOf(pType, e) : nullptr;
      }
    } else if (_view.pKnownPaths != nullptr) {
      auto known = _view.pKnownPaths->find(e.hash);
      if (known != _view.pKnownPaths->end()) {
        frame.known = true;
        frame.path = known->second;
        if (wantField) frame.pField = Schema::fieldAt(_view.pRoot, splitPath(frame.path));
      }
    }
    return frame;
  }

  // The hash is the same for every entry of one field under one parent, and
  // those come in runs (repeated fields, packed elements): the last is kept.
  uint32_t _expectedHash(const tarn_message_value_set_entry& entry_) {
    if (entry_.parent != _hashParent || entry_.tag_bytes != _pHashTag ||
        entry_.tag_length != _hashTagLength) {
      _hashParent = entry_.parent;
      _pHashTag = entry_.tag_bytes;
      _hashTagLength = entry_.tag_length;
      _hash = expectedHash(_set, entry_, _base);
    }
    return _hash;
  }

  // Rebuilds the stack for a parent that is not on it: only a set whose
  // links disagree with its order needs this.
  void _reopen(uint32_t parent_) {
    std::vector<uint32_t> chain;
    for (uint32_t i = parent_;;) {
      chain.push_back(i);
      const uint32_t up = _set[i].parent;
      if (up == invalid || up >= i) break;
      i = up;
    }
    _open = 0;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) _push(*it);
  }

  // The field an entry names in pType_. The module's entries point at its own
  // descriptors' names, one address per field: repeated fields hit the cache.
  const gp::FieldDescriptor* _fieldOf(const gp::Descriptor* pType_,
                                      const tarn_message_value_set_entry& entry_) {
    if (entry_.tag_bytes == _lastTag && pType_ == _pLastType) return _pLastField;
    _name.assign(entry_.tag_bytes, entry_.tag_length);
    _lastTag = entry_.tag_bytes;
    _pLastType = pType_;
    _pLastField = pType_->FindFieldByName(_name);
    return _pLastField;
  }

  const ParseView& _view;
  const tarn_host::ValueSet& _set;
  const uint32_t _base;
  const bool _withFields;
  const bool _withPaths;
  std::vector<Frame> _frames;
  size_t _open = 0;
  int64_t _previousSame = -1;
  EntryLine _line;
  std::string _unknownPath;
  std::string _name;
  uint32_t _hashParent = 0;
  const char* _pHashTag = nullptr;
  uint32_t _hashTagLength = 0;
  uint32_t _hash = 0;
  const char* _lastTag = nullptr;
  const gp::Descriptor* _pLastType = nullptr;
  const gp::FieldDescriptor* _pLastField = nullptr;
};

// The name of the enum value an int entry holds, or null.
const std::string* enumNameOf(const EntryLine& line_, int64_t value_) {
  if (line_.pField == nullptr || line_.pField->enum_type() == nullptr) return nullptr;
  const gp::EnumValueDescriptor* pValue =
      line_.pField->enum_type()->FindValueByNumber(static_cast<int>(value_));
  return pValue == nullptr || pValue->number() != value_ ? nullptr : &pValue->name();
}

// The module stores every integer as a signed 64-bit value and every floating
// value as a double; they are shown as their declared type has them.
bool declaredUnsigned64(const EntryLine& line_) {
  return line_.pField != nullptr && line_.pField->cpp_type() == gp::FieldDescriptor::CPPTYPE_UINT64;
}

void appendFloating(std::string& out_, const EntryLine& line_, double value_) {
  if (line_.pField != nullptr && line_.pField->type() == gp::FieldDescriptor::TYPE_FLOAT) {
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

void appendIndex(std::string& out_, uint32_t index_) {
  if (index_ == invalid) {
    out_ += "null";
  } else {
    appendDecimal(out_, index_);
  }
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

void printJson(std::FILE* pOut_, const ParseView& view_) {
  const tarn_host::ValueSet& set = *view_.pSet;
  Sink sink(pOut_);
  std::string& out = sink.text();
  out += "{\"type\":";
  appendJsonString(out, view_.typeName);
  out += ",\"bytes\":";
  appendDecimal(out, static_cast<uint64_t>(view_.pBody->size()));
  out += ",\"status\":";
  appendDecimal(out, static_cast<int64_t>(view_.status));
  out += view_.partial ? ",\"partial\":true,\"entries\":[" : ",\"partial\":false,\"entries\":[";
  EntryWalker walker(view_, true, true);
  for (uint32_t i = 0; i < set.size(); ++i) {
    const EntryLine& l = walker.describe(i);
    const tarn_message_value_set_entry& e = set[i];
    out += i ? ",\n {\"index\":" : "\n {\"index\":";
    appendDecimal(out, i);
    out += ",\"name\":";
    appendJsonString(out, l.pName, l.nameLength);
    out += ",\"path\":";
    appendJsonString(out, *l.pPath);
    out += ",\"hash\":";
    appendDecimal(out, e.hash);
    out += ",\"depth\":";
    appendDecimal(out, static_cast<int64_t>(l.depth));
    out += ",\"parent\":";
    appendIndex(out, e.parent);
    out += ",\"first_child\":";
    appendIndex(out, e.first_child);
    out += ",\"next_sibling\":";
    appendIndex(out, e.next_sibling);
    out += ",\"kind\":\"";
    out += l.kind;
    out += '"';
    if (l.kind[0] == 'i') {
      out += ",\"value\":";
      if (declaredUnsigned64(l)) {
        appendDecimal(out, static_cast<uint64_t>(e.l));
      } else {
        appendDecimal(out, static_cast<int64_t>(e.l));
      }
      if (const std::string* pName = enumNameOf(l, e.l)) {
        out += ",\"enum\":";
        appendJsonString(out, *pName);
      }
    } else if (l.kind[0] == 'd') {
      out += ",\"value\":";
      const size_t start = out.size();
      appendFloating(out, l, e.d);
      // nan and inf are no JSON numbers: they go as strings.
      if (out.find_first_of("ni", start) != std::string::npos) {
        const std::string text = out.substr(start);
        out.resize(start);
        appendJsonString(out, text);
      }
    } else if (l.kind[0] == 's') {
      out += ",\"value\":";
      // Bytes that are not UTF-8 show as U+FFFD in the value; their exact
      // bytes follow in hex.
      if (!appendJsonString(out, e.string_rep, e.string_rep_length)) {
        out += ",\"value_hex\":\"";
        appendHexCompact(out, e.string_rep, e.string_rep_length);
        out += '"';
      }
    }
    out += l.isDefault ? ",\"default\":true" : ",\"default\":false";
    out += l.required ? ",\"required\":true" : ",\"required\":false";
    if (l.sameBytesAs >= 0) {
      out += ",\"raw_as\":";
      appendDecimal(out, l.sameBytesAs);
      out += '}';
    } else {
      out += ",\"raw\":\"";
      if (e.raw_bytes) appendHexCompact(out, e.raw_bytes, e.raw_bytes_length);
      out += "\"}";
    }
    sink.lineDone();
  }
  out += set.size() == 0 ? "]}\n" : "\n]}\n";
}

}  // namespace tarnpb
