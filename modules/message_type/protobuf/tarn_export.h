// Marks the module's entry points. Everything else is hidden by the build
// (-fvisibility=hidden) and by the linker version script.
#ifndef TARN_PROTOBUF_TARN_EXPORT_H
#define TARN_PROTOBUF_TARN_EXPORT_H

#define TARN_EXPORT extern "C" __attribute__((visibility("default")))

#endif
