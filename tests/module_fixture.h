// Shared set-up for the tests: the module, loaded once per test process through
// the stand-in host, started with the recording logger.
#ifndef TARN_TESTS_MODULE_FIXTURE_H
#define TARN_TESTS_MODULE_FIXTURE_H

#include <string>

#include "host/logger.h"
#include "host/module_loader.h"
#include "host/value_set.h"

namespace tarn_test {

// The loaded module's entry points. Aborts the test process if it cannot load.
const tarn_host::ModuleApi& api();

// Directory of the schemas the tests use (tests/data).
std::string dataDir();

// Directory of the public protobuf corpus, or "" when it is not beside the project.
std::string corpusDir();

// A context for `type` from `file`, with `dir` mapped as the root of the virtual
// tree. Returns null (and logs, as the module does) when refused.
tarn_message_type_context makeContext(const std::string& dir, const std::string& file,
                                      const std::string& type);

// Parses `body` into `set` with a context; returns the module's status.
int parse(tarn_message_type_context context, const std::string& body, tarn_host::ValueSet& set);

}  // namespace tarn_test

#endif
