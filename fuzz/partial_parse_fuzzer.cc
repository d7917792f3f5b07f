// Partial parse against the full parse of the same body. The first input byte
// picks which paths the find set asks for (among the paths the full parse
// stored); the rest is the body. The partial parse must return the same status
// and keep exactly the entries the host's find-set rule selects from the full
// parse (a path asked for, or a parent kept), with the same bytes and values.
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz_support.h"
#include "tarn/tarn_xpath_hash_set.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t pick = data[0];
  ++data;
  --size;
  std::unique_ptr<char[]> body(new char[size]);
  if (size) std::memcpy(body.get(), data, size);
  tarn_message_type_context context = tarn_fuzz::richContext();

  tarn_host::ValueSet full;
  const int fullStatus = tarn_fuzz::parse(context, body.get(), size, full);

  // Every (pick % 5 + 1)-th distinct path of the full parse, starting at pick / 5 % 3.
  tarn::tarn_xpath_hash_set find;
  const uint32_t step = pick % 5 + 1;
  for (uint32_t i = pick / 5 % 3; i < full.size(); i += step) find.insert(full[i].hash);
  if (pick & 0x80) find.insert(0x9E3779B9u);  // a path that no field has, most likely

  tarn_host::ValueSet partial;
  const int partialStatus = tarn_fuzz::parse(context, body.get(), size, partial, &find);
  tarn_fuzz::check(fullStatus == partialStatus, "full and partial parse disagree");

  std::vector<bool> kept(full.size(), false);
  uint32_t next = 0;
  for (uint32_t i = 0; i < full.size(); ++i) {
    const tarn_message_value_set_entry& e = full[i];
    kept[i] =
        find.contains(e.hash) || (e.parent != tarn_message_value_invalid_index && kept[e.parent]);
    if (!kept[i]) continue;
    tarn_fuzz::check(next < partial.size(), "partial parse kept fewer entries");
    const tarn_message_value_set_entry& p = partial[next++];
    tarn_fuzz::check(p.hash == e.hash && p.raw_bytes == e.raw_bytes &&
                         p.raw_bytes_length == e.raw_bytes_length && p.string_rep == e.string_rep &&
                         p.string_rep_length == e.string_rep_length &&
                         p.value_mask == e.value_mask && p.type_hint == e.type_hint &&
                         std::memcmp(&p.l, &e.l, sizeof e.l) == 0,
                     "partial entry differs from the full parse", std::to_string(i));
  }
  tarn_fuzz::check(next == partial.size(), "partial parse kept more entries");
  return 0;
}
