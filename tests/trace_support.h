// Shared by the trace tests: contexts for the test schemas, and a trace call
// that watches the module's hands. The body is copied into a heap block of
// exactly its size (so a sanitizer sees any read past it) and the output
// buffer is filled with a sentinel, so that every byte the trace must not
// touch can be checked afterwards.
#ifndef TARN_TESTS_TRACE_SUPPORT_H
#define TARN_TESTS_TRACE_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "module_fixture.h"

namespace trace_test {

const char sentinel = '\xA5';

struct Traced {
  int status;
  std::string text;  // the buffer's first `length` bytes, any prefix included
};

// One context per (file, type), created on first use and destroyed when the
// test program ends.
tarn_message_type_context context(const std::string& file, const std::string& type);

inline tarn_message_type_context sample() { return context("sample.proto", "tarn.test.Sample"); }
inline tarn_message_type_context rich() { return context("rich.proto", "tarn.test.Rich"); }
inline tarn_message_type_context tiny() { return context("trace.proto", "tarn.trace.Tiny"); }
inline tarn_message_type_context node() { return context("trace.proto", "tarn.trace.Node"); }
inline tarn_message_type_context packed() { return context("trace.proto", "tarn.trace.Packed"); }

// Traces `body` into a buffer of `capacity` bytes that already holds `prefix`.
inline Traced trace(tarn_message_type_context ctx, const std::string& body,
                    size_t capacity = 1 << 16, const std::string& prefix = "") {
  std::unique_ptr<char[]> data(new char[body.size()]);
  if (!body.empty()) std::memcpy(data.get(), body.data(), body.size());
  std::unique_ptr<char[]> out(new char[capacity]);
  std::memset(out.get(), sentinel, capacity);
  if (!prefix.empty()) std::memcpy(out.get(), prefix.data(), prefix.size());

  tarn_trace_buffer in = {data.get(), body.size()};
  tarn_trace_output_buffer buffer = {out.get(), capacity, prefix.size()};
  Traced result;
  result.status = tarn_test::api().trace_message(ctx, &in, &buffer);
  EXPECT_TRUE(result.status == 0 || result.status == 255) << result.status;
  EXPECT_EQ(capacity, buffer.capacity);
  EXPECT_EQ(out.get(), buffer.output);
  if (buffer.length > capacity) {
    ADD_FAILURE() << "length " << buffer.length << " beyond capacity " << capacity;
    buffer.length = capacity;
  }
  EXPECT_GE(buffer.length, prefix.size());
  result.text.assign(out.get(), buffer.length);
  EXPECT_EQ(prefix, result.text.substr(0, prefix.size()));
  for (size_t i = buffer.length; i < capacity; ++i) {
    if (out[i] != sentinel) {
      ADD_FAILURE() << "byte " << i << " written beyond length " << buffer.length;
      break;
    }
  }
  return result;
}

}  // namespace trace_test

#endif
