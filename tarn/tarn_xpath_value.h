// The host's stored form of one value: the element of a value set's value
// array. It must stay field-for-field identical to tarn_message_value_set_entry,
// because the parser writes entries through the SDK record and the merge reads
// them back through this class.
#ifndef TARN_TARN_XPATH_VALUE_H
#define TARN_TARN_XPATH_VALUE_H

#include <cstddef>
#include <cstdint>

#include "message_type/tarn_message_type.h"
#include "message_type/tarn_value_set_storage.h"

namespace tarn {

typedef uint32_t tarn_xpath_hash_type;

class tarn_xpath_value {
 public:
  static const uint32_t invalid_index = 0xFFFFFFFFu;
  static const uint32_t array_parent = 0xFFFFFFFEu;

  uint32_t _hash;
  uint16_t _valueMask;
  uint8_t _valueFlags;
  uint8_t _typeHint;
  union {
    double _dval;
    int64_t _lval;
  };
  const char* _pRawBytes;
  const char* _pTagBytes;
  const char* _pStringRep;
  uint32_t _rawBytesLength;
  uint32_t _tagLength;
  uint32_t _stringRepLength;
  uint32_t _array;
  uint32_t _last;
  uint32_t _arrayCount;
  uint32_t _parent;
  uint32_t _firstChild;
  uint32_t _nextSibling;

  const tarn_message_value_set_entry* entry() const {
    return reinterpret_cast<const tarn_message_value_set_entry*>(this);
  }
};

#define TARN_SAME_FIELD(a, b)                                                               \
  static_assert(offsetof(tarn_xpath_value, a) == offsetof(tarn_message_value_set_entry, b), \
                "tarn_xpath_value." #a " must sit where the SDK entry keeps " #b)
TARN_SAME_FIELD(_hash, hash);
TARN_SAME_FIELD(_valueMask, value_mask);
TARN_SAME_FIELD(_valueFlags, value_flags);
TARN_SAME_FIELD(_typeHint, type_hint);
TARN_SAME_FIELD(_lval, l);
TARN_SAME_FIELD(_dval, d);
TARN_SAME_FIELD(_pRawBytes, raw_bytes);
TARN_SAME_FIELD(_pTagBytes, tag_bytes);
TARN_SAME_FIELD(_pStringRep, string_rep);
TARN_SAME_FIELD(_rawBytesLength, raw_bytes_length);
TARN_SAME_FIELD(_tagLength, tag_length);
TARN_SAME_FIELD(_stringRepLength, string_rep_length);
TARN_SAME_FIELD(_array, array);
TARN_SAME_FIELD(_last, last);
TARN_SAME_FIELD(_arrayCount, array_count);
TARN_SAME_FIELD(_parent, parent);
TARN_SAME_FIELD(_firstChild, first_child);
TARN_SAME_FIELD(_nextSibling, next_sibling);
#undef TARN_SAME_FIELD

static_assert(sizeof(tarn_xpath_value) == sizeof(tarn_message_value_set_entry),
              "tarn_xpath_value and the SDK entry must have one size");

}  // namespace tarn

#endif
