#include "peers.h"

#include <protozero/pbf_reader.hpp>

#include "number_tables.h"

namespace tarn_bench {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

WireWalker::WireWalker(const Descriptor* pRoot_)
    : _types(numberTables<Field>(pRoot_,
                                 [](Field& slot_, const FieldDescriptor* f_, uint32_t nested_) {
                                   if (f_->type() == FieldDescriptor::TYPE_MESSAGE) {
                                     slot_.kind = nested;
                                     slot_.type = nested_;
                                   } else if (f_->is_packed()) {
                                     switch (f_->type()) {
                                       case FieldDescriptor::TYPE_SINT32:
                                       case FieldDescriptor::TYPE_SINT64:
                                         slot_.kind = packedZigzag;
                                         break;
                                       case FieldDescriptor::TYPE_FIXED32:
                                       case FieldDescriptor::TYPE_SFIXED32:
                                       case FieldDescriptor::TYPE_FLOAT:
                                         slot_.kind = packedFixed32;
                                         break;
                                       case FieldDescriptor::TYPE_FIXED64:
                                       case FieldDescriptor::TYPE_SFIXED64:
                                       case FieldDescriptor::TYPE_DOUBLE:
                                         slot_.kind = packedFixed64;
                                         break;
                                       default:
                                         slot_.kind = packedVarint;
                                     }
                                   }
                                 })) {}

uint64_t WireWalker::walk(const char* pData_, size_t size_) const {
  return _walk<false>(pData_, size_, _types[0]);
}

uint64_t WireWalker::fields(const char* pData_, size_t size_) const {
  return _walk<true>(pData_, size_, _types[0]);
}

template <bool Count>
uint64_t WireWalker::_walk(const char* pData_, size_t size_, const Type& type_) const {
  protozero::pbf_reader reader(pData_, size_);
  uint64_t sum = 0;
  // Counting: one per field here, one per packed element below; a nested
  // message counts once itself and then its members.
  auto add = [&sum](uint64_t v_) { sum += Count ? 1 : v_; };
  while (reader.next()) {
    const uint32_t number = reader.tag();
    const Field field = number < type_.size() ? type_[number] : Field();
    switch (reader.wire_type()) {
      case protozero::pbf_wire_type::varint:
        add(reader.get_uint64());
        break;
      case protozero::pbf_wire_type::fixed64:
        add(reader.get_fixed64());
        break;
      case protozero::pbf_wire_type::fixed32:
        add(reader.get_fixed32());
        break;
      case protozero::pbf_wire_type::length_delimited:
        switch (field.kind) {
          case nested: {
            const protozero::data_view view = reader.get_view();
            add(0);
            sum += _walk<Count>(view.data(), view.size(), _types[field.type]);
            break;
          }
          case packedVarint:
            for (uint64_t v : reader.get_packed_uint64()) add(v);
            break;
          case packedZigzag:
            for (int64_t v : reader.get_packed_sint64()) add(static_cast<uint64_t>(v));
            break;
          case packedFixed32:
            for (uint32_t v : reader.get_packed_fixed32()) add(v);
            break;
          case packedFixed64:
            for (uint64_t v : reader.get_packed_fixed64()) add(v);
            break;
          case plain: {
            const protozero::data_view view = reader.get_view();
            add(view.size() + static_cast<unsigned char>(view.size() ? view.data()[0] : 0));
            break;
          }
        }
        break;
      default:
        add(0);
        reader.skip();
    }
  }
  return sum;
}

}  // namespace tarn_bench
