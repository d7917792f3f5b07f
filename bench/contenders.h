// What the benchmark runs for one message shape: the module (and, when asked
// for, a baseline build of it) through the stand-in host, and every peer, all
// prepared and checked once before anything is timed.
#ifndef TARN_BENCH_CONTENDERS_H
#define TARN_BENCH_CONTENDERS_H

#include <google/protobuf/text_format.h>

#include <memory>
#include <string>
#include <vector>

#include "call_loop.h"
#include "host/module_driver.h"
#include "host/value_list.h"
#include "measuring_host.h"
#include "peers.h"
#include "runner.h"
#include "shapes.h"
#include "trace_peer.h"

namespace tarn_bench {

// One loaded module's state for one shape. Value sets are grown by the
// checks, so no measured call pays for their growth.
struct ModuleSide {
  ModuleSide(const char* name_, const tarn_host::ModuleDriver& module_,
             tarn_message_type_context context_)
      : name(name_), module(module_), context(context_) {}
  ~ModuleSide() {
    if (context != nullptr) module.destroyContext(context);
  }
  ModuleSide(const ModuleSide&) = delete;
  ModuleSide& operator=(const ModuleSide&) = delete;

  std::string name;  // "module" or "baseline"
  const tarn_host::ModuleDriver& module;
  tarn_message_type_context context;
  MeasuredSet store;
  MeasuredSet nothing{MeasuredSet::Keep::nothing};  // the discarding and the null host
  MeasuredSet stored;                               // the merge's stored message
  MeasuredSet update;                               // the merge's update, which the merge clears
  // The update's key table as parsed: restoring it (and two counts) undoes
  // the merge's clear, so the merge walk can be timed without the parses.
  std::vector<tarn::tarn_xpath_value_set::key_data> updateKeys;
  uint32_t updateKeyCount = 0;
  uint32_t updateStoreCount = 0;
  std::vector<char> out;
};

struct ShapeBench {
  Shape* pShape = nullptr;
  const google::protobuf::Descriptor* pType = nullptr;
  std::unique_ptr<ModuleSide> current;
  std::unique_ptr<ModuleSide> baseline;  // null unless a baseline module is loaded
  std::unique_ptr<google::protobuf::Message> dynStored;
  std::unique_ptr<google::protobuf::Message> dynUpdate;
  std::unique_ptr<WireWalker> walker;
  std::unique_ptr<TraceWalker> tracer;
  std::unique_ptr<CallLoop> calls;
  google::protobuf::TextFormat::Printer printer;
  MeasuredSet listSource;  // parsed once; the value list points into it
  tarn_host::ValueList values;
  std::vector<char> out;  // the peers' output
  std::string text;
  uint64_t entries = 0;  // entries one full parse submits
  uint64_t fields = 0;   // fields and packed elements in the body
  std::string note;      // a line about the shape for the table
};

// Creates the contexts and peers, runs every operation once and compares
// what the contenders produce; false with a reason when something is wrong.
bool prepare(ShapeBench& b_, std::string& error_);

void addContenders(Runner& runner_, ShapeBench& b_);

// A ratio the table prints: per round, the numerator's time (or instruction
// count) over the sum of the denominators', median over rounds. A target is
// met when the ratio is at most `limit` (atMost) or at least `limit`.
struct Comparison {
  std::string shape;
  std::string label;
  std::string key;
  std::vector<std::string> over;
  double limit = 0;  // 0: no target
  bool atMost = false;
};

std::vector<Comparison> comparisons(const ShapeBench& b_);

}  // namespace tarn_bench

#endif
