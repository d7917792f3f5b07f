// The benchmark's host: the stand-in host's storage and path hash, with value
// sets that keep nothing beside the ones that store, so that a parse can be
// measured against the host interface's floor. It exports its own six
// tarn_message_xpath_* functions (measuring_host.cc) in place of the stand-in
// host's, in a host library built only with the benchmark; every set this
// host's functions are handed is a MeasuredSet.
//
// A set that keeps nothing answers every update with a fresh index (no find
// set consulted) and every fetch with one scratch entry. With cheap hashing
// on, the path hash functions (which see no set) answer seed + length: pure,
// as the module requires, and nearly free, so that a parse into a set that
// keeps nothing measures the module's own work.
#ifndef TARN_BENCH_MEASURING_HOST_H
#define TARN_BENCH_MEASURING_HOST_H

#include <cstdint>

#include "host/value_set.h"

namespace tarn_bench {

class MeasuredSet {
 public:
  enum class Keep : uint8_t { all, nothing };

  explicit MeasuredSet(Keep keep_ = Keep::all);
  MeasuredSet(const MeasuredSet&) = delete;
  MeasuredSet& operator=(const MeasuredSet&) = delete;

  // What the module is handed: valid as long as the set.
  tarn_message_xpath_value_set handle() { return &_view; }
  // The storage behind the set: what a set that keeps all holds.
  const tarn_host::ValueSet& stored() const { return _storage; }
  tarn::tarn_xpath_value_set::value_set_impl& impl() { return *_view._pValueSetImpl; }

  // Indexes the set handed out since it was last cleared.
  uint32_t submitted() const;
  void clear();

  // The view of the storage a module is handed, with what this host keeps
  // beside it. Public for the exported functions, which reach it from the
  // handle.
  struct View : tarn::tarn_xpath_value_set {
    Keep keep;
    uint32_t submitted;                    // indexes handed out while keeping nothing
    tarn_message_value_set_entry scratch;  // the entry every such index names
  };

 private:
  tarn_host::ValueSet _storage;
  View _view;
};

// Switches cheap hashing; process-wide, so only while no other thread hashes.
void cheapHashing(bool on_);

}  // namespace tarn_bench

#endif
