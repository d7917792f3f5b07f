// Every record the module submits to one value set, kept by the host or not:
// what a partial parse sends for the entries its find set rejects is visible
// nowhere else. The test binary exports its own tarn_message_xpath_update,
// which the module binds to ahead of the stand-in host's (the executable comes
// first in the global symbol scope); it copies the record when its set is the
// one being logged and hands every call on to the host's function.
#ifndef TARN_TESTS_SUBMISSION_LOG_H
#define TARN_TESTS_SUBMISSION_LOG_H

#include <vector>

#include "host/value_set.h"

namespace tarn_test {

class SubmissionLog {
 public:
  // Logs what is submitted to set_ until the log is destroyed. One log at a
  // time, on the thread that parses into set_.
  explicit SubmissionLog(tarn_host::ValueSet& set_);
  ~SubmissionLog();
  SubmissionLog(const SubmissionLog&) = delete;
  SubmissionLog& operator=(const SubmissionLog&) = delete;

  const std::vector<tarn_message_value_set_entry>& records() const { return _records; }

  // Keeps a copy of entry_ when set_ is the set being logged.
  static void offer(tarn_message_xpath_value_set set_, const tarn_message_value_set_entry& entry_);

 private:
  tarn_message_xpath_value_set _set;
  std::vector<tarn_message_value_set_entry> _records;
};

}  // namespace tarn_test

#endif
