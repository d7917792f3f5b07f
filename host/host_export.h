// The functions a server provides to the modules it loads. They must be in the
// process's global symbol scope before a module is opened.
#ifndef TARN_HOST_HOST_EXPORT_H
#define TARN_HOST_HOST_EXPORT_H

#include "message_type/tarn_message_type.h"

#define TARN_HOST_EXPORT extern "C" __attribute__((visibility("default")))

#endif
