#include "module_session.h"

#include <cstdio>
#include <memory>

#include "cli.h"
#include "host/logger.h"

namespace tarnpb {

namespace {

const int warning_level = 16;
const size_t first_trace_capacity = 1024;
// Room tried before giving up: generous for any real trace text, small enough
// that a module that refuses for another reason is not fed gigabytes.
size_t maxTraceCapacity(size_t bodyLength_) {
  const size_t limit = size_t{1} << 30;
  const size_t guess = (size_t{16} << 20) + 512 * bodyLength_;
  return guess < limit && bodyLength_ < limit ? guess : limit;
}

}  // namespace

ModuleSession::ModuleSession(const std::string& modulePath_, bool quiet_, bool privateCopy_)
    : _quiet(quiet_) {
  tarn_host::Logger::echoToStderr(!quiet_);
  std::string error;
  if (!_module.load(modulePath_, error, privateCopy_)) throw ToolError(exit_refused, error);
  const size_t mark = tarn_host::Logger::mark();
  _module.start(&tarn_host::Logger::log);
  showQuietLines(mark);
}

ModuleSession::~ModuleSession() {
  if (_context != nullptr) _module.destroyContext(_context);
}

void ModuleSession::showQuietLines(size_t mark_) const {
  if (!_quiet) return;
  for (const auto& line : tarn_host::Logger::linesSince(mark_))
    if (line.level >= warning_level)
      std::fprintf(stderr, "[%s] %s\n", tarn_host::Logger::levelName(line.level).c_str(),
                   line.text.c_str());
}

void ModuleSession::createContext(const SchemaConfig& config_) {
  const size_t mark = tarn_host::Logger::mark();
  _context = _module.createContext(config_.moduleOptions());
  showQuietLines(mark);
  if (_context != nullptr) return;
  std::string reason = "no reason logged";
  for (const auto& line : tarn_host::Logger::linesSince(mark)) {
    if (line.level >= warning_level) {
      reason = line.text;
      break;
    }
  }
  throw ToolError(exit_refused, "the module refused the schema: " + reason);
}

int ModuleSession::parse(const std::string& body_, tarn_host::ValueSet& set_,
                         const tarn::tarn_xpath_hash_set* pFind_) const {
  return _module.parse(_context, body_.data(), body_.size(), set_.handle(), pFind_);
}

int ModuleSession::traceOnce(const std::string& body_, size_t capacity_, std::string& text_) const {
  std::unique_ptr<char[]> buffer(new char[capacity_ == 0 ? 1 : capacity_]);
  tarn_trace_output_buffer out = {buffer.get(), capacity_, 0};
  const int status = _module.trace(_context, body_.data(), body_.size(), out);
  // The length is the module's word; it is held to the capacity all the same.
  text_.assign(buffer.get(), out.length <= capacity_ ? out.length : capacity_);
  return status;
}

std::string ModuleSession::trace(const std::string& body_) const {
  std::string text;
  const size_t limit = maxTraceCapacity(body_.size());
  // Trace text is usually one to two times the body: starting there saves
  // most of the attempts a large body would otherwise take.
  size_t first = 2 * body_.size();
  if (first < first_trace_capacity) first = first_trace_capacity;
  for (size_t capacity = first;; capacity *= 2) {
    if (capacity > limit) capacity = limit;
    const int status = traceOnce(body_, capacity, text);
    if (status == TARN_SUCCESS) return text;
    if (capacity == limit) {
      throw ToolError(exit_refused, "the module refused the trace (status " +
                                        std::to_string(status) + ") even with " +
                                        std::to_string(capacity) + " bytes of room");
    }
  }
}

}  // namespace tarnpb
