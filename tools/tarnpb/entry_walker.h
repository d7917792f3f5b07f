// Reads a value set entry by entry as the module left it, for the printers:
// where each entry sits (depth, dotted path), what it holds, and the tool's
// own field for it where the schema knows its place. The entries still open
// above the current one are kept as a stack, so a walk is linear in the set.
#ifndef TARN_TOOLS_TARNPB_ENTRY_WALKER_H
#define TARN_TOOLS_TARNPB_ENTRY_WALKER_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "parse_view.h"
#include "schema.h"

namespace tarnpb {

namespace gp = google::protobuf;

const uint32_t invalid = tarn_message_value_invalid_index;

inline bool sameRange(const tarn_message_value_set_entry& a_,
                      const tarn_message_value_set_entry& b_) {
  return a_.raw_bytes != nullptr && a_.raw_bytes == b_.raw_bytes &&
         a_.raw_bytes_length == b_.raw_bytes_length;
}

inline const char* kindOf(const tarn_message_value_set_entry& entry_) {
  if (entry_.value_mask & tarn_message_xpath_value_mask_long) return "int";
  if (entry_.value_mask & tarn_message_xpath_value_mask_double) return "double";
  if (entry_.string_rep != nullptr) return "string";
  return "message";
}

// The hash the entry should carry if it sits where its parent links say; a
// mismatch means its place is not known (a partial parse that kept a field
// but not the message around it).
inline uint32_t expectedHash(const tarn_host::ValueSet& set_,
                             const tarn_message_value_set_entry& entry_, uint32_t base_) {
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
inline const std::string* enumNameOf(const EntryLine& line_, int64_t value_) {
  if (line_.pField == nullptr || line_.pField->enum_type() == nullptr) return nullptr;
  const gp::EnumValueDescriptor* pValue =
      line_.pField->enum_type()->FindValueByNumber(static_cast<int>(value_));
  return pValue == nullptr || pValue->number() != value_ ? nullptr : &pValue->name();
}

// The module stores every integer as a signed 64-bit value and every floating
// value as a double; they are shown as their declared type has them.
inline bool declaredUnsigned64(const EntryLine& line_) {
  return line_.pField != nullptr && line_.pField->cpp_type() == gp::FieldDescriptor::CPPTYPE_UINT64;
}
inline bool declaredFloat(const EntryLine& line_) {
  return line_.pField != nullptr && line_.pField->type() == gp::FieldDescriptor::TYPE_FLOAT;
}

}  // namespace tarnpb

#endif
