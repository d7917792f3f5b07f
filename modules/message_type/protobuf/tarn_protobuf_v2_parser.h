// Walks a protobuf wire-format body against its descriptor and stores one host
// value entry per field occurrence, linked parent / first child / next sibling,
// followed at each level by the schema defaults of the fields that were absent.
//
// One parser lives on the caller's stack for one parse. It copies no message
// bytes (entries point into the body) and allocates nothing unless one message
// level leaves more than 16 gaps in its field order. Every read is bounded by
// the end of the level being walked, which itself lies inside the body.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_H
#define TARN_PROTOBUF_TARN_PROTOBUF_V2_PARSER_H

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <utility>

#include "message_type/tarn_message_type.h"
#include "util/base/hybrid_worklist.h"
#include "wire_format.h"

class tarn_protobuf_v2_parser {
 public:
  static constexpr uint32_t INVALID = 0xFFFFFFFFu;

  typedef size_t field_handle;

  // One message level: the body itself or the payload of one nested message.
  struct parse_context {
    const google::protobuf::Descriptor* _pDescriptor;
    const char* _pSrc;    // read position, advanced as bytes are consumed
    size_t _srcLength;    // bytes of the level, counted from the starting _pSrc
    uint32_t _baseHash;   // the hash this level's field names continue
    uint32_t _rootIndex;  // entry of the enclosing message field, INVALID at the top
  };

  // Half-open ranges [first, second) of field indexes not seen so far at one
  // level, in the order they were appended. A range that empties stays in the
  // list covering nothing; ranges never overlap.
  class omitted_ranges : public tarn::hybrid_worklist<std::pair<int, int>, 16> {
   public:
    void addRange(int start_, int end_) { push_back(std::make_pair(start_, end_)); }
    void splitRange(int split_);
  };

  tarn_protobuf_v2_parser(const google::protobuf::Descriptor* pRootDescriptor_,
                          tarn_message_xpath_value_set valueSet_,
                          tarn_message_xpath_find_set findSet_)
      : _pRootDescriptor(pRootDescriptor_),
        _valueSet(valueSet_),
        _findSet(findSet_),
        _previousSibling(INVALID),
        _depth(0) {}

  [[nodiscard]] int parse(const char* pSource_, size_t sourceLength_);

 private:
  // A field descriptor's address carried as an integer.
  static field_handle toHandle(const google::protobuf::FieldDescriptor* pField_) {
    return reinterpret_cast<field_handle>(pField_);
  }
  static const google::protobuf::FieldDescriptor* fromHandle(field_handle handle_) {
    return reinterpret_cast<const google::protobuf::FieldDescriptor*>(handle_);
  }

  static uint64_t _consumeVarint(const char*& pSrc_, const char* pEnd_);
  static TARN_NOINLINE uint64_t _consumeVarintSlow(const char*& pSrc_, const char* pEnd_);
  static const google::protobuf::FieldDescriptor* _findField(
      const google::protobuf::Descriptor* pDescriptor_, int fieldCount_, int number_,
      int indexHint_, int& index_);
  static const google::protobuf::FieldDescriptor* _findFieldSlow(
      const google::protobuf::Descriptor* pDescriptor_, int number_, int& index_);

  [[nodiscard]] int _parseMessage(parse_context& context_);
  void _initializeValueFromDescriptor(tarn_message_value_set_entry* pValue_,
                                      const google::protobuf::FieldDescriptor* pField_,
                                      parse_context& parseContext_);
  uint32_t _insert(tarn_message_value_set_entry* pValue_);
  uint32_t _descend();
  void _ascend(uint32_t uplevelPreviousSibling_);

  [[nodiscard]] int _consumeValue(tarn_message_value_set_entry* pValue_,
                                  const google::protobuf::FieldDescriptor* pFieldDescriptor_,
                                  wire_type wiretype_, parse_context& context_,
                                  const char* pValueStart_, const char* pEnd_);
  [[nodiscard]] int _consumeMessage(tarn_message_value_set_entry* pValue_,
                                    const google::protobuf::FieldDescriptor* pFieldDescriptor_,
                                    parse_context& context_, const char* pValueStart_,
                                    size_t length_);
  [[nodiscard]] int _consumePacked(const google::protobuf::FieldDescriptor* pFieldDescriptor_,
                                   tarn_message_value_set_entry* pValue_, parse_context& context_,
                                   const char* pValueStart_, const char* pEnd_);

  [[nodiscard]] int _insertDefaults(parse_context& context_, const omitted_ranges& ranges_,
                                    int lastFieldSeenIndex_);
  [[nodiscard]] int _insertDefault(parse_context& context_, field_handle omitted_);
  [[nodiscard]] static int _setValueFromDescriptorDefault(
      tarn_message_value_set_entry* pValue_, const google::protobuf::FieldDescriptor* pField_);

  const google::protobuf::Descriptor* _pRootDescriptor;
  tarn_message_xpath_value_set _valueSet;
  tarn_message_xpath_find_set _findSet;
  uint32_t _previousSibling;  // newest entry stored at the level being walked
  uint32_t _depth;            // nested levels entered below the body
};

#endif
