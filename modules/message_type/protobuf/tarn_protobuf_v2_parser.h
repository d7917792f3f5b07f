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

#include <cstddef>
#include <cstdint>
#include <utility>

#include "field_table.h"
#include "message_type/tarn_message_type.h"
#include "util/base/hybrid_worklist.h"
#include "wire_format.h"

class tarn_protobuf_v2_parser {
 public:
  static constexpr uint32_t INVALID = 0xFFFFFFFFu;

  // One message level: the body itself or the payload of one nested message.
  struct parse_context {
    const type_table* _pTable;
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

  tarn_protobuf_v2_parser(const type_table* pRootTable_, tarn_message_xpath_value_set valueSet_,
                          tarn_message_xpath_find_set findSet_)
      : _pRootTable(pRootTable_),
        _valueSet(valueSet_),
        _findSet(findSet_),
        _previousSibling(INVALID),
        _depth(0) {}

  [[nodiscard]] int parse(const char* pSource_, size_t sourceLength_);

 private:
  static uint64_t _consumeVarint(const char*& pSrc_, const char* pEnd_);
  static TARN_NOINLINE uint64_t _consumeVarintSlow(const char*& pSrc_, const char* pEnd_);

  [[nodiscard]] int _parseMessage(parse_context& context_);
  void _initializeEntry(tarn_message_value_set_entry* pValue_, const field_entry& field_,
                        parse_context& parseContext_);
  uint32_t _insert(tarn_message_value_set_entry* pValue_);
  uint32_t _descend();
  void _ascend(uint32_t uplevelPreviousSibling_);

  [[nodiscard]] int _consumeValue(tarn_message_value_set_entry* pValue_, const field_entry& field_,
                                  wire_type wiretype_, parse_context& context_,
                                  const char* pValueStart_, const char* pEnd_);
  [[nodiscard]] int _consumeMessage(tarn_message_value_set_entry* pValue_,
                                    const field_entry& field_, parse_context& context_,
                                    const char* pValueStart_, size_t length_);
  [[nodiscard]] int _consumePacked(const field_entry& field_, tarn_message_value_set_entry* pValue_,
                                   parse_context& context_, const char* pValueStart_,
                                   const char* pEnd_);

  [[nodiscard]] int _insertDefaults(parse_context& context_, const omitted_ranges& ranges_,
                                    int lastFieldSeenIndex_);
  [[nodiscard]] int _insertDefault(parse_context& context_, const field_entry& omitted_);
  [[nodiscard]] static int _setDefault(tarn_message_value_set_entry* pValue_,
                                       const field_entry& field_);

  const type_table* _pRootTable;
  tarn_message_xpath_value_set _valueSet;
  tarn_message_xpath_find_set _findSet;
  uint32_t _previousSibling;  // newest entry stored at the level being walked
  uint32_t _depth;            // nested levels entered below the body
};

#endif
