// Delta merge of two fuzzed bodies. The input is split in two; two bodies made
// from the parts are parsed with one schema (Rich, or Sample, which declares no
// defaults, so an empty body leaves an empty value set) and, when both parse,
// merged into an output segment that already holds a few bytes. The segment is
// a heap block of exactly the room the host sets aside for a merge, so any
// write past it is caught; the merge must return the new byte count, keep the
// bytes before its start and clear the update's value set.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz_support.h"
#include "host/module_driver.h"

namespace {

const char sentinel = static_cast<char>(0xC3);

std::unique_ptr<char[]> copyOf(const std::vector<char>& bytes_) {
  std::unique_ptr<char[]> out(new char[bytes_.size()]);
  if (!bytes_.empty()) std::memcpy(out.get(), bytes_.data(), bytes_.size());
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint8_t flags = input.ConsumeIntegral<uint8_t>();
  const uint32_t used = flags >> 4;
  tarn_message_type_context context =
      (flags & 1) ? tarn_fuzz::sampleContext() : tarn_fuzz::richContext();
  const size_t split = input.ConsumeIntegralInRange<size_t>(0, input.remaining_bytes());
  const std::vector<char> all = input.ConsumeRemainingBytes<char>();
  const size_t cut = std::min(split, all.size());
  const std::vector<char> head(all.begin(), all.begin() + cut), tail(all.begin() + cut, all.end());
  // Random halves rarely share a nested path, so most modes let the two sides
  // share bytes: the update a prefix of the stored body, the stored body a
  // suffix of the update, or the body merged over itself.
  std::vector<char> updateBytes, sourceBytes;
  switch ((flags >> 1) & 3) {
    case 0:
      updateBytes = head, sourceBytes = tail;
      break;
    case 1:
      updateBytes = head, sourceBytes = all;
      break;
    case 2:
      updateBytes = all, sourceBytes = tail;
      break;
    default:
      updateBytes = all, sourceBytes = all;
      break;
  }
  std::unique_ptr<char[]> update = copyOf(updateBytes);
  std::unique_ptr<char[]> source = copyOf(sourceBytes);

  tarn_host::ValueSet updateSet, sourceSet;
  if (tarn_fuzz::parse(context, update.get(), updateBytes.size(), updateSet) != TARN_SUCCESS ||
      tarn_fuzz::parse(context, source.get(), sourceBytes.size(), sourceSet) != TARN_SUCCESS)
    return 0;

  const size_t room = tarn_host::mergeRoom(updateSet.handle(), sourceSet.handle());
  std::vector<char> segment(used + room, sentinel);

  tarn_message_segment output = {};
  output.data = segment.data();
  output.byte_count = used;

  const int count = tarn_fuzz::driver().merge(updateSet.handle(), sourceSet.handle(), output);
  tarn_fuzz::check(count >= 0 && static_cast<uint32_t>(count) == output.byte_count,
                   "merge result is not the segment's byte count");
  tarn_fuzz::check(output.byte_count >= used && output.byte_count - used <= room,
                   "merge wrote more than the room set aside",
                   std::to_string(output.byte_count - used) + " > " + std::to_string(room));
  for (uint32_t i = 0; i < used; ++i)
    tarn_fuzz::check(segment[i] == sentinel, "merge wrote before its start");
  tarn_fuzz::check(updateSet.size() == 0, "merge left the update's value set filled");
  return 0;
}
