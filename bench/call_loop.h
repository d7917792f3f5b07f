// The floor the host interface sets: the host calls one parse makes, with no
// wire work. For every entry the module stored, in the same order, it hashes
// the field's name from its level's seed (adding the separator for a message,
// whose members continue from it), submits a record and links it to its
// previous sibling or, as a first child, to its parent, each link through one
// fetch of the stored entry. It is built from the records the module itself
// submitted for the same body, so it makes exactly the module's calls. Runs
// of entries of one field (packed elements, repeated scalars) are kept as one
// step with a count, so the loop reads little memory of its own.
#ifndef TARN_BENCH_CALL_LOOP_H
#define TARN_BENCH_CALL_LOOP_H

#include <cstdint>
#include <vector>

#include "host/value_set.h"

namespace tarn_bench {

class CallLoop {
 public:
  explicit CallLoop(const std::vector<tarn_message_value_set_entry>& submitted_);
  // One parse's calls into `set_`; returns the last index the host gave.
  uint32_t run(tarn_host::ValueSet& set_);
  size_t entries() const { return _seeds.size(); }

 private:
  struct Step {
    const char* name;
    uint32_t length;
    uint32_t parent;
    uint32_t link;   // previous sibling, or the parent for a first child
    uint32_t count;  // entries in the run; all but the first link to the one before
    bool message;
    bool sibling;
  };
  std::vector<Step> _steps;
  std::vector<uint32_t> _first;  // per step: the index of its first entry
  std::vector<uint32_t> _seeds;  // per entry: the seed of a message's members
};

}  // namespace tarn_bench

#endif
