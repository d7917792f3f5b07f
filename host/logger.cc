#include "logger.h"

#include <cstdio>
#include <mutex>

namespace tarn_host {
namespace {

std::mutex g_mutex;
std::vector<LogLine> g_lines;
bool g_echo = false;

}  // namespace

void Logger::log(int level_, const char* text_) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back(LogLine{level_, text_});
  if (g_echo)
    std::fprintf(stderr, "[%s] %s\n", levelName(level_).c_str(), printable(text_).c_str());
}

std::vector<LogLine> Logger::lines() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

size_t Logger::mark() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines.size();
}

std::vector<LogLine> Logger::linesSince(size_t mark_) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (mark_ > g_lines.size()) mark_ = g_lines.size();
  return std::vector<LogLine>(g_lines.begin() + static_cast<long>(mark_), g_lines.end());
}

void Logger::clear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

void Logger::echoToStderr(bool on_) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_echo = on_;
}

std::string Logger::printable(const char* text_) {
  std::string out;
  for (const char* p = text_; *p != '\0'; ++p) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c >= 0x20 && c != 0x7F && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    }
  }
  return out;
}

std::string Logger::levelName(int level_) {
  switch (level_) {
    case 0:
      return "none";
    case 1:
      return "developer";
    case 2:
      return "trace";
    case 4:
      return "stats";
    case 8:
      return "info";
    case 16:
      return "warning";
    case 32:
      return "error";
    case 64:
      return "critical";
    case 128:
      return "emergency";
    default:
      return "level " + std::to_string(level_);
  }
}

}  // namespace tarn_host
