// Full parse of an arbitrary body against the rich test schema. The body sits
// in a heap block of its exact size, so any read past it is caught; every
// stored entry must point inside the body and form a well-linked tree.
#include <cstring>
#include <memory>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::unique_ptr<char[]> body(new char[size]);
  if (size) std::memcpy(body.get(), data, size);

  tarn_host::ValueSet set;
  tarn_fuzz::parse(tarn_fuzz::richContext(), body.get(), size, set);
  tarn_fuzz::checkEntries(set, body.get(), size);
  return 0;
}
