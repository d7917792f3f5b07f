// The module as a server runs it: loaded with dlopen through the stand-in
// host, started with the host's logger, given one context built from the
// ProtoPath / ProtoFile / Type options, and stopped again when the session
// ends. Calls go through the entry points only.
#ifndef TARN_TOOLS_TARNPB_MODULE_SESSION_H
#define TARN_TOOLS_TARNPB_MODULE_SESSION_H

#include <string>
#include <vector>

#include "config.h"
#include "host/module_driver.h"
#include "host/value_set.h"
#include "tarn/tarn_xpath_hash_set.h"

namespace tarnpb {

class ModuleSession {
 public:
  // Loads the module and starts it. Its log lines go to standard error with
  // their level names; quiet_ keeps only those from warning up. Throws
  // ToolError (refused) when the library cannot be loaded.
  // privateCopy_: a module instance of its own, loaded from a private copy of
  // the library (see ModuleDriver::load), beside any other in the process.
  ModuleSession(const std::string& modulePath_, bool quiet_, bool privateCopy_ = false);
  ~ModuleSession();
  ModuleSession(const ModuleSession&) = delete;
  ModuleSession& operator=(const ModuleSession&) = delete;

  const tarn_host::ModuleApi& api() const { return _module.api(); }
  const tarn_host::ModuleDriver& driver() const { return _module; }

  // Creates the context. Throws ToolError (refused) with the module's own
  // reason, its first log line from warning up, when it returns null.
  void createContext(const SchemaConfig& config_);

  // Full parse when pFind_ is null, partial parse otherwise. Returns the
  // module's status; the entries stored before a failure stay in set_.
  int parse(const std::string& body_, tarn_host::ValueSet& set_,
            const tarn::tarn_xpath_hash_set* pFind_ = nullptr) const;

  // One trace into a buffer of capacity_ bytes: the status, and in text_ the
  // bytes the module reports written (all of them also on failure).
  int traceOnce(const std::string& body_, size_t capacity_, std::string& text_) const;
  // Traces into a buffer that grows until the module succeeds.
  std::string trace(const std::string& body_) const;

 private:
  void showQuietLines(size_t mark_) const;

  tarn_host::ModuleDriver _module;
  tarn_message_type_context _context = nullptr;
  bool _quiet;
};

}  // namespace tarnpb

#endif
