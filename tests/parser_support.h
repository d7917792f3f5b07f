// Helpers shared by the parser tests: cached contexts for the test schemas,
// path hashes computed with the host's own functions, and a parse of a body
// held in an exactly-sized heap block, so that a read past its end is an
// AddressSanitizer error rather than a silent read of a string's terminator.
#ifndef TARN_TESTS_PARSER_SUPPORT_H
#define TARN_TESTS_PARSER_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "module_fixture.h"
#include "tarn/tarn_xpath_hash_set.h"

namespace ptest {

typedef tarn_message_value_set_entry entry_t;
const uint32_t INV = tarn_message_value_invalid_index;

// A context for `type`, created once per process (descriptors live as long as
// the module), from `file` under `dir`.
tarn_message_type_context context(const std::string& dir, const std::string& file,
                                  const std::string& type);
// A type of tests/data/parser.proto, e.g. type("M").
tarn_message_type_context type(const std::string& name);

// The path hash of names[0].names[1]... continued from `base`.
uint32_t pathHash(std::initializer_list<std::string> names,
                  uint32_t base = tarn_host::default_base_hash);

class Parsed {
 public:
  Parsed(tarn_message_type_context context_, const std::string& body_,
         const tarn::tarn_xpath_hash_set* pFind_ = nullptr,
         std::vector<entry_t>* pRecord_ = nullptr);

  int status() const { return _status; }
  uint32_t size() const { return _set.size(); }
  const entry_t& operator[](uint32_t index_) const { return _set[index_]; }
  const tarn_host::ValueSet& set() const { return _set; }
  const char* data() const { return _bytes.get(); }
  size_t length() const { return _length; }
  // Offset of p in the body, -1 for null.
  long offset(const char* p_) const { return p_ == nullptr ? -1 : static_cast<long>(p_ - data()); }
  // Whether [p_, p_ + n_) lies inside the body.
  bool inside(const char* p_, size_t n_) const;

 private:
  std::unique_ptr<char[]> _bytes;
  size_t _length;
  tarn_host::ValueSet _set;
  int _status;
};

inline std::string text(const char* p_, uint32_t n_) {
  return p_ == nullptr ? std::string("<null>") : std::string(p_, n_);
}

}  // namespace ptest

#endif
