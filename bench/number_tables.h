// Per-type tables indexed by field number, for the protozero peers: one table
// for the root type (index 0) and one for every message type reachable from
// it, each type once however often it is nested, so a walk looks nothing up
// but an array slot.
#ifndef TARN_BENCH_NUMBER_TABLES_H
#define TARN_BENCH_NUMBER_TABLES_H

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tarn_bench {

// fill_(Field& slot, const FieldDescriptor* field, uint32_t nested) sets the
// slot of one declared field; `nested` is the table index of a message
// field's type and 0 for other fields. Undeclared numbers keep Field().
template <typename Field, typename Fill>
std::vector<std::vector<Field>> numberTables(const google::protobuf::Descriptor* pRoot_,
                                             Fill fill_) {
  using google::protobuf::Descriptor;
  using google::protobuf::FieldDescriptor;
  std::vector<const Descriptor*> seen;
  std::vector<std::vector<Field>> tables;
  struct Builder {
    std::vector<const Descriptor*>& seen;
    std::vector<std::vector<Field>>& tables;
    Fill& fill;
    uint32_t add(const Descriptor* pType_) {
      for (uint32_t i = 0; i < seen.size(); ++i)
        if (seen[i] == pType_) return i;
      const uint32_t index = static_cast<uint32_t>(seen.size());
      seen.push_back(pType_);
      tables.emplace_back();
      int maxNumber = 0;
      for (int i = 0; i < pType_->field_count(); ++i)
        maxNumber = std::max(maxNumber, pType_->field(i)->number());
      std::vector<Field> table(static_cast<size_t>(maxNumber) + 1);
      for (int i = 0; i < pType_->field_count(); ++i) {
        const FieldDescriptor* f = pType_->field(i);
        const uint32_t nested =
            f->type() == FieldDescriptor::TYPE_MESSAGE ? add(f->message_type()) : 0;
        fill(table[static_cast<size_t>(f->number())], f, nested);
      }
      tables[index] = std::move(table);
      return index;
    }
  };
  Builder{seen, tables, fill_}.add(pRoot_);
  return tables;
}

}  // namespace tarn_bench

#endif
