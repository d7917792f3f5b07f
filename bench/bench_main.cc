// Throughput and heap allocations of the module against libprotobuf and
// protozero, shape by shape, in one run. The module is loaded through the
// stand-in host exactly as a server loads it; every peer reads the same bytes.
#include <benchmark/benchmark.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "alloc_counter.h"
#include "module_host.h"
#include "peers.h"
#include "report.h"
#include "shapes.h"

namespace tarn_bench {
namespace {

using google::protobuf::Message;

const char* const proto_file = "shapes.proto";

// Everything one shape's benchmarks use, built once so that no benchmark pays
// for set-up and the module's value sets are already grown when measured.
struct Fixture {
  Shape* pShape = nullptr;
  const ModuleHost* pHost = nullptr;
  tarn_message_type_context context = nullptr;
  const google::protobuf::Descriptor* pType = nullptr;
  std::unique_ptr<Message> dynStored;
  std::unique_ptr<Message> dynUpdate;
  std::unique_ptr<WireWalker> walker;
  tarn_host::ValueSet hostSet;
  tarn_host::ValueSet discardSet{tarn_host::default_base_hash, tarn_host::ValueSet::Mode::discard};
  tarn_host::ValueSet updateSet;
  tarn_host::ValueSet listSource;  // parsed once; the value list points into it
  ValueList values;
  bool haveValues = false;
  std::vector<char> out;
  std::string text;
  google::protobuf::TextFormat::Printer printer;
};

// Runs `op_` once outside the measurement (it reports what is wrong, or ""),
// then measures it and counts the heap allocations of the measured loop.
void measure(benchmark::State& state_, const std::function<std::string()>& check_,
             const std::function<void()>& op_) {
  const std::string problem = check_();
  if (!problem.empty()) {
    state_.SkipWithError(problem.c_str());
    for (auto _ : state_) {
    }
    return;
  }
  const uint64_t before = allocationCount();
  for (auto _ : state_) op_();
  const uint64_t allocations = allocationCount() - before;
  if (state_.iterations() > 0)
    state_.counters["allocs"] =
        static_cast<double>(allocations) / static_cast<double>(state_.iterations());
}

std::string status(const char* what_, int rc_) {
  return rc_ == 0 ? std::string() : std::string(what_) + " returned " + std::to_string(rc_);
}

// The module's parse into `set_`, cleared first as a server clears a set it reuses.
int moduleParse(Fixture& f_, const std::string& body_, tarn_host::ValueSet& set_) {
  set_.clear();
  return f_.pHost->parse(f_.context, body_, set_);
}

int moduleTrace(Fixture& f_) {
  tarn_trace_buffer in = {f_.pShape->body.data(), f_.pShape->body.size()};
  tarn_trace_output_buffer out = {f_.out.data(), f_.out.size(), 0};
  return f_.pHost->api().trace_message(f_.context, &in, &out);
}

// Both parses and the merge, as a server does a delta publish. Returns the
// merged length.
int moduleMerge(Fixture& f_) {
  if (moduleParse(f_, f_.pShape->body, f_.hostSet) != 0) return -1;
  if (moduleParse(f_, f_.pShape->update, f_.updateSet) != 0) return -1;
  tarn_delta_message_data delta = {};
  delta.output.data = f_.out.data();
  delta.update_value_set = f_.updateSet.handle();
  delta.source_value_set = f_.hostSet.handle();
  return f_.pHost->api().delta_publish_merge(&delta);
}

// Size, then serialize, from the value list. Returns the bytes written.
int moduleSerialize(Fixture& f_) {
  tarn_output_message_data data = {};
  data.message.data = f_.out.data();
  data.value_list = f_.values.list();
  data.body_type = 5;
  const int size = f_.pHost->api().compute_serialize_size(&data);
  if (size <= 0 || static_cast<size_t>(size) > f_.out.size()) return -1;
  if (f_.pHost->api().serialize_message(&data) != 0) return -1;
  return static_cast<int>(data.message.byte_count);
}

// libprotobuf must read what the module wrote.
std::string readable(Fixture& f_, int length_, const char* what_) {
  if (length_ <= 0) return std::string(what_) + " produced no bytes";
  std::unique_ptr<Message> m(f_.dynStored->New());
  if (!m->ParseFromArray(f_.out.data(), length_))
    return std::string(what_) + " output does not parse";
  return "";
}

class Registry {
 public:
  std::vector<Row> rows;
  std::vector<Target> targets;

  void add(Fixture& f_, const char* op_, const char* contender_, const char* id_, double bytes_,
           bool module_, std::function<std::string()> check_, std::function<void()> op) {
    const std::string key = f_.pShape->name + "." + op_ + "." + id_;
    rows.push_back(Row{f_.pShape->name, op_, contender_, key, bytes_, module_});
    benchmark::RegisterBenchmark(key.c_str(), [check_, op](benchmark::State& s) {
      measure(s, check_, op);
    })->Unit(benchmark::kNanosecond);
  }
  void target(Fixture& f_, const char* op_, const char* id_, const char* peerOp_,
              const char* peerId_, const char* peerLabel_, double minRatio_) {
    const std::string prefix = f_.pShape->name + ".";
    targets.push_back(
        Target{prefix + op_ + "." + id_, prefix + peerOp_ + "." + peerId_, peerLabel_, minRatio_});
  }
};

const std::string ok;

void registerShape(Registry& r_, Fixture& f_) {
  Fixture* f = &f_;
  const std::string& body = f->pShape->body;
  const std::string& update = f->pShape->update;
  const double size = static_cast<double>(body.size());

  r_.add(
      f_, "parse", "module, stand-in host", "host", size, true,
      [f] { return status("parse", moduleParse(*f, f->pShape->body, f->hostSet)); },
      [f] { benchmark::DoNotOptimize(moduleParse(*f, f->pShape->body, f->hostSet)); });
  r_.add(
      f_, "parse", "module, discarding host", "discard", size, true,
      [f] { return status("parse", moduleParse(*f, f->pShape->body, f->discardSet)); },
      [f] { benchmark::DoNotOptimize(moduleParse(*f, f->pShape->body, f->discardSet)); });
  r_.add(
      f_, "parse", "DynamicMessage", "dynamic", size, false,
      [f] { return f->dynStored->ParseFromString(f->pShape->body) ? ok : "parse failed"; },
      [f] { benchmark::DoNotOptimize(f->dynStored->ParseFromString(f->pShape->body)); });
  r_.add(
      f_, "parse", "protoc-generated C++", "generated", size, false,
      [f] { return f->pShape->generated->ParseFromString(f->pShape->body) ? ok : "failed"; },
      [f] { benchmark::DoNotOptimize(f->pShape->generated->ParseFromString(f->pShape->body)); });
  r_.add(
      f_, "parse", "protozero walk", "protozero", size, false, [] { return ok; },
      [f, &body] { benchmark::DoNotOptimize(f->walker->walk(body.data(), body.size())); });
  r_.target(f_, "parse", "host", "parse", "dynamic", "DynamicMessage", 5);
  r_.target(f_, "parse", "discard", "parse", "dynamic", "DynamicMessage", 10);
  r_.target(f_, "parse", "discard", "parse", "generated", "protoc-generated C++", 1);
  r_.target(f_, "parse", "discard", "parse", "protozero", "protozero walk", 1.0 / 3);

  r_.add(
      f_, "trace", "module", "module", size, true, [f] { return status("trace", moduleTrace(*f)); },
      [f] { benchmark::DoNotOptimize(moduleTrace(*f)); });
  r_.add(
      f_, "trace", "DynamicMessage + TextFormat", "text", size, false,
      [f] { return f->dynStored->ParseFromString(f->pShape->body) ? ok : "parse failed"; },
      [f] {
        f->dynStored->ParseFromString(f->pShape->body);
        f->printer.PrintToString(*f->dynStored, &f->text);
        benchmark::DoNotOptimize(f->text.data());
      });
  r_.add(
      f_, "trace", "DynamicMessage + JSON", "json", size, false,
      [f] {
        f->dynStored->ParseFromString(f->pShape->body);
        return google::protobuf::util::MessageToJsonString(*f->dynStored, &f->text).ok()
                   ? ok
                   : "json failed";
      },
      [f] {
        f->dynStored->ParseFromString(f->pShape->body);
        (void)google::protobuf::util::MessageToJsonString(*f->dynStored, &f->text);
        benchmark::DoNotOptimize(f->text.data());
      });
  r_.target(f_, "trace", "module", "trace", "text", "DynamicMessage + TextFormat", 5);

  const double both = static_cast<double>(body.size() + update.size());
  r_.add(
      f_, "merge", "module (2 parses + merge)", "module", both, true,
      [f] {
        const int n = moduleMerge(*f);
        return n < 0 ? std::string("parse failed") : readable(*f, n, "merge");
      },
      [f] { benchmark::DoNotOptimize(moduleMerge(*f)); });
  r_.add(
      f_, "merge", "DynamicMessage", "dynamic", both, false, [] { return ok; },
      [f] {
        f->dynStored->ParseFromString(f->pShape->body);
        f->dynUpdate->ParseFromString(f->pShape->update);
        f->dynStored->MergeFrom(*f->dynUpdate);
        f->dynStored->SerializeToString(&f->text);
        benchmark::DoNotOptimize(f->text.data());
      });
  r_.target(f_, "merge", "module", "merge", "dynamic", "DynamicMessage", 3);

  r_.add(
      f_, "serialize", "module (size + serialize)", "module", size, true,
      [f] {
        if (!f->haveValues) return std::string("no value list: parse failed");
        return readable(*f, moduleSerialize(*f), "serialize");
      },
      [f] { benchmark::DoNotOptimize(moduleSerialize(*f)); });
  r_.add(
      f_, "serialize", "memcpy", "memcpy", size, false, [] { return ok; },
      [f, &body] {
        std::memcpy(f->out.data(), body.data(), body.size());
        benchmark::ClobberMemory();
      });
  // The copies the serializer cannot avoid, one per value, without the nesting.
  r_.add(
      f_, "serialize", "memcpy, value by value", "pieces", size, false,
      [f] { return f->haveValues ? ok : "no value list: parse failed"; },
      [f] {
        char* p = f->out.data();
        const tarn_message_value_list& list = *f->values.list();
        for (size_t i = 0; i < list.count; ++i) {
          const tarn_message_xpath_value& v = list.values[i].xpath_value;
          if (v.type_hint == tarn_message_xpath_value_type_document) continue;
          std::memcpy(p, v.raw_bytes, v.raw_bytes_length);
          p += v.raw_bytes_length;
        }
        benchmark::ClobberMemory();
      });
  r_.target(f_, "serialize", "module", "serialize", "memcpy", "memcpy", 0.5);
}

std::string note(Fixture& f_) {
  const Shape& s = *f_.pShape;
  std::string text = s.typeName + ", body " + std::to_string(s.body.size()) + " bytes, update " +
                     std::to_string(s.update.size()) + " bytes";
  if (moduleParse(f_, s.body, f_.hostSet) == 0)
    text += ", " + std::to_string(f_.hostSet.size()) + " value-set entries";
  return text;
}

}  // namespace
}  // namespace tarn_bench

int main(int argc, char** argv) {
  using namespace tarn_bench;
  benchmark::Initialize(&argc, argv);

  ModuleHost host;
  std::string error;
  if (!host.open(error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  DynamicSchema schema(TARN_BENCH_PROTO_DIR, proto_file);
  std::vector<Shape> shapes = makeShapes();
  std::vector<std::unique_ptr<Fixture>> fixtures;
  Registry registry;
  std::map<std::string, std::string> notes;
  uint64_t moduleAllocations = 0;
  for (Shape& s : shapes) {
    auto f = std::make_unique<Fixture>();
    f->pShape = &s;
    f->pHost = &host;
    const uint64_t before = allocationCount();
    f->context = host.context(TARN_BENCH_PROTO_DIR, proto_file, s.typeName);
    moduleAllocations += allocationCount() - before;
    f->pType = schema.find(s.typeName);
    if (f->context == nullptr || f->pType == nullptr) {
      std::fprintf(stderr, "no context for %s\n", s.typeName.c_str());
      return 1;
    }
    f->dynStored = schema.newMessage(f->pType);
    f->dynUpdate = schema.newMessage(f->pType);
    f->walker = std::make_unique<WireWalker>(f->pType);
    f->printer.SetSingleLineMode(true);
    // Room for the trace text (every number may ask for 64 bytes), the merged
    // message and the serialized one.
    f->out.resize(64 * s.body.size() + 2 * s.update.size() + 4096);
    f->haveValues = host.parse(f->context, s.body, f->listSource) == 0 &&
                    f->values.build(f->listSource);
    notes[s.name] = note(*f);
    registerShape(registry, *f);
    fixtures.push_back(std::move(f));
  }

  // Context creation allocates inside the dlopen'ed module and its importer:
  // if the counter saw none, it could not vouch for the zeros in the table.
  if (moduleAllocations == 0) {
    std::fprintf(stderr, "the allocation counter does not see the module's allocations\n");
    return 1;
  }
  std::printf(
      "allocation counter check: creating %zu contexts made %llu heap allocations "
      "in the module and its schema importer\n",
      shapes.size(), static_cast<unsigned long long>(moduleAllocations));

  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  printTable(registry.rows, registry.targets, notes, collector);
  benchmark::Shutdown();
  return 0;
}
