// The floor the host interface sets: the host calls one parse makes, with no
// wire work and no bookkeeping of its own. Per entry the module stores, one
// path hash, one update and (for every entry but the first) one fetch of the
// entry stored before it to link the new one; and one separator per message.
// The counts come from the records the module itself submitted for the same
// body. The links all go to the previous entry, which is the module's case
// for every entry but the first of a nested level.
#ifndef TARN_BENCH_CALL_LOOP_H
#define TARN_BENCH_CALL_LOOP_H

#include <cstdint>
#include <vector>

#include "measuring_host.h"

namespace tarn_bench {

class CallLoop {
 public:
  // From the entries a full parse stored (every one it submitted).
  explicit CallLoop(const std::vector<tarn_message_value_set_entry>& submitted_);
  // One parse's calls into `set_`; returns the last index the host gave.
  uint32_t run(MeasuredSet& set_) const;
  uint32_t entries() const { return _entries; }

 private:
  uint32_t _entries = 0;
  uint32_t _messages = 0;  // entries that have members
  const char* _pName = "";
  uint32_t _nameLength = 0;
};

}  // namespace tarn_bench

#endif
