#include "fuzz_support.h"

#include <cstdio>
#include <map>
#include <utility>

namespace tarn_fuzz {
namespace {

void silentLogger(int, const char*) {}

const uint32_t invalid = tarn_message_value_invalid_index;

std::string describe(uint32_t index_, const tarn_message_value_set_entry& entry_) {
  char text[160];
  std::snprintf(text, sizeof text, "entry %u: raw length %u, parent %u, first child %u, next %u",
                index_, entry_.raw_bytes_length, entry_.parent, entry_.first_child,
                entry_.next_sibling);
  return text;
}

}  // namespace

const tarn_host::ModuleDriver& driver() {
  // Never destroyed: the module stays loaded until the process ends.
  static const tarn_host::ModuleDriver* pDriver = [] {
    auto* p = new tarn_host::ModuleDriver();
    std::string error;
    if (!p->open(tarn_host::defaultModulePath(), &silentLogger, error))
      fail("module does not load", error);
    return p;
  }();
  return *pDriver;
}

tarn_message_type_context context(const std::string& file, const std::string& type) {
  // Never destroyed: contexts live as long as the process, and the leak checker
  // at exit must still reach them.
  static auto& contexts =
      *new std::map<std::pair<std::string, std::string>, tarn_message_type_context>();
  auto key = std::make_pair(file, type);
  auto found = contexts.find(key);
  if (found != contexts.end()) return found->second;
  tarn_message_type_context created = driver().createContext({TARN_FUZZ_DATA_DIR}, file, type);
  if (created == nullptr) fail("no context for", file + " " + type);
  contexts.emplace(key, created);
  return created;
}

tarn_message_type_context richContext() { return context("rich.proto", "tarn.test.Rich"); }
tarn_message_type_context sampleContext() { return context("sample.proto", "tarn.test.Sample"); }

void fail(const char* what_, const std::string& detail_) {
  std::fprintf(stderr, "FUZZ CHECK FAILED: %s %s\n", what_, detail_.c_str());
  std::abort();
}

int parse(tarn_message_type_context context_, const char* data_, size_t size_,
          tarn_host::ValueSet& set_, const void* findSet_) {
  const int status = driver().parse(context_, data_, size_, set_.handle(), findSet_);
  check(status == TARN_SUCCESS || status == TARN_FAILURE, "parse status is neither 0 nor 255",
        std::to_string(status));
  return status;
}

void checkEntries(const tarn_host::ValueSet& set_, const char* data_, size_t size_) {
  const uint32_t count = set_.size();
  const char* pEnd = data_ + size_;
  for (uint32_t i = 0; i < count; ++i) {
    const tarn_message_value_set_entry& e = set_[i];
    // The description is built only for a failure: this runs for every entry.
    auto expect = [&](bool ok_, const char* what_) {
      if (!ok_) fail(what_, describe(i, e));
    };
    if (e.raw_bytes == nullptr) {
      expect(e.raw_bytes_length == 0, "default entry with raw length");
    } else {
      expect(e.raw_bytes >= data_ && e.raw_bytes_length > 0 &&
                 e.raw_bytes_length <= static_cast<size_t>(pEnd - e.raw_bytes),
             "raw bytes outside the body");
      if (e.string_rep != nullptr)
        expect(e.string_rep >= e.raw_bytes &&
                   e.string_rep + e.string_rep_length <= e.raw_bytes + e.raw_bytes_length,
               "string outside its field");
    }
    expect(e.value_mask == 0 || e.value_mask == 9 || e.value_mask == 18, "unknown value mask");
    expect(e.type_hint <= 2, "unknown type hint");
    expect(e.tag_bytes != nullptr && e.tag_length > 0, "entry without a name");
    expect(e.parent == invalid || e.parent < i, "parent not stored before");
    expect(e.first_child == invalid || (e.first_child > i && e.first_child < count),
           "first child out of order");
    expect(e.next_sibling == invalid || (e.next_sibling > i && e.next_sibling < count),
           "next sibling out of order");
    if (e.first_child != invalid)
      expect(set_[e.first_child].parent == i, "first child names another parent");
    if (e.next_sibling != invalid)
      expect(set_[e.next_sibling].parent == e.parent, "sibling of another parent");
  }
}

}  // namespace tarn_fuzz
