#include "parser_support.h"

#include <cstring>
#include <map>

namespace ptest {

tarn_message_type_context context(const std::string& dir, const std::string& file,
                                  const std::string& type) {
  // Never destroyed, so the contexts stay reachable for the leak checker.
  static auto* pContexts = new std::map<std::string, tarn_message_type_context>();
  const std::string key = dir + "|" + file + "|" + type;
  auto it = pContexts->find(key);
  if (it == pContexts->end()) {
    it = pContexts->emplace(key, tarn_test::makeContext(dir, file, type)).first;
  }
  return it->second;
}

tarn_message_type_context type(const std::string& name) {
  return context(tarn_test::dataDir(), "parser.proto", "tarn.ptest." + name);
}

uint32_t pathHash(std::initializer_list<std::string> names, uint32_t base) {
  uint32_t hash = base;
  bool first = true;
  for (const std::string& name : names) {
    if (!first) hash = tarn_message_xpath_hash_add_separator(hash);
    hash = tarn_message_xpath_hash_string(name.data(), name.size(), hash);
    first = false;
  }
  return hash;
}

Parsed::Parsed(tarn_message_type_context context_, const std::string& body_,
               const tarn::tarn_xpath_hash_set* pFind_, std::vector<entry_t>* pRecord_)
    : _bytes(new char[body_.size()]), _length(body_.size()) {
  if (!body_.empty()) std::memcpy(_bytes.get(), body_.data(), body_.size());
  _set.recordSubmissions(pRecord_);
  tarn_input_message input = {};
  input.message_type_context = context_;
  input.data = _bytes.get();
  input.byte_count = _length;
  _status = pFind_ == nullptr
                ? tarn_test::api().parse_message(&input, _set.handle())
                : tarn_test::api().partial_parse_message(&input, pFind_, _set.handle());
  _set.recordSubmissions(nullptr);
}

bool Parsed::inside(const char* p_, size_t n_) const {
  return p_ >= data() && n_ <= _length && static_cast<size_t>(p_ - data()) <= _length - n_;
}

}  // namespace ptest
