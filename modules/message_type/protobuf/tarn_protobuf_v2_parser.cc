// Parsing is not built yet: refuse every body rather than pretend.
#include "tarn_protobuf_message_type.h"

int tarn_protobuf_message_type::parseMessage(const char*, size_t, tarn_message_xpath_value_set,
                                             tarn_message_xpath_find_set) const {
  return TARN_FAILURE;
}
