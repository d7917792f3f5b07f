// The stand-in host's log sink. A module logger is a plain function with no
// user data, so the record is process-wide; every line is kept with its level
// and may also be echoed to standard error.
#ifndef TARN_HOST_LOGGER_H
#define TARN_HOST_LOGGER_H

#include <string>
#include <vector>

namespace tarn_host {

struct LogLine {
  int level;
  std::string text;
  bool operator==(const LogLine& other_) const {
    return level == other_.level && text == other_.text;
  }
};

class Logger {
 public:
  // The function to hand to tarn_module_init.
  static void log(int level_, const char* text_);

  static std::vector<LogLine> lines();
  // Lines logged since the mark was taken.
  static size_t mark();
  static std::vector<LogLine> linesSince(size_t mark_);
  static void clear();
  static void echoToStderr(bool on_);

  // "info", "warning", ... for a single-bit level; "level N" otherwise.
  static std::string levelName(int level_);
};

}  // namespace tarn_host

#endif
