// The stand-in host's log sink. A module logger is a plain function with no
// user data, so the record is process-wide; every line is kept with its level
// as the module gave it and may also be echoed to standard error, with control
// characters and backslashes written as \xNN.
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

  // A line as a terminal may show it: the module's lines carry option values
  // and file names as the configuration gave them, and a control character in
  // one (a newline, an escape sequence) must not forge or rewrite other lines.
  // Control characters and the backslash become \xNN.
  static std::string printable(const char* text_);

  // "info", "warning", ... for a single-bit level; "level N" otherwise.
  static std::string levelName(int level_);
};

}  // namespace tarn_host

#endif
