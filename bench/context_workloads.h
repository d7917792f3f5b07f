// The context-creation workloads and the two sides that run them: the module,
// loaded as a server loads it, and libprotobuf's Importer alone doing the same
// imports and type look-ups (what any schema-driven reader pays at least).
// Each run starts from a freshly loaded module or a fresh Importer: the caller
// runs it in a child process of its own.
#ifndef TARN_BENCH_CONTEXT_WORKLOADS_H
#define TARN_BENCH_CONTEXT_WORKLOADS_H

#include <cstdint>
#include <string>
#include <vector>

namespace tarn_bench {

// One context to create: a search path (a disk directory mapped at the root
// of the virtual tree), a file in it and the root type.
struct ContextSpec {
  std::string dir;
  std::string file;
  std::string type;
};

struct Workload {
  std::string name;
  std::vector<ContextSpec> contexts;
};

// The schemas the workloads name, written into a temporary directory that
// lives as long as this object.
class WorkloadSchemas {
 public:
  WorkloadSchemas();
  ~WorkloadSchemas();
  WorkloadSchemas(const WorkloadSchemas&) = delete;
  WorkloadSchemas& operator=(const WorkloadSchemas&) = delete;

  // One context of FileDescriptorSet (descriptor.proto: 25 types reached).
  Workload largeRoot() const;
  // count contexts of FileDescriptorSet.
  Workload sameType(int count_) const;
  // count roots, each in a file of its own, all reaching descriptor.proto's types.
  Workload distinctRoots(int count_) const;
  // count roots over 80 shared types: each reaches a few of them.
  Workload rootsOverSharedTypes(int count_) const;

 private:
  void write(const std::string& name_, const std::string& text_) const;
  std::string _dir;
};

enum class Side { module, importer };
const char* sideName(Side side_);

// What one run measured. The first context apart, so that the cost of each
// further one shows on its own.
struct RunFigures {
  bool ok = false;
  double firstSeconds = 0, restSeconds = 0;  // thread CPU time
  int64_t firstHeap = 0, restHeap = 0;       // bytes in use, by mallinfo2
  int64_t firstAllocations = 0, restAllocations = 0;
};

// Creates every context of workload_ on side_ and keeps them all until the
// figures are taken. Under callgrind, the counts are dumped after the first
// context ("first") and after the rest ("rest"), named after the label.
RunFigures runWorkload(Side side_, const Workload& workload_, const std::string& label_);

}  // namespace tarn_bench

#endif
