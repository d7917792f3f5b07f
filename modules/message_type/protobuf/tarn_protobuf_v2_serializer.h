// The module's wire writer. It never encodes a value from the schema: it copies
// byte ranges that already hold encoded fields and writes the length prefixes of
// the nested messages it assembles. Two users: serialization from a host value
// list (serializeDelta) and the delta-publish merge of two parsed messages
// (serializeMerge). The caller sizes the output region; the writer keeps no
// capacity and checks none, so every bound on what it writes is kept by the
// algorithms themselves: serializeRoom for a value list, the merge room
// (merge_walk.h) for a merge.
//
// Its varints are the wire header's writers, which take the position they
// write through as an explicit reference, so that a length slot reserved
// earlier is filled without moving _pDst.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_V2_SERIALIZER_H
#define TARN_PROTOBUF_TARN_PROTOBUF_V2_SERIALIZER_H

#include <cstddef>
#include <cstdint>

#include "message_type/tarn_message_type.h"
#include "tarn/tarn_xpath_value_set.h"
#include "util/base/hybrid_worklist.h"
#include "wire_format.h"

class tarn_protobuf_v2_serializer {
 public:
  // One open nested message of serializeDelta: where its four-byte length
  // slot starts (just after the copied tag).
  struct tagstack_entry {
    char* tag_start;
  };
  typedef tarn::hybrid_worklist<tagstack_entry, 64> tagstack;

  // Every nested length written by serializeDelta takes exactly this many
  // bytes, so the longest body that fits is 2^28 - 1 bytes.
  static const unsigned max_submessage_length_varint = 4;
  // The only body type a value list is serialized for.
  static const uint32_t serializable_body_type = 5;

  explicit tarn_protobuf_v2_serializer(char* pDst_) : _pDst(pDst_) {}

  // Writes the values of the list at _pDst, nesting submessages by depth.
  // Returns the bytes written, or 0 when the list cannot be written (a nested
  // body of 2^28 bytes or more, or a document value without a readable tag).
  // Throws std::bad_alloc when a tag stack deeper than 64 finds no memory.
  size_t serializeDelta(const tarn_message_value_list& values_);

  // The room a host sets aside for serializing message_: its content so far
  // and everything serializeDelta can write, at most INT_MAX.
  static int serializeRoom(const tarn_output_message_data& message_);

  // Writes the update message merged over the stored one at _pDst and returns
  // the bytes written. Either handle may be null or name an empty set.
  size_t serializeMerge(tarn_message_xpath_value_set updateSet_,
                        tarn_message_xpath_value_set previousSet_);

 private:
  char* _pDst;
};

#endif
