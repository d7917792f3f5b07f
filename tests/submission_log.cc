#include "submission_log.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace tarn_test {
namespace {

// Read on every update of every test, from any thread.
std::atomic<SubmissionLog*> g_log{nullptr};

using Update = uint32_t (*)(tarn_message_xpath_value_set, tarn_message_xpath_find_set,
                            tarn_message_value_set_entry*);

// The stand-in host's own update: the next definition after this binary's.
Update hostUpdate() {
  static const Update update = [] {
    auto found = reinterpret_cast<Update>(dlsym(RTLD_NEXT, "tarn_message_xpath_update"));
    if (found == nullptr) {
      std::fprintf(stderr, "no tarn_message_xpath_update behind the test binary's\n");
      std::abort();
    }
    return found;
  }();
  return update;
}

}  // namespace

SubmissionLog::SubmissionLog(tarn_host::ValueSet& set_) : _set(set_.handle()) { g_log.store(this); }

SubmissionLog::~SubmissionLog() { g_log.store(nullptr); }

void SubmissionLog::offer(tarn_message_xpath_value_set set_,
                          const tarn_message_value_set_entry& entry_) {
  SubmissionLog* pLog = g_log.load(std::memory_order_acquire);
  if (pLog != nullptr && pLog->_set == set_) pLog->_records.push_back(entry_);
}

}  // namespace tarn_test

extern "C" __attribute__((visibility("default"))) uint32_t tarn_message_xpath_update(
    tarn_message_xpath_value_set valueSet, tarn_message_xpath_find_set findSet,
    tarn_message_value_set_entry* entry) {
  tarn_test::SubmissionLog::offer(valueSet, *entry);
  return tarn_test::hostUpdate()(valueSet, findSet, entry);
}
