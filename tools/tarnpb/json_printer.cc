// The parse view for scripts: one JSON object per parse, an entry per element
// of its "entries", in index order.
#include "entry_walker.h"
#include "json_out.h"
#include "printers.h"

namespace tarnpb {

namespace {

void index(JsonOut& out_, const char* key_, uint32_t index_) {
  out_.key(key_);
  if (index_ == invalid) {
    out_.null();
  } else {
    out_.unsignedInteger(index_);
  }
}

// The value an entry holds, as its declared type has it.
void value(JsonOut& out_, const EntryLine& line_, const tarn_message_value_set_entry& entry_) {
  switch (line_.kind[0]) {
    case 'i':
      out_.key("value");
      if (declaredUnsigned64(line_)) {
        out_.unsignedInteger(static_cast<uint64_t>(entry_.l));
      } else {
        out_.integer(entry_.l);
      }
      if (const std::string* pName = enumNameOf(line_, entry_.l)) out_.key("enum").string(*pName);
      break;
    case 'd':
      out_.key("value");
      if (declaredFloat(line_)) {
        out_.number(static_cast<float>(entry_.d));
      } else {
        out_.number(entry_.d);
      }
      break;
    case 's':
      // Bytes that are not UTF-8 show as U+FFFD in the value; their exact
      // bytes follow in hex.
      out_.bytes("value", "value_hex", entry_.string_rep, entry_.string_rep_length);
      break;
  }
}

}  // namespace

void printJson(JsonOut& out_, const ParseView& view_) {
  const tarn_host::ValueSet& set = *view_.pSet;
  out_.beginObject();
  out_.key("type").string(view_.typeName);
  out_.key("bytes").unsignedInteger(view_.pBody->size());
  out_.key("status").integer(view_.status);
  out_.key("partial").boolean(view_.partial);
  out_.key("entries").beginArray();
  EntryWalker walker(view_, true, true);
  for (uint32_t i = 0; i < set.size(); ++i) {
    const EntryLine& l = walker.describe(i);
    const tarn_message_value_set_entry& e = set[i];
    out_.beginObject();
    out_.key("index").unsignedInteger(i);
    out_.key("name").string(l.pName, l.nameLength);
    out_.key("path").string(*l.pPath);
    out_.key("hash").unsignedInteger(e.hash);
    out_.key("depth").integer(l.depth);
    index(out_, "parent", e.parent);
    index(out_, "first_child", e.first_child);
    index(out_, "next_sibling", e.next_sibling);
    out_.key("kind").word(l.kind);
    value(out_, l, e);
    out_.key("default").boolean(l.isDefault);
    out_.key("required").boolean(l.required);
    if (l.sameBytesAs >= 0) {
      out_.key("raw_as").integer(l.sameBytesAs);
    } else {
      out_.key("raw").hex(e.raw_bytes, e.raw_bytes ? e.raw_bytes_length : 0);
    }
    out_.endObject();
  }
  out_.endArray();
  out_.endObject();
}

}  // namespace tarnpb
