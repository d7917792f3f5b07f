// Path hashes that collide on purpose, for the tests that need two fields'
// paths to continue the same seed: while a CheapHashing lives, a name hashes
// to seed + its length and a separator adds one. The test binary exports its
// own hash functions, which the module binds to ahead of the stand-in host's
// (as with submission_log.h); outside a CheapHashing they hand every call on
// to the host's.
#ifndef TARN_TESTS_CHEAP_HASHING_H
#define TARN_TESTS_CHEAP_HASHING_H

namespace tarn_test {

class CheapHashing {
 public:
  // Process-wide: only while no other thread hashes.
  CheapHashing();
  ~CheapHashing();
  CheapHashing(const CheapHashing&) = delete;
  CheapHashing& operator=(const CheapHashing&) = delete;
};

}  // namespace tarn_test

#endif
