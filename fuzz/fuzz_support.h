// Shared set-up of the fuzz targets: the module is loaded once per process
// through the stand-in host, exactly as the tests load it, and started with a
// logger that drops every line (a recording logger would grow without bound
// over millions of runs).
#ifndef TARN_FUZZ_FUZZ_SUPPORT_H
#define TARN_FUZZ_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/module_driver.h"
#include "host/value_set.h"

namespace tarn_fuzz {

// The loaded and started module. Aborts if it cannot be loaded.
const tarn_host::ModuleDriver& driver();
inline const tarn_host::ModuleApi& api() { return driver().api(); }

// A context for `type` from a schema in tests/data. Created once per type and
// kept for the life of the process. Aborts when the module refuses it.
tarn_message_type_context context(const std::string& file, const std::string& type);
tarn_message_type_context richContext();    // tarn.test.Rich, every field type
tarn_message_type_context sampleContext();  // tarn.test.Sample, no declared defaults

// Reports a broken property with the harness's own message and aborts, so
// libFuzzer saves the input as a crash.
[[noreturn]] void fail(const char* what_, const std::string& detail_ = "");
inline void check(bool ok_, const char* what_, const std::string& detail_ = "") {
  if (!ok_) fail(what_, detail_);
}

// Parses [data_, data_ + size_) with a context; the module's status.
int parse(tarn_message_type_context context_, const char* data_, size_t size_,
          tarn_host::ValueSet& set_, const void* findSet_ = nullptr);

// What every entry of a full parse of [data_, data_ + size_) must satisfy:
// message-borne bytes lie inside the body, the numeric view is one the host
// knows, and the tree links point forward in storage order (parents backward).
void checkEntries(const tarn_host::ValueSet& set_, const char* data_, size_t size_);

}  // namespace tarn_fuzz

#endif
