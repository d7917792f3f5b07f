// Packed blocks: a whole block checked first, then one entry per element,
// with one loop per element kind so that the kind is decided once per block.
#include "tarn_protobuf_v2_parser_steps.h"
#include "util/base/assert.h"

using google::protobuf::FieldDescriptor;

template <typename Store>
TARN_ALWAYS_INLINE void tarn_protobuf_v2_parser::_storeElements(
    tarn_message_value_set_entry* pValue_, const char*& pSrc_, const char* pBlockEnd_,
    Store store_) {
  while (pSrc_ < pBlockEnd_) {
    store_(pSrc_, pBlockEnd_, pValue_);
    _insert(pValue_);
  }
}

const char* tarn_protobuf_v2_parser::_consumePacked(const field_entry& field_,
                                                    tarn_message_value_set_entry* pValue_,
                                                    const char* pValueStart_, const char* pSrc_,
                                                    const char* pEnd_) {
  const FieldDescriptor::Type type = static_cast<FieldDescriptor::Type>(field_.type);
  const field_travel element = static_cast<field_travel>(field_.travel);
  if (!travelsPacked(element)) return nullptr;

  const uint64_t length = _consumeVarint(pSrc_, pEnd_, _pBody);
  if (length > static_cast<uint64_t>(pEnd_ - pSrc_)) return nullptr;
  const char* const pBlockEnd = pSrc_ + length;

  // Every element must lie inside its block, and the whole block is checked
  // before the first element is stored, so a bad block leaves nothing of its
  // field behind and elements never read into the bytes after the block.
  if (!packedBlockWhole(element, pSrc_, static_cast<size_t>(length))) return nullptr;

  pValue_->raw_bytes = pValueStart_;
  pValue_->raw_bytes_length = static_cast<uint32_t>(pBlockEnd - pValueStart_);

  // One loop per element kind, so that the kind is decided once per block.
  const char*& pSrc = pSrc_;
  const char* const pFloor = _pBody;
  typedef tarn_message_value_set_entry entry;
  switch (type) {
    case FieldDescriptor::TYPE_INT32:
      // The low 32 bits, sign-extended.
      _storeElements(
          pValue_, pSrc, pBlockEnd, [pFloor](const char*& p_, const char* e_, entry* v_) {
            tarn_message_value_set_entry_set_long(
                v_, static_cast<int32_t>(static_cast<uint32_t>(_consumeVarint(p_, e_, pFloor))));
          });
      break;
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      _storeElements(
          pValue_, pSrc, pBlockEnd, [pFloor](const char*& p_, const char* e_, entry* v_) {
            tarn_message_value_set_entry_set_long(v_, zigzagDecode(_consumeVarint(p_, e_, pFloor)));
          });
      break;
    case FieldDescriptor::TYPE_FLOAT:
      _storeElements(pValue_, pSrc, pBlockEnd, [](const char*& p_, const char*, entry* v_) {
        tarn_message_value_set_entry_set_double(v_, widenFloat(loadFixed32(p_)));
        p_ += 4;
      });
      break;
    case FieldDescriptor::TYPE_SFIXED32:
      _storeElements(pValue_, pSrc, pBlockEnd, [](const char*& p_, const char*, entry* v_) {
        tarn_message_value_set_entry_set_long(v_, static_cast<int32_t>(loadFixed32(p_)));
        p_ += 4;
      });
      break;
    case FieldDescriptor::TYPE_FIXED32:
      _storeElements(pValue_, pSrc, pBlockEnd, [](const char*& p_, const char*, entry* v_) {
        tarn_message_value_set_entry_set_long(v_, loadFixed32(p_));
        p_ += 4;
      });
      break;
    case FieldDescriptor::TYPE_DOUBLE:
      _storeElements(pValue_, pSrc, pBlockEnd, [](const char*& p_, const char*, entry* v_) {
        tarn_message_value_set_entry_set_double(v_, asDouble(loadFixed64(p_)));
        p_ += 8;
      });
      break;
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      _storeElements(pValue_, pSrc, pBlockEnd, [](const char*& p_, const char*, entry* v_) {
        tarn_message_value_set_entry_set_long(v_, static_cast<int64_t>(loadFixed64(p_)));
        p_ += 8;
      });
      break;
    default:
      // int64, uint64, uint32, bool and enum: all 64 bits as sent.
      TARN_ASSERT(element == travel_varint);
      _storeElements(pValue_, pSrc, pBlockEnd,
                     [pFloor](const char*& p_, const char* e_, entry* v_) {
                       tarn_message_value_set_entry_set_long(
                           v_, static_cast<int64_t>(_consumeVarint(p_, e_, pFloor)));
                     });
      break;
  }
  return pSrc_;
}
