#include "check_module.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "cli.h"
#include "commands.h"

namespace tarnpb {

namespace {

// A copy of the library in a fresh directory; the name keeps the original's
// so that the log lines and errors read the same.
std::string copyLibrary(const std::string& path_, std::string& dir_) {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern =
      std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/tarnpb-XXXXXX";
  if (::mkdtemp(&pattern[0]) == nullptr)
    throw ToolError(exit_refused, "cannot make a directory for a second module instance");
  dir_ = pattern;
  const size_t slash = path_.rfind('/');
  const std::string copy = dir_ + "/" + path_.substr(slash == std::string::npos ? 0 : slash + 1);
  std::ifstream in(path_, std::ios::binary);
  std::ofstream out(copy, std::ios::binary);
  out << in.rdbuf();
  out.close();
  if (!in || !out) throw ToolError(exit_refused, "cannot copy module " + path_ + " to " + copy);
  return copy;
}

}  // namespace

CheckModule::CheckModule(const std::string& modulePath_, bool privateCopy_,
                         const SchemaConfig& config_, bool quiet_) {
  const std::string path = privateCopy_ ? copyLibrary(modulePath_, _copyDir) : modulePath_;
  // Once loaded (or not), the copy goes: a mapped library stays when its file is removed.
  struct RemoveCopy {
    const std::string& path;
    const std::string& dir;
    ~RemoveCopy() {
      if (dir.empty()) return;
      ::unlink(path.c_str());
      ::rmdir(dir.c_str());
    }
  } removeCopy{path, _copyDir};
  _session.reset(new ModuleSession(path, quiet_));
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
