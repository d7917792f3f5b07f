// Context creation under memory faults, one fresh process per fault: the
// module is loaded and started once, then for each chosen allocation of one
// creation of the bundled example schema a child process is forked that makes
// that allocation fail (alone, or together with every later one: memory that
// stays exhausted), creates the context, creates it again with memory back,
// parses and traces a body with whatever it got, unloads the module and exits.
//
// Every child must exit normally; a refused creation must say in the log that
// memory ran out; and every context it gets must give the same entries and
// trace as a creation without faults. The second creation either works or is
// refused because the shared schema was damaged, which the log must say.
//
// One end is known and counted apart: libprotobuf's parser allocates in a
// destructor (Parser::LocationRecorder), and std::bad_alloc thrown there ends
// the process in std::terminate. The module keeps memory in reserve so that
// this takes memory that stays exhausted past the reserve; a child that ends
// so, and only there, is counted as "libprotobuf cannot survive".
//
//   schema_fault_sweep [--stride N] [--verbose] [--module PATH]
//   schema_fault_sweep --at N [--persistent]
//
// --stride N tries every Nth allocation (default 1: all of them). Prints one
// line per outcome class and exits 1 when any child failed. --at runs the one
// trial in this process, for a debugger. --module tries another build of the
// module than the one of this tree.
#include <dlfcn.h>
#include <execinfo.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <string>

#include "host/alloc_counter.h"
#include "host/module_driver.h"
#include "host/value_set.h"
#include "wire.h"

namespace {

// Log lines kept without allocating: a creation that runs out of memory still
// logs, and the logger must not fail in its turn.
char g_lines[64][256];
unsigned g_lineCount = 0;

void logLine(int /*level_*/, const char* text_) {
  std::snprintf(g_lines[g_lineCount % 64], sizeof g_lines[0], "%s", text_);
  ++g_lineCount;
}

bool loggedSince(unsigned mark_, const char* needle_) {
  for (unsigned i = mark_; i < g_lineCount; ++i)
    if (i + 64 >= g_lineCount && std::strstr(g_lines[i % 64], needle_) != nullptr) return true;
  return false;
}

// Where the child writes its record; the terminate handler writes there too.
int g_resultFd = -1;

// Says whether std::terminate came from the one destructor of libprotobuf's
// that allocates, by the names of the frames still on the stack.
[[noreturn]] void onTerminate() {
  void* frames[128];
  const int n = backtrace(frames, 128);
  const char* text = "0 0 terminate elsewhere|\n";
  for (int i = 0; i < n; ++i) {
    Dl_info info;
    if (dladdr(frames[i], &info) != 0 && info.dli_sname != nullptr &&
        std::strstr(info.dli_sname, "Parser16LocationRecorderD") != nullptr)
      text = "0 0 terminate in LocationRecorder|\n";
  }
  ssize_t written = ::write(g_resultFd, text, std::strlen(text));
  (void)written;
  std::abort();
}

std::string exampleBody() {
  wire::Body price;
  price.sint(1, 1012500);
  return wire::Body()
      .msg(1, wire::Body().str(1, "ACME").str(3, "USD").varint(4, 100))
      .fixed64(2, 88231)
      .msg(5, wire::Body().msg(1, price).varint(2, 1200).varint(3, 4))
      .msg(7, wire::Body().msg(1, price).varint(2, 300).varint(3, 1).fixed64(4, 4400917))
      .str(8, wire::packedVarints({wire::zigzag(-300), wire::zigzag(150), 0, wire::zigzag(75)}))
      .f64(9, 101.2438)
      .bytes();
}

tarn_host::ContextOptions exampleOptions() {
  tarn_host::ContextOptions options;
  const std::string path = std::string(";") + TARN_SOURCE_DIR + "/examples";
  options.add("ProtoPath", path.c_str()).add("ProtoFile", "market_data.proto");
  options.add("Type", "tarn.example.BookSnapshot");
  return options;
}

// What a context makes of the example body: every entry and the trace.
std::string answers(const tarn_host::ModuleApi& api_, tarn_message_type_context context_,
                    const std::string& body_) {
  tarn_input_message in = {};
  in.message_type_context = context_;
  in.data = body_.data();
  in.byte_count = body_.size();
  tarn_host::ValueSet set;
  std::string out = "parse " + std::to_string(api_.parse_message(&in, set.handle())) + ";";
  for (const tarn_message_value_set_entry& e : set.entries()) {
    out += std::to_string(e.hash) + " " + std::to_string(e.value_mask) + " " +
           std::to_string(e.type_hint) + " " + std::to_string(e.l) + " " +
           std::to_string(e.raw_bytes ? e.raw_bytes - body_.data() : -1) + "+" +
           std::to_string(e.raw_bytes_length) + " " + std::to_string(e.parent) + " " +
           std::to_string(e.first_child) + " " + std::to_string(e.next_sibling) + ";";
  }
  char text[4096];
  tarn_trace_buffer traceIn = {body_.data(), body_.size()};
  tarn_trace_output_buffer traced = {text, sizeof text, 0};
  const int status = api_.trace_message(context_, &traceIn, &traced);
  return out + "trace " + std::to_string(status) + " " + std::string(text, traced.length);
}

// One creation with the nth_ allocation failing (0: none), in this process.
// Writes "allocations failed first|second" to fd_, each creation as "ok:"
// and its answers, "oom", "damaged" or "refused".
void trial(const tarn_host::ModuleApi& api_, uint64_t nth_, bool persistent_,
           const std::string& body_, int fd_) {
  tarn_host::ContextOptions options = exampleOptions();
  const tarn_module_options ready = options.get();
  const unsigned mark = g_lineCount;
  const uint64_t before = tarn_host::allocationCount();
  if (nth_ != 0) tarn_host::failAllocation(nth_, persistent_);
  tarn_message_type_context first = api_.create_context(ready);
  tarn_host::stopFailing();
  const uint64_t made = tarn_host::allocationCount() - before;
  const uint64_t failed = nth_ != 0 ? tarn_host::failedAllocations() : 0;
  auto describe = [&](tarn_message_type_context context_, unsigned since_) -> std::string {
    if (context_ != nullptr) return "ok:" + answers(api_, context_, body_);
    if (loggedSince(since_, "shared schema incomplete")) return "damaged";
    if (loggedSince(since_, "out of memory")) return "oom";
    return "refused";
  };
  std::string record =
      std::to_string(made) + " " + std::to_string(failed) + " " + describe(first, mark) + "|";
  const unsigned secondMark = g_lineCount;
  tarn_message_type_context second = api_.create_context(ready);
  record += describe(second, secondMark) + "\n";
  api_.destroy_context(first);
  api_.destroy_context(second);
  api_.module_terminate();
  ssize_t written = ::write(fd_, record.data(), record.size());
  (void)written;
}

struct Result {
  std::string how;  // "" for a normal exit, else what ended the child
  std::string record;
};

Result runChild(tarn_host::ModuleDriver*& pModule_, uint64_t nth_, bool persistent_,
                const std::string& body_) {
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) std::exit(2);
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipeFds[0]);
    ::alarm(20);  // a child still running then is hung
    g_resultFd = pipeFds[1];
    std::set_terminate(&onTerminate);
    trial(pModule_->api(), nth_, persistent_, body_, pipeFds[1]);
    delete pModule_;  // unloads the module, as a host does at exit
    std::exit(0);
  }
  ::close(pipeFds[1]);
  Result result;
  char buffer[8192];
  for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;)
    result.record.append(buffer, static_cast<size_t>(n));
  ::close(pipeFds[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFSIGNALED(status))
    result.how =
        WTERMSIG(status) == SIGALRM ? "hang" : std::string("signal ") + strsignal(WTERMSIG(status));
  else if (WEXITSTATUS(status) != 0)
    result.how = "exit " + std::to_string(WEXITSTATUS(status));
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  uint64_t stride = 1, at = 0;
  bool verbose = false, persistentAt = false;
  const char* modulePath = TARN_MODULE_PATH;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--at") == 0 && i + 1 < argc)
      at = std::strtoull(argv[++i], nullptr, 10);
    if (std::strcmp(argv[i], "--persistent") == 0) persistentAt = true;
    if (std::strcmp(argv[i], "--module") == 0 && i + 1 < argc) modulePath = argv[++i];
    if (std::strcmp(argv[i], "--stride") == 0 && i + 1 < argc)
      stride = std::strtoull(argv[++i], nullptr, 10);
    if (std::strcmp(argv[i], "--verbose") == 0) verbose = true;
  }
  if (stride == 0) stride = 1;
  auto* pModule = new tarn_host::ModuleDriver();
  std::string error;
  if (!pModule->load(modulePath, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 2;
  }
  pModule->api().module_init(nullptr, &logLine, &std::malloc);
  const std::string body = exampleBody();
  if (at != 0) {
    trial(pModule->api(), at, persistentAt, body, STDOUT_FILENO);
    delete pModule;
    return 0;
  }

  const Result baseline = runChild(pModule, 0, false, body);
  const size_t split = baseline.record.find('|');
  if (!baseline.how.empty() || split == std::string::npos ||
      baseline.record.compare(baseline.record.find(' ', baseline.record.find(' ') + 1) + 1, 3,
                              "ok:") != 0) {
    std::fprintf(stderr, "the creation without faults failed: %s %s\n", baseline.how.c_str(),
                 baseline.record.c_str());
    return 2;
  }
  const uint64_t total = std::strtoull(baseline.record.c_str(), nullptr, 10);
  const std::string right =
      baseline.record.substr(baseline.record.find("ok:"), split - baseline.record.find("ok:"));

  std::map<std::string, unsigned> classes;
  unsigned failures = 0;
  for (bool persistent : {false, true}) {
    for (uint64_t nth = 1; nth <= total; nth += stride) {
      const Result r = runChild(pModule, nth, persistent, body);
      std::string first, second;
      const size_t bar = r.record.find('|');
      const size_t space = r.record.find(' ', r.record.find(' ') + 1);
      if (bar != std::string::npos && space != std::string::npos) {
        first = r.record.substr(space + 1, bar - space - 1);
        second = r.record.substr(bar + 1, r.record.size() - bar - 2);
      }
      std::string cls;
      if (first == "terminate in LocationRecorder" && r.how == "signal Aborted")
        cls = "libprotobuf cannot survive: std::bad_alloc in ~LocationRecorder";
      else if (!r.how.empty())
        cls = "FAILED: " + r.how + " " + first;
      else if ((first != right && first.compare(0, 3, "ok:") == 0) ||
               (second != right && second.compare(0, 3, "ok:") == 0))
        cls = "FAILED: wrong answers";
      else if (first == "refused" || second == "refused" || first == "damaged")
        cls = "FAILED: refused without saying why";
      else if (first == right)
        cls = "created all the same";
      else if (second == right)
        cls = "clean refusal";
      else
        cls = "refusal of later creations";
      const std::string key = std::string(persistent ? "persistent" : "single") + ": " + cls;
      ++classes[key];
      if (cls.compare(0, 6, "FAILED") == 0) {
        ++failures;
        if (verbose)
          std::printf("allocation %llu, %s: %s\n", static_cast<unsigned long long>(nth),
                      key.c_str(), r.record.substr(0, 200).c_str());
      }
    }
  }
  std::printf("one creation of the example schema: %llu allocations, every %llu tried\n",
              static_cast<unsigned long long>(total), static_cast<unsigned long long>(stride));
  for (const auto& c : classes) std::printf("%6u  %s\n", c.second, c.first.c_str());
  return failures == 0 ? 0 : 1;
}
