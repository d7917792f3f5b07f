#include "check_module.h"

#include "cli.h"
#include "commands.h"

namespace tarnpb {

CheckModule::CheckModule(const std::string& modulePath_, bool privateCopy_,
                         const SchemaConfig& config_, bool quiet_)
    : _session(new ModuleSession(modulePath_, quiet_, privateCopy_)) {
  _session->createContext(config_);
}

CheckModule::~CheckModule() = default;

int CheckModule::parse(const std::string& body_, tarn_host::ValueSet& set_) const {
  return _session->parse(body_, set_);
}

std::string CheckModule::trace(const std::string& body_) const { return _session->trace(body_); }

std::string CheckModule::merge(tarn_host::ValueSet& update_, tarn_host::ValueSet& stored_) const {
  return mergeBodies(*_session, update_, stored_);
}

}  // namespace tarnpb
