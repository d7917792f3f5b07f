// The value list a server hands to a module's serialization, built from a
// parsed message: the values in document order, each with its depth (the top
// level is 1) and the field's encoded bytes.
//
// The module copies a plain value's bytes whole, and for a document value it
// copies only the tag and opens a submessage that stays open until the depth
// falls. So a message is listed as a document only when at least one member
// carries bytes; an empty nested message, or one whose entries all come from
// schema defaults, would otherwise swallow the fields that follow it at its own
// depth. Such a message goes as a plain value with its whole encoding. The
// elements of a packed field all point at the one block: it is listed once.
// Default entries carry no bytes and are left out.
#ifndef TARN_HOST_VALUE_LIST_H
#define TARN_HOST_VALUE_LIST_H

#include <cstddef>
#include <vector>

#include "host/value_set.h"

namespace tarn_host {

class ValueList {
 public:
  // Lists the message whose top-level entries are entry 0 and its siblings.
  // Links are followed forward only, so any set, even one left by a failed
  // parse, gives a finite list. Returns false when the set holds no entry.
  // The values point into the message body behind set_'s entries.
  bool build(const ValueSet& set_);

  tarn_message_value_list* list() { return &_list; }
  const std::vector<tarn_message_value>& values() const { return _values; }
  // How many values are documents: each takes a four-byte length slot where
  // its prefix may have been shorter, room the size answer counts as well.
  size_t documents() const { return _documents; }

 private:
  void _add(const tarn_message_value_set_entry& entry_, uint32_t depth_, bool document_);

  std::vector<tarn_message_value> _values;
  tarn_message_value_list _list = {0, nullptr};
  size_t _documents = 0;
};

}  // namespace tarn_host

#endif
