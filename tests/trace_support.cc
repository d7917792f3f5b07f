#include "trace_support.h"

#include <map>

namespace trace_test {

namespace {

// Destroys the cached contexts after the last test, while the module and the
// host's logger are still alive.
class Contexts : public ::testing::Environment {
 public:
  std::map<std::string, tarn_message_type_context> byName;

  void TearDown() override {
    for (auto& entry : byName)
      if (entry.second != nullptr) tarn_test::api().destroy_context(entry.second);
    byName.clear();
  }
};

Contexts* const contexts =
    static_cast<Contexts*>(::testing::AddGlobalTestEnvironment(new Contexts));

}  // namespace

tarn_message_type_context context(const std::string& file, const std::string& type) {
  auto& slot = contexts->byName[file + " " + type];
  if (slot == nullptr) slot = tarn_test::makeContext(tarn_test::dataDir(), file, type);
  EXPECT_NE(nullptr, slot) << file << " " << type;
  return slot;
}

}  // namespace trace_test
