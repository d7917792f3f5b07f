#include "printers.h"

#include "schema.h"
#include "text_util.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

const uint32_t invalid = tarn_message_value_invalid_index;
const size_t tree_value_width = 28;
const size_t tree_raw_bytes = 12;
const size_t tree_string_bytes = 24;

bool sameRange(const tarn_message_value_set_entry& a_, const tarn_message_value_set_entry& b_) {
  return a_.raw_bytes != nullptr && a_.raw_bytes == b_.raw_bytes &&
         a_.raw_bytes_length == b_.raw_bytes_length;
}

std::string kindOf(const tarn_message_value_set_entry& entry_) {
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

std::string enumNameOf(const ParseView& view_, const std::vector<std::string>& names_,
                       long value_) {
  if (view_.pRoot == nullptr) return "";
  const gp::FieldDescriptor* pField = Schema::fieldAt(view_.pRoot, names_);
  if (pField == nullptr || pField->enum_type() == nullptr) return "";
  const gp::EnumValueDescriptor* pValue =
      pField->enum_type()->FindValueByNumber(static_cast<int>(value_));
  return pValue == nullptr || pValue->number() != value_ ? "" : pValue->name();
}

}  // namespace

std::vector<EntryLine> describeEntries(const ParseView& view_) {
  const tarn_host::ValueSet& set = *view_.pSet;
  const uint32_t base = set.impl()._baseHash;
  std::vector<EntryLine> lines;
  std::vector<std::vector<std::string>> namePaths;  // per entry, or empty when unknown
  for (uint32_t i = 0; i < set.size(); ++i) {
    const tarn_message_value_set_entry& e = set[i];
    EntryLine line;
    line.index = i;
    line.name = e.tag_bytes ? std::string(e.tag_bytes, e.tag_length) : std::string("?");
    // Parents are stored before their children, so a parent link that does
    // not point backwards cannot be right and is not followed.
    const bool parentKnown = e.parent != invalid && e.parent < i;
    line.depth = parentKnown ? lines[e.parent].depth + 1 : 0;
    std::vector<std::string> names;
    if (expectedHash(set, e, base) == e.hash) {
      if (parentKnown) names = namePaths[e.parent];
      if (!parentKnown || !names.empty()) names.push_back(line.name);
    }
    line.detached = names.empty();
    if (names.empty() && view_.pKnownPaths != nullptr) {
      auto known = view_.pKnownPaths->find(e.hash);
      if (known != view_.pKnownPaths->end()) names = splitPath(known->second);
    }
    line.path = names.empty() ? "?." + line.name : "";
    for (size_t n = 0; n < names.size(); ++n) line.path += (n ? "." : "") + names[n];
    line.kind = kindOf(e);
    if (line.kind == "int") {
      line.value = std::to_string(e.l);
      if (!names.empty()) line.enumName = enumNameOf(view_, names, e.l);
    } else if (line.kind == "double") {
      line.value = formatDouble(e.d);
    } else if (line.kind == "string") {
      line.value = quoted(e.string_rep, e.string_rep_length, tree_string_bytes);
    }
    line.isDefault = e.raw_bytes == nullptr;
    line.required = (e.value_flags & tarn_message_value_set_entry_flag_required) != 0;
    line.sameBytesAs = i > 0 && sameRange(set[i - 1], e) ? static_cast<int>(i) - 1 : -1;
    if (line.sameBytesAs >= 0 && lines[i - 1].sameBytesAs >= 0)
      line.sameBytesAs = lines[i - 1].sameBytesAs;
    lines.push_back(line);
    namePaths.push_back(names);
  }
  return lines;
}

void printTree(std::FILE* pOut_, const ParseView& view_) {
  const tarn_host::ValueSet& set = *view_.pSet;
  const std::vector<EntryLine> lines = describeEntries(view_);
  if (!view_.title.empty()) std::fprintf(pOut_, "%s: ", view_.title.c_str());
  std::fprintf(pOut_, "%s, %zu bytes, %u %s%s", view_.typeName.c_str(), view_.pBody->size(),
               set.size(), set.size() == 1 ? "entry" : "entries",
               view_.partial ? " kept by the find set" : "");
  if (view_.status != 0) std::fprintf(pOut_, ", parse FAILED with status %d", view_.status);
  std::fprintf(pOut_, "\n");
  if (lines.empty()) return;

  size_t fieldWidth = 5;
  bool anyRequired = false;
  for (const auto& l : lines) {
    const size_t width = 2 * static_cast<size_t>(l.depth) + (l.detached ? l.path : l.name).size() +
                         (l.required ? 1 : 0);
    if (width > fieldWidth) fieldWidth = width;
    anyRequired = anyRequired || l.required;
  }
  if (fieldWidth > 40) fieldWidth = 40;
  std::vector<uint32_t> children(set.size(), 0);
  for (const auto& l : lines) {
    const uint32_t parent = set[l.index].parent;
    if (parent < l.index) ++children[parent];
  }
  std::fprintf(pOut_, "%5s  %-10s  %s  %-7s  %s  %s\n", "#", "hash",
               fit("field", fieldWidth).c_str(), "kind", fit("value", tree_value_width).c_str(),
               "raw bytes");
  for (const auto& l : lines) {
    const tarn_message_value_set_entry& e = set[l.index];
    // An entry kept without its enclosing message is named by its whole path.
    std::string field =
        std::string(2 * static_cast<size_t>(l.depth), ' ') + (l.detached ? l.path : l.name);
    if (l.required) field += "*";
    std::string value = l.value;
    if (!l.enumName.empty()) value += " (" + l.enumName + ")";
    if (l.kind == "message") {
      const uint32_t count = children[l.index];
      value = count == 1 ? "1 child" : std::to_string(count) + " children";
    }
    std::string raw;
    if (l.isDefault) {
      raw = "-- schema default";
    } else if (l.sameBytesAs >= 0) {
      raw = "= #" + std::to_string(l.sameBytesAs) + " (packed)";
    } else {
      raw = hexBytes(e.raw_bytes, e.raw_bytes_length, tree_raw_bytes);
    }
    std::fprintf(pOut_, "%5u  %s  %s  %-7s  %s  %s\n", l.index, hashHex(e.hash).c_str(),
                 fit(field, fieldWidth).c_str(), l.kind.c_str(),
                 fit(value, tree_value_width).c_str(), raw.c_str());
  }
  if (anyRequired) std::fprintf(pOut_, "(* required field)\n");
}

namespace {

std::string jsonIndex(uint32_t index_) {
  return index_ == invalid ? "null" : std::to_string(index_);
}

}  // namespace

void printJson(std::FILE* pOut_, const ParseView& view_) {
  const tarn_host::ValueSet& set = *view_.pSet;
  const std::vector<EntryLine> lines = describeEntries(view_);
  std::fprintf(pOut_, "{\"type\":%s,\"bytes\":%zu,\"status\":%d,\"partial\":%s,\"entries\":[",
               jsonString(view_.typeName).c_str(), view_.pBody->size(), view_.status,
               view_.partial ? "true" : "false");
  for (size_t n = 0; n < lines.size(); ++n) {
    const EntryLine& l = lines[n];
    const tarn_message_value_set_entry& e = set[l.index];
    std::string out = n ? ",\n " : "\n ";
    out += "{\"index\":" + std::to_string(l.index) + ",\"name\":" + jsonString(l.name) +
           ",\"path\":" + jsonString(l.path) + ",\"hash\":" + std::to_string(e.hash) +
           ",\"depth\":" + std::to_string(l.depth) + ",\"parent\":" + jsonIndex(e.parent) +
           ",\"first_child\":" + jsonIndex(e.first_child) +
           ",\"next_sibling\":" + jsonIndex(e.next_sibling) + ",\"kind\":\"" + l.kind + "\"";
    if (l.kind == "int") {
      out += ",\"value\":" + std::to_string(e.l);
    } else if (l.kind == "double") {
      const std::string text = formatDouble(e.d);
      const bool finite = text.find_first_of("ni") == std::string::npos;
      out += ",\"value\":" + (finite ? text : jsonString(text));
    } else if (l.kind == "string") {
      out += ",\"value\":" + jsonString(e.string_rep, e.string_rep_length);
    }
    if (!l.enumName.empty()) out += ",\"enum\":" + jsonString(l.enumName);
    out += std::string(",\"default\":") + (l.isDefault ? "true" : "false") +
           ",\"required\":" + (l.required ? "true" : "false") + ",\"raw\":\"" +
           (e.raw_bytes ? hexCompact(e.raw_bytes, e.raw_bytes_length) : "") + "\"}";
    std::fputs(out.c_str(), pOut_);
  }
  std::fprintf(pOut_, "%s]}\n", lines.empty() ? "" : "\n");
}

}  // namespace tarnpb
