// The module against its peers, shape by shape, in one run of interleaved
// rounds (see runner.h). The module is loaded through the stand-in host
// exactly as a server loads it; every peer reads the same bytes. With
// TARN_BASELINE_MODULE naming another build of the module, that build is
// loaded beside this one and timed in the same rounds.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "contenders.h"
#include "host/alloc_counter.h"
#include "host/dynamic_schema.h"
#include "host/logger.h"
#include "report.h"

namespace tarn_bench {
namespace {

const char* const proto_file = "shapes.proto";

const char* const usage =
    "usage: tarn_bench [--rounds=N] [--sample-ms=X] [--filter=TEXT] [--callgrind-iterations=N]\n"
    "  --rounds               rounds; each runs every contender once (default 15)\n"
    "  --sample-ms            time of one contender's sample in a round (default 4)\n"
    "  --filter               only contenders whose shape.op.id contains TEXT\n"
    "  --callgrind-iterations operations per contender under callgrind (default 20)\n"
    "environment: TARN_BASELINE_MODULE=path of another build to time beside this one\n";

bool option(const char* arg_, const char* name_, std::string& value_) {
  const size_t n = std::strlen(name_);
  if (std::strncmp(arg_, name_, n) != 0 || arg_[n] != '=') return false;
  value_ = arg_ + n + 1;
  return true;
}

bool parseOptions(int argc_, char** argv_, Runner::Options& options_) {
  for (int i = 1; i < argc_; ++i) {
    std::string v;
    if (option(argv_[i], "--rounds", v))
      options_.rounds = std::max(1, std::atoi(v.c_str()));
    else if (option(argv_[i], "--sample-ms", v))
      options_.sampleMs = std::max(0.01, std::atof(v.c_str()));
    else if (option(argv_[i], "--filter", v))
      options_.filter = v;
    else if (option(argv_[i], "--callgrind-iterations", v))
      options_.callgrindIterations = std::max(1, std::atoi(v.c_str()));
    else
      return false;
  }
  return true;
}

// One side of the comparison: a context for the shape's type in module_.
std::unique_ptr<ModuleSide> side(const char* name_, const tarn_host::ModuleDriver& module_,
                                 const Shape& shape_) {
  return std::make_unique<ModuleSide>(
      name_, module_, module_.createContext({TARN_BENCH_PROTO_DIR}, proto_file, shape_.typeName));
}

}  // namespace
}  // namespace tarn_bench

int main(int argc, char** argv) {
  using namespace tarn_bench;
  Runner::Options options;
  if (!parseOptions(argc, argv, options)) {
    std::fputs(usage, stderr);
    return 2;
  }
  tarn_host::ModuleDriver host;
  std::string error;
  if (!host.open(tarn_host::defaultModulePath(), &tarn_host::Logger::log, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  tarn_host::ModuleDriver baselineHost;
  const char* baselinePath = std::getenv("TARN_BASELINE_MODULE");
  const bool withBaseline = baselinePath != nullptr && *baselinePath != '\0';
  // A private copy: even the module's own file loads as a second instance.
  if (withBaseline && !baselineHost.open(baselinePath, &tarn_host::Logger::log, error, true)) {
    std::fprintf(stderr, "baseline: %s\n", error.c_str());
    return 1;
  }

  const tarn_host::DynamicSchema schema({TARN_BENCH_PROTO_DIR}, proto_file);
  if (schema.file() == nullptr) {
    std::fprintf(stderr, "cannot import %s: %s\n", proto_file, schema.error().c_str());
    return 1;
  }
  std::vector<Shape> shapes = makeShapes();
  std::vector<std::unique_ptr<ShapeBench>> benches;
  std::vector<Comparison> comparisons;
  std::map<std::string, std::string> notes;
  Runner runner(options);
  uint64_t moduleAllocations = 0;
  for (Shape& s : shapes) {
    auto b = std::make_unique<ShapeBench>();
    b->pShape = &s;
    const uint64_t before = tarn_host::allocationCount();
    b->current = side("module", host, s);
    moduleAllocations += tarn_host::allocationCount() - before;
    if (withBaseline) b->baseline = side("baseline", baselineHost, s);
    b->pType = schema.type(s.typeName);
    if (b->current->context == nullptr || b->pType == nullptr ||
        (withBaseline && b->baseline->context == nullptr)) {
      std::fprintf(stderr, "no context for %s\n", s.typeName.c_str());
      return 1;
    }
    b->dynStored = schema.newMessage(b->pType);
    b->dynUpdate = schema.newMessage(b->pType);
    if (!prepare(*b, error)) {
      std::fprintf(stderr, "refusing to run: %s\n", error.c_str());
      return 1;
    }
    addContenders(runner, *b);
    for (Comparison& c : tarn_bench::comparisons(*b)) comparisons.push_back(std::move(c));
    notes[s.name] = b->note;
    benches.push_back(std::move(b));
  }

  if (runner.underCallgrind()) {
    runner.runUnderCallgrind();
    return 0;
  }
  // Context creation allocates inside the dlopen'ed module and its importer:
  // if the counter saw none, it could not vouch for the zeros in the table.
  if (moduleAllocations == 0) {
    std::fprintf(stderr, "the allocation counter does not see the module's allocations\n");
    return 1;
  }
  std::printf(
      "allocation counter check: creating %zu contexts made %llu heap allocations in the module "
      "and its schema importer\n",
      shapes.size(), static_cast<unsigned long long>(moduleAllocations));
  if (withBaseline) std::printf("baseline module: %s\n", baselinePath);
  std::printf("%zu contenders, %d rounds of about %.1f ms per contender\n",
              runner.contenders().size(), options.rounds, options.sampleMs);
  std::fflush(stdout);
  runner.run();
  printReport(runner, comparisons, notes);
  return 0;
}
