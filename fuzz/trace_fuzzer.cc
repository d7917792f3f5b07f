// Trace of an arbitrary body into an output buffer of fuzzed capacity that
// already holds a fuzzed amount of text. The buffer is a heap block of the
// capacity plus a guard, all filled with a sentinel: the trace may change only
// the bytes between the old and the new length, never the text before, the
// free room after, or the guard. The same body traced with ample room must
// succeed, and a bounded trace must be a prefix of it (the whole of it when
// the bounded trace succeeds).
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

const char sentinel = static_cast<char>(0xA5);
const size_t guard = 64;

// Compared a block at a time: a byte loop under the sanitizers costs more than
// the trace itself.
bool untouched(const char* p_, size_t n_) {
  static const std::vector<char> block(4096, sentinel);
  for (size_t done = 0; done < n_; done += block.size())
    if (std::memcmp(p_ + done, block.data(), std::min(block.size(), n_ - done)) != 0) return false;
  return true;
}

struct Traced {
  int status;
  std::string text;  // the bytes the trace appended
};

Traced trace(const std::vector<char>& body_, size_t capacity_, size_t used_) {
  std::vector<char> buffer(capacity_ + guard, sentinel);
  tarn_trace_output_buffer output = {buffer.data(), capacity_, used_};
  const int status =
      tarn_fuzz::driver().trace(tarn_fuzz::richContext(), body_.data(), body_.size(), output);

  tarn_fuzz::check(status == TARN_SUCCESS || status == TARN_FAILURE, "trace status",
                   std::to_string(status));
  tarn_fuzz::check(output.output == buffer.data() && output.capacity == capacity_,
                   "trace changed the buffer record");
  tarn_fuzz::check(output.length >= used_ && output.length <= capacity_,
                   "trace length outside [old length, capacity]",
                   std::to_string(output.length) + " of " + std::to_string(capacity_));
  tarn_fuzz::check(untouched(buffer.data(), used_), "trace changed text before its start");
  tarn_fuzz::check(untouched(buffer.data() + output.length, buffer.size() - output.length),
                   "trace wrote past its length");
  return {status, std::string(buffer.data() + used_, output.length - used_)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const size_t capacity = input.ConsumeIntegralInRange<size_t>(0, 1024);
  const size_t used = input.ConsumeIntegralInRange<size_t>(0, capacity);
  const std::vector<char> body = input.ConsumeRemainingBytes<char>();

  // Every input byte yields at most one key and one number, and a number
  // demands 64 bytes of room: this much always suffices.
  const Traced ample = trace(body, 128 + 96 * body.size(), 0);
  tarn_fuzz::check(ample.status == TARN_SUCCESS, "trace with ample room failed");
  tarn_fuzz::check(ample.text.compare(0, 9, "protobuf(") == 0 && ample.text.back() == ')',
                   "trace text not framed by protobuf( )");

  const Traced bounded = trace(body, capacity, used);
  tarn_fuzz::check(ample.text.compare(0, bounded.text.size(), bounded.text) == 0,
                   "bounded trace is not a prefix of the full trace");
  if (bounded.status == TARN_SUCCESS)
    tarn_fuzz::check(bounded.text == ample.text, "bounded trace succeeded with other text");
  else
    // Every write demands at most 64 bytes beyond the text written so far.
    tarn_fuzz::check(
        bounded.text.size() < ample.text.size() && used + ample.text.size() + 64 > capacity,
        "bounded trace failed although the full text fits with room to spare");
  return 0;
}
