// One version of a schema as a server runs it, for check: an instance of the
// module of its own with one context, and the parse, trace and merge calls
// that show what the version does to a body.
//
// Two versions usually share a file name, and a module serves a file name
// from its pool once it has loaded it, so each version needs its own module
// instance. The second one is a private copy of the library opened with
// RTLD_LOCAL: the module exports only its entry points, so the copies share
// nothing but libprotobuf (whose process-wide state, the generated pool and
// the logging hooks, the module does not touch) and the host's value-set
// functions, which are what a server would give both. dlmopen into a new
// namespace would isolate more, but it would load a second host library too,
// and the two versions' value sets must live in one host storage so that a
// stored message parsed under one version can be merged with an update parsed
// under the other, as a server does right after it switches. Child processes
// would need the value sets shipped back for the same reason.
#ifndef TARN_TOOLS_TARNPB_CHECK_MODULE_H
#define TARN_TOOLS_TARNPB_CHECK_MODULE_H

#include <memory>
#include <string>

#include "host/value_set.h"
#include "module_session.h"

namespace tarnpb {

class CheckModule {
 public:
  // privateCopy_: load a copy of the library, not the file itself. Throws
  // ToolError (refused) when the module will not load or refuses the schema.
  CheckModule(const std::string& modulePath_, bool privateCopy_, const SchemaConfig& config_,
              bool quiet_);
  ~CheckModule();

  int parse(const std::string& body_, tarn_host::ValueSet& set_) const;
  std::string trace(const std::string& body_) const;
  // The delta merge of update_ into stored_; update_ is empty afterwards.
  std::string merge(tarn_host::ValueSet& update_, tarn_host::ValueSet& stored_) const;

 private:
  std::unique_ptr<ModuleSession> _session;
};

}  // namespace tarnpb

#endif
