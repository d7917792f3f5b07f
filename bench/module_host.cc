#include "module_host.h"

#include <cstdlib>

#include "host/logger.h"

namespace tarn_bench {

bool ModuleHost::open(std::string& error_, const std::string& path_) {
  if (!_module.open(path_, error_)) return false;
  _module.api().module_init(nullptr, &tarn_host::Logger::log, &std::malloc);
  return true;
}

ModuleHost::~ModuleHost() {
  if (!_module.isOpen()) return;
  for (tarn_message_type_context c : _contexts) _module.api().destroy_context(c);
  _module.api().module_terminate();
}

tarn_message_type_context ModuleHost::context(const std::string& dir_, const std::string& file_,
                                              const std::string& type_) {
  tarn_host::ContextOptions options;
  const std::string path = ";" + dir_;
  options.add("ProtoPath", path.c_str()).add("ProtoFile", file_.c_str()).add("Type", type_.c_str());
  tarn_message_type_context c = _module.api().create_context(options.get());
  if (c != nullptr) _contexts.push_back(c);
  return c;
}

int ModuleHost::parse(tarn_message_type_context context_, const std::string& body_,
                      tarn_host::ValueSet& set_) const {
  tarn_input_message input = {};
  input.message_type_context = context_;
  input.data = body_.data();
  input.byte_count = body_.size();
  return _module.api().parse_message(&input, set_.handle());
}

bool ValueList::build(const tarn_host::ValueSet& set_, const google::protobuf::Descriptor* pRoot_) {
  _values.clear();
  if (set_.size() == 0 || !_add(set_, 0, 1, pRoot_)) return false;
  _list.count = _values.size();
  _list.values = _values.data();
  return true;
}

bool ValueList::_add(const tarn_host::ValueSet& set_, uint32_t first_, uint32_t depth_,
                     const google::protobuf::Descriptor* pType_) {
  const char* pLastRaw = nullptr;
  for (uint32_t i = first_; i != tarn_message_value_invalid_index && i < set_.size();) {
    const tarn_message_value_set_entry& e = set_[i];
    const uint32_t next = e.next_sibling;
    if (e.raw_bytes == nullptr || e.raw_bytes == pLastRaw) {
      i = next;
      continue;
    }
    pLastRaw = e.raw_bytes;
    const auto* f = pType_->FindFieldByName(std::string(e.tag_bytes, e.tag_length));
    if (f == nullptr) return false;
    tarn_message_value v = {};
    v.depth = depth_;
    v.xpath_value.raw_bytes = e.raw_bytes;
    v.xpath_value.raw_bytes_length = e.raw_bytes_length;
    if (f->type() == google::protobuf::FieldDescriptor::TYPE_MESSAGE) {
      v.xpath_value.type_hint = tarn_message_xpath_value_type_document;
      _values.push_back(v);
      if (e.first_child != tarn_message_value_invalid_index &&
          !_add(set_, e.first_child, depth_ + 1, f->message_type()))
        return false;
    } else {
      v.xpath_value.type_hint = e.type_hint;
      _values.push_back(v);
    }
    i = next;
  }
  return true;
}

}  // namespace tarn_bench
