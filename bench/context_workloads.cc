#include "context_workloads.h"

#include <google/protobuf/compiler/importer.h>
#include <malloc.h>
#include <time.h>
#include <valgrind/callgrind.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/alloc_counter.h"
#include "host/module_driver.h"

namespace tarn_bench {

namespace {

const char* const descriptor_file = "google/protobuf/descriptor.proto";
const char* const descriptor_source = "/usr/include/google/protobuf/descriptor.proto";
const int shared_types = 80;
const int most_roots = 1000;

double threadSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

int64_t heapInUse() { return static_cast<int64_t>(mallinfo2().uordblks); }

struct Snapshot {
  double seconds;
  int64_t heap;
  int64_t allocations;
};

Snapshot snapshot() {
  return {threadSeconds(), heapInUse(), static_cast<int64_t>(tarn_host::allocationCount())};
}

void dumpCounts(const std::string& label_, const char* part_) {
  const std::string name = label_ + "|" + part_;
  CALLGRIND_DUMP_STATS_AT(name.c_str());
}

void noLog(int32_t, const char*) {}

class QuietCollector : public google::protobuf::compiler::MultiFileErrorCollector {
 public:
  void AddError(const std::string&, int, int, const std::string&) override {}
};

// Runs create_(i) for every context, taking figures after the first one and
// after the last; everything created stays alive until then.
template <typename Create>
RunFigures measure(size_t count_, const std::string& label_, Create create_) {
  RunFigures figures;
  CALLGRIND_ZERO_STATS;
  const Snapshot start = snapshot();
  bool ok = create_(0);
  const Snapshot first = snapshot();
  dumpCounts(label_, "first");
  for (size_t i = 1; i < count_; ++i) ok = create_(i) && ok;
  const Snapshot end = snapshot();
  dumpCounts(label_, "rest");
  figures.ok = ok;
  figures.firstSeconds = first.seconds - start.seconds;
  figures.restSeconds = end.seconds - first.seconds;
  figures.firstHeap = first.heap - start.heap;
  figures.restHeap = end.heap - first.heap;
  figures.firstAllocations = first.allocations - start.allocations;
  figures.restAllocations = end.allocations - first.allocations;
  return figures;
}

RunFigures runModule(const Workload& workload_, const std::string& label_) {
  tarn_host::ModuleDriver module;
  std::string error;
  if (!module.load(tarn_host::defaultModulePath(), error)) throw std::runtime_error(error);
  module.api().module_init(nullptr, &noLog, &std::malloc);
  // The options are made before anything is measured, as a server holds its
  // configuration before it creates contexts.
  std::vector<tarn_host::ContextOptions> options(workload_.contexts.size());
  std::vector<std::string> paths;
  paths.reserve(workload_.contexts.size());
  for (size_t i = 0; i < workload_.contexts.size(); ++i) {
    const ContextSpec& c = workload_.contexts[i];
    paths.push_back(";" + c.dir);
    options[i].add("ProtoPath", paths.back().c_str()).add("ProtoFile", c.file.c_str());
    options[i].add("Type", c.type.c_str());
    options[i].get();
  }
  std::vector<tarn_message_type_context> contexts;
  contexts.reserve(workload_.contexts.size());
  const RunFigures figures = measure(workload_.contexts.size(), label_, [&](size_t i_) {
    contexts.push_back(module.api().create_context(options[i_].get()));
    return contexts.back() != nullptr;
  });
  for (tarn_message_type_context c : contexts) module.api().destroy_context(c);
  return figures;
}

RunFigures runImporter(const Workload& workload_, const std::string& label_) {
  google::protobuf::compiler::DiskSourceTree tree;
  QuietCollector errors;
  google::protobuf::compiler::Importer importer(&tree, &errors);
  // Each directory is mapped once, as the module maps a pair once.
  std::vector<std::string> mapped;
  return measure(workload_.contexts.size(), label_, [&](size_t i_) {
    const ContextSpec& c = workload_.contexts[i_];
    bool known = false;
    for (const std::string& d : mapped) known = known || d == c.dir;
    if (!known) {
      tree.MapPath("", c.dir);
      mapped.push_back(c.dir);
    }
    importer.Import(c.file);
    return importer.pool()->FindMessageTypeByName(c.type) != nullptr;
  });
}

std::string rootFile(int index_) { return "roots/r" + std::to_string(index_) + ".proto"; }
std::string overFile(int index_) { return "over/o" + std::to_string(index_) + ".proto"; }

}  // namespace

const char* sideName(Side side_) { return side_ == Side::module ? "module" : "importer"; }

RunFigures runWorkload(Side side_, const Workload& workload_, const std::string& label_) {
  return side_ == Side::module ? runModule(workload_, label_) : runImporter(workload_, label_);
}

WorkloadSchemas::WorkloadSchemas() {
  char pattern[] = "/tmp/tarn_context_bench.XXXXXX";
  if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("no temporary directory");
  _dir = pattern;
  std::ifstream in(descriptor_source);
  if (!in) throw std::runtime_error(std::string("cannot read ") + descriptor_source);
  std::ostringstream descriptor;
  descriptor << in.rdbuf();
  write(descriptor_file, descriptor.str());
  // Roots that reach descriptor.proto's types, beside fields of their own.
  for (int i = 0; i < most_roots; ++i) {
    write(rootFile(i),
          "syntax = \"proto2\";\npackage r" + std::to_string(i) + ";\nimport \"" + descriptor_file +
              "\";\nmessage Root {\n  optional google.protobuf.FileDescriptorSet "
              "files = 1;\n  optional string name = 2;\n  optional int64 id = 3;\n}\n");
  }
  // 80 shared types in a binary tree (type k holds types 2k+1 and 2k+2), and
  // roots that each hold two of them: a root reaches a few shared types,
  // together they reach them all.
  std::string shared = "syntax = \"proto2\";\npackage shared;\n";
  for (int k = 0; k < shared_types; ++k) {
    shared += "message T" + std::to_string(k) +
              " {\n  optional int64 id = 1;\n  optional string name = 2;\n"
              "  repeated double values = 3;\n";
    for (int child = 2 * k + 1, n = 4; child <= 2 * k + 2 && child < shared_types; ++child, ++n)
      shared += "  repeated T" + std::to_string(child) + " t" + std::to_string(child) + " = " +
                std::to_string(n) + ";\n";
    shared += "}\n";
  }
  write("shared/types.proto", shared);
  for (int i = 0; i < most_roots; ++i) {
    const int a = (i * 7) % shared_types, b = (i * 13 + 5) % shared_types;
    write(overFile(i), "syntax = \"proto2\";\npackage o" + std::to_string(i) +
                           ";\nimport \"shared/types.proto\";\nmessage Root {\n"
                           "  optional shared.T" +
                           std::to_string(a) + " a = 1;\n  optional shared.T" + std::to_string(b) +
                           " b = 2;\n  optional string note = 3;\n}\n");
  }
}

WorkloadSchemas::~WorkloadSchemas() {
  std::error_code ignored;
  std::filesystem::remove_all(_dir, ignored);
}

void WorkloadSchemas::write(const std::string& name_, const std::string& text_) const {
  const std::filesystem::path path = std::filesystem::path(_dir) / name_;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text_;
}

Workload WorkloadSchemas::largeRoot() const {
  return {"one context, FileDescriptorSet (25 types)",
          {{_dir, descriptor_file, "google.protobuf.FileDescriptorSet"}}};
}

Workload WorkloadSchemas::sameType(int count_) const {
  Workload w{std::to_string(count_) + " contexts of FileDescriptorSet", {}};
  for (int i = 0; i < count_; ++i)
    w.contexts.push_back({_dir, descriptor_file, "google.protobuf.FileDescriptorSet"});
  return w;
}

Workload WorkloadSchemas::distinctRoots(int count_) const {
  Workload w{std::to_string(count_) + " distinct roots reaching descriptor.proto", {}};
  for (int i = 0; i < count_ && i < most_roots; ++i)
    w.contexts.push_back({_dir, rootFile(i), "r" + std::to_string(i) + ".Root"});
  return w;
}

Workload WorkloadSchemas::rootsOverSharedTypes(int count_) const {
  Workload w{std::to_string(count_) + " distinct roots over 80 shared types", {}};
  for (int i = 0; i < count_ && i < most_roots; ++i)
    w.contexts.push_back({_dir, overFile(i), "o" + std::to_string(i) + ".Root"});
  return w;
}

}  // namespace tarn_bench
