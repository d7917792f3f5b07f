#include "trace_peer.h"

#include <charconv>
#include <cstring>
#include <protozero/pbf_reader.hpp>

#include "number_tables.h"

namespace tarn_bench {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

// A bounded write cursor; every piece is checked against the end.
struct TraceWalker::Out {
  char* p;
  char* end;

  bool put(const char* pText_, size_t length_) {
    if (static_cast<size_t>(end - p) < length_) return false;
    std::memcpy(p, pText_, length_);
    p += length_;
    return true;
  }
  bool put(char c_) {
    if (p == end) return false;
    *p++ = c_;
    return true;
  }
  template <typename T>
  bool number(T value_) {
    const std::to_chars_result r = std::to_chars(p, end, value_);
    if (r.ec != std::errc()) return false;
    p = r.ptr;
    return true;
  }
  // printf's %g: six significant digits, the shorter of fixed and exponent form.
  bool real(double value_) {
    const std::to_chars_result r = std::to_chars(p, end, value_, std::chars_format::general, 6);
    if (r.ec != std::errc()) return false;
    p = r.ptr;
    return true;
  }
};

TraceWalker::TraceWalker(const Descriptor* pRoot_)
    : _types(numberTables<Field>(pRoot_,
                                 [](Field& slot_, const FieldDescriptor* f_, uint32_t nested_) {
                                   slot_.known = true;
                                   slot_.packed = f_->is_packed();
                                   slot_.type = f_->type();
                                   slot_.key = "\"" + f_->name() + "\":";
                                   slot_.nested = nested_;
                                 })) {}

long TraceWalker::trace(const char* pData_, size_t size_, char* pOut_, size_t capacity_) const {
  Out out{pOut_, pOut_ + capacity_};
  if (!out.put("protobuf(", 9) || !_level(pData_, size_, _types[0], out) || !out.put(')'))
    return -1;
  return out.p - pOut_;
}

bool TraceWalker::_level(const char* pData_, size_t size_, const Type& type_, Out& out_) const {
  if (!out_.put('{')) return false;
  protozero::pbf_reader reader(pData_, size_);
  bool first = true;
  while (reader.next()) {
    const uint32_t number = reader.tag();
    if (number >= type_.size() || !type_[number].known) break;
    const Field& field = type_[number];
    if (!first && !out_.put(',')) return false;
    first = false;
    if (!out_.put(field.key.data(), field.key.size())) return false;
    bool ok = true;
    switch (reader.wire_type()) {
      case protozero::pbf_wire_type::varint:
        ok = out_.number(reader.get_uint64());
        break;
      case protozero::pbf_wire_type::fixed64:
        ok = field.type == FieldDescriptor::TYPE_DOUBLE ? out_.real(reader.get_double())
                                                        : out_.number(reader.get_sfixed64());
        break;
      case protozero::pbf_wire_type::fixed32:
        ok = field.type == FieldDescriptor::TYPE_FLOAT
                 ? out_.real(static_cast<double>(reader.get_float()))
                 : out_.number(reader.get_sfixed32());
        break;
      case protozero::pbf_wire_type::length_delimited: {
        const protozero::data_view view = reader.get_view();
        if (field.packed)
          ok = _packed(field, view.data(), view.size(), out_);
        else if (field.type == FieldDescriptor::TYPE_MESSAGE)
          ok = _level(view.data(), view.size(), _types[field.nested], out_);
        else
          ok = out_.put('"') && out_.put(view.data(), view.size()) && out_.put('"');
        break;
      }
      default:
        reader.skip();
    }
    if (!ok) return false;
  }
  return out_.put('}');
}

namespace {

template <typename It, typename Write>
bool elements(It it_, It end_, TraceWalker::Out& out_, Write write_) {
  for (bool first = true; it_ != end_; ++it_, first = false)
    if ((!first && !out_.put(',')) || !write_(*it_)) return false;
  return true;
}

}  // namespace

bool TraceWalker::_packed(const Field& field_, const char* pData_, size_t size_, Out& out_) {
  using namespace protozero;
  const char* const b = pData_;
  const char* const e = pData_ + size_;
  auto number = [&out_](auto v_) { return out_.number(v_); };
  auto real = [&out_](auto v_) { return out_.real(static_cast<double>(v_)); };
  bool ok = out_.put('[');
  switch (field_.type) {
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      ok = ok && elements(const_svarint_iterator<int64_t>(b, e),
                          const_svarint_iterator<int64_t>(e, e), out_, number);
      break;
    case FieldDescriptor::TYPE_FIXED32:
      ok = ok && elements(const_fixed_iterator<uint32_t>(b), const_fixed_iterator<uint32_t>(e),
                          out_, number);
      break;
    case FieldDescriptor::TYPE_SFIXED32:
      ok = ok && elements(const_fixed_iterator<int32_t>(b), const_fixed_iterator<int32_t>(e), out_,
                          number);
      break;
    case FieldDescriptor::TYPE_FIXED64:
      ok = ok && elements(const_fixed_iterator<uint64_t>(b), const_fixed_iterator<uint64_t>(e),
                          out_, number);
      break;
    case FieldDescriptor::TYPE_SFIXED64:
      ok = ok && elements(const_fixed_iterator<int64_t>(b), const_fixed_iterator<int64_t>(e), out_,
                          number);
      break;
    case FieldDescriptor::TYPE_DOUBLE:
      ok = ok &&
           elements(const_fixed_iterator<double>(b), const_fixed_iterator<double>(e), out_, real);
      break;
    case FieldDescriptor::TYPE_FLOAT:
      ok = ok &&
           elements(const_fixed_iterator<float>(b), const_fixed_iterator<float>(e), out_, real);
      break;
    default:  // every other varint type: unsigned 64-bit
      ok = ok && elements(const_varint_iterator<uint64_t>(b, e),
                          const_varint_iterator<uint64_t>(e, e), out_, number);
  }
  return ok && out_.put(']');
}

}  // namespace tarn_bench
