#include <gtest/gtest.h>

#include "module_fixture.h"

namespace {

TEST(Smoke, SupportedOptionsAreDelta) {
  const char* text = nullptr;
  size_t length = 0;
  EXPECT_EQ(0, tarn_test::api().get_supported_options(nullptr, &text, &length));
  EXPECT_EQ(std::string("delta"), std::string(text, length));
}

TEST(Smoke, SampleContextLoads) {
  auto ctx = tarn_test::makeContext(tarn_test::dataDir(), "sample.proto", "tarn.test.Sample");
  ASSERT_NE(nullptr, ctx);
  EXPECT_EQ(0, tarn_test::api().destroy_context(ctx));
}

}  // namespace
