/* The room a delta-publish merge needs in the host's output segment.
 *
 * The module writes the merged message straight behind the segment's content
 * and checks no capacity, so a host reserves this many bytes before calling
 * tarn_message_type_delta_publish_merge with the same two value sets. The
 * figure comes from the module's own merge walk, run with a sink that counts
 * instead of writing: it is the furthest byte the merge can touch, including a
 * length prefix reserved wider than needed before a nested body moves back.
 *
 * Why not "update length + stored length": an update that carries a repeated
 * nested message merges every occurrence against the one stored entry its path
 * finds, so that stored occurrence's fields can be written once per update
 * occurrence, and the sum is then exceeded many times over.
 *
 * Either set may be null or empty. The call reads the sets only, allocates
 * nothing, takes no lock and throws nothing; it is valid C and C++. Link the
 * static library tarn_protobuf_merge_room, which needs no C++ runtime.
 */
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_MERGE_ROOM_H
#define TARN_PROTOBUF_TARN_PROTOBUF_MERGE_ROOM_H

#include <stdint.h>

#include "message_type/tarn_message_type.h"

#ifdef __cplusplus
extern "C" {
#endif

uint64_t tarn_protobuf_merge_room(tarn_message_xpath_value_set update_set,
                                  tarn_message_xpath_value_set stored_set);

#ifdef __cplusplus
}
#endif

#endif
