// Context creation from fuzzed options and a fuzzed .proto file. The schema
// text is written under a name no earlier run of this process used (the
// module's schema pool is process-wide and remembers every name it was asked
// for), in a scratch directory removed at exit. Options are drawn from the
// keys the module reads, near misses of them and arbitrary text, with values
// that map the scratch directory, miss it, name the file, or are null. A
// context that is created must parse and trace an empty body and be destroyed.
#include <fuzzer/FuzzedDataProvider.h>
#include <google/protobuf/stubs/logging.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

const std::string& scratch() {
  // Kept on the heap: the clean-up at exit must still find it.
  static const std::string& dir = *new std::string([] {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "tarn-fuzz-context-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) tarn_fuzz::fail("mkdtemp failed");
    std::filesystem::create_directories(std::filesystem::path(pattern) / "sub");
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(scratch(), ignored);
    });
    return pattern;
  }());
  return dir;
}

// Every mapping stays in the process-wide source tree for good; mapping the
// same directory again on every run would make each later import slower.
std::string mapOnce(const std::string& value_) {
  static std::set<std::string> mapped;
  if (mapped.insert(value_).second) return value_;
  return value_.substr(value_.find(';') + 1);  // no ';': logged, never mapped
}

std::string pathValue(FuzzedDataProvider& input_) {
  switch (input_.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
      return mapOnce(";" + scratch());
    case 1:
      return mapOnce("virt;" + scratch());
    case 2:
      return mapOnce("deep/er;" + scratch() + "/sub");
    case 3:
      return scratch();
    case 4:
      return ";" + scratch() + "/missing;x";
    case 5:
      return ";";
    case 6:
      return "virt;";
    default: {
      std::string text = input_.ConsumeRandomLengthString(24);
      // An arbitrary text may name an existing directory such as "/" once.
      return text.find(';') == std::string::npos ? text : mapOnce(text);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // libprotobuf writes a warning to standard error for most fuzzed schemas
  // ("No syntax specified ..."); the module's own log lines are what matter.
  google::protobuf::SetLogHandler(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static unsigned run = 0;
  const std::string file =
      "f" + std::to_string(::getpid()) + "_" + std::to_string(run++) + ".proto";
  FuzzedDataProvider input(data, size);

  const int count = input.ConsumeIntegralInRange<int>(0, 6);
  std::vector<std::pair<std::string, std::string>> texts;
  std::vector<bool> nullValue;
  for (int i = 0; i < count; ++i) {
    const int which = input.ConsumeIntegralInRange<int>(0, 7);
    const bool isNull = input.ConsumeIntegralInRange<int>(0, 15) == 0;
    std::string key, value;
    switch (which) {
      case 0:
        key = "ProtoPath";
        value = pathValue(input);
        break;
      case 1:
      case 2: {
        key = "ProtoFile";
        const int form = input.ConsumeIntegralInRange<int>(0, 3);
        value = form == 0   ? file
                : form == 1 ? "virt/" + file
                : form == 2 ? "deep/er/" + file
                            : input.ConsumeRandomLengthString(24);
        break;
      }
      case 3:
        key = "Type";
        value = input.ConsumeRandomLengthString(32);
        break;
      case 4:
        key = "Types";
        value = input.ConsumeRandomLengthString(32);
        break;
      case 5:
        key = "protofile";
        value = file;
        break;
      case 6:
        key = "Typ";
        value = input.ConsumeRandomLengthString(8);
        break;
      default:
        key = input.ConsumeRandomLengthString(12);
        value = input.ConsumeRandomLengthString(24);
        break;
    }
    texts.emplace_back(key, value);
    nullValue.push_back(isNull);
  }
  const std::string schema = input.ConsumeRemainingBytesAsString();
  const bool inSub = !schema.empty() && (schema[0] & 1);
  std::ofstream(std::filesystem::path(scratch()) / (inSub ? "sub" : "") / file) << schema;

  std::vector<tarn_module_option> options;
  for (size_t i = 0; i < texts.size(); ++i)
    options.push_back({texts[i].first.c_str(), nullValue[i] ? nullptr : texts[i].second.c_str()});
  options.push_back({nullptr, nullptr});

  const tarn_host::ModuleApi& api = tarn_fuzz::api();
  tarn_message_type_context context = api.create_context(options.data());
  if (context != nullptr) {
    tarn_host::ValueSet set;
    tarn_fuzz::parse(context, "", 0, set);
    char text[128];
    tarn_trace_output_buffer output = {text, sizeof text, 0};
    tarn_trace_buffer empty = {"", 0};
    const int status = api.trace_message(context, &empty, &output);
    tarn_fuzz::check(status == TARN_SUCCESS && std::string(text, output.length) == "protobuf({})",
                     "empty body does not trace as protobuf({})");
    api.destroy_context(context);
  }
  std::error_code ignored;
  std::filesystem::remove(std::filesystem::path(scratch()) / (inSub ? "sub" : "") / file, ignored);
  return 0;
}
