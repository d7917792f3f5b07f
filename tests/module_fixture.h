// Shared set-up for the tests: the module loaded once per process through the
// stand-in host and started with the recording logger; cached contexts; parse
// and trace calls on exactly-sized heap copies of a body, so that a read past
// its end is a sanitizer error rather than a silent read of a terminator.
#ifndef TARN_TESTS_MODULE_FIXTURE_H
#define TARN_TESTS_MODULE_FIXTURE_H

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "host/logger.h"
#include "host/module_driver.h"
#include "host/value_set.h"

namespace tarn_test {

typedef tarn_message_value_set_entry entry_t;
const uint32_t INV = tarn_message_value_invalid_index;

// The module, loaded and started once per process with the recording logger.
// Aborts the test process if it cannot load.
const tarn_host::ModuleDriver& driver();
// Its entry points, for calls built by hand.
inline const tarn_host::ModuleApi& api() { return driver().api(); }
std::string dataDir();    // tests/data
std::string corpusDir();  // the public protobuf corpus, or "" when absent

// A new context for `type` from `file`, with `dir` mapped as the virtual root.
// Null (after the module's log lines) when refused.
tarn_message_type_context makeContext(const std::string& dir, const std::string& file,
                                      const std::string& type);
// The same, created once per process and never destroyed (descriptors live as
// long as the module); `dir` defaults to tests/data.
tarn_message_type_context context(const std::string& file, const std::string& type,
                                  const std::string& dir = dataDir());
inline tarn_message_type_context rich() { return context("rich.proto", "tarn.test.Rich"); }

// Parses `body` (in place) into `set`, partially when a find set is given;
// returns the module's status.
int parse(tarn_message_type_context context, const std::string& body, tarn_host::ValueSet& set,
          tarn_message_xpath_find_set findSet = nullptr);

// The path hash of names[0].names[1]... continued from `base`.
uint32_t pathHash(std::initializer_list<std::string> names,
                  uint32_t base = tarn_host::default_base_hash);

inline std::string text(const char* p_, uint32_t n_) {
  return p_ == nullptr ? std::string("<null>") : std::string(p_, n_);
}
class Parsed;

// Whether two entries agree in every field (the parent too, unless
// withParent is false: a partial parse links kept entries to other parents).
bool sameEntry(const entry_t& a, const entry_t& b, bool withParent = true);

// An entry's value as text: =L (a long), =dD (a double), sHEX (a string in the
// body; SHEX elsewhere: a default from the schema), {} (a message).
std::string value(const Parsed& p, const entry_t& e);
// Every entry on a line: name, value, flags, raw span in the body and links.
std::string dump(const Parsed& p);
// The entries reachable from entry 0, one a line indented by depth: name,
// value, flags, "default" for an entry without bytes. Problems are marked
// with '!': a wrong path hash or parent, bytes outside the body, a link out
// of the set or back to a reached entry, an entry not reached.
std::string tree(const Parsed& p);

// A parse of an exactly-sized heap copy of body_.
class Parsed {
 public:
  Parsed(tarn_message_type_context context_, const std::string& body_);

  int status() const { return _status; }
  uint32_t size() const { return _set.size(); }
  const entry_t& operator[](uint32_t index_) const { return _set[index_]; }
  const char* data() const { return _bytes.get(); }
  // Offset of p_ in the body, -1 for null.
  long offset(const char* p_) const { return p_ == nullptr ? -1 : static_cast<long>(p_ - data()); }
  // Whether [p_, p_ + n_) lies inside the body.
  bool inside(const char* p_, size_t n_) const;

 private:
  std::unique_ptr<char[]> _bytes;
  size_t _length;
  tarn_host::ValueSet _set;
  int _status;
};

// Traces `body` into a buffer of `capacity` bytes that already holds `prefix`,
// filled beyond it with a sentinel: a byte written past the reported length,
// a length past the capacity or a changed prefix is a test failure.
struct Traced {
  int status;
  std::string text;  // the buffer's first `length` bytes, prefix included
};
Traced trace(tarn_message_type_context ctx, const std::string& body, size_t capacity = 1 << 16,
             const std::string& prefix = "");

// Merges update_ over stored_ into a segment holding prefix_, with the room
// the host's rule gives and canary bytes behind it. Returns the merged bytes,
// or "!" when the merge wrote outside its room or misreported the count.
std::string runMerge(tarn_host::ValueSet& update_, tarn_host::ValueSet& stored_,
                     const std::string& prefix_ = "", int* pReturned_ = nullptr);

// A scratch directory, removed with the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return _path; }
  // Writes `text` to `relative` (parent directories are created); returns its path.
  std::string write(const std::string& relative, const std::string& text) const;

 private:
  std::string _path;
};

// A name no earlier test of this process has used: the module's schema pool
// remembers every file name it was asked for, found or not.
std::string uniqueName(const std::string& stem);

}  // namespace tarn_test

#endif
