// The writer's varint primitives, byte for byte. They are inline code of the
// module's header, compiled here as they are into the module; nothing extra is
// exported for the tests.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "modules/message_type/protobuf/tarn_protobuf_v2_serializer.h"
#include "wire.h"

namespace {

using S = tarn_protobuf_v2_serializer;

struct VarintCase {
  uint64_t value;
  size_t bytes;
  const char* minimal;  // hex of the minimal varint
};

const VarintCase varintCases[] = {
    {0, 1, "00"},
    {1, 1, "01"},
    {127, 1, "7F"},
    {128, 2, "80 01"},
    {300, 2, "AC 02"},
    {16383, 2, "FF 7F"},
    {16384, 3, "80 80 01"},
    {268435455, 4, "FF FF FF 7F"},
    {268435456, 5, "80 80 80 80 01"},
    {uint64_t{1} << 63, 10, "80 80 80 80 80 80 80 80 80 01"},
    {std::numeric_limits<uint64_t>::max(), 10, "FF FF FF FF FF FF FF FF FF 01"},
};

TEST(Varint, LengthAndMinimalBytes) {
  for (const VarintCase& c : varintCases) {
    SCOPED_TRACE(c.value);
    EXPECT_EQ(c.bytes, S::_bytesForVarint(c.value));
    char buffer[16] = {};
    char* p = buffer;
    S::_writeVarint(p, c.value);
    ASSERT_EQ(c.bytes, static_cast<size_t>(p - buffer));
    EXPECT_EQ(c.minimal, wire::hex(std::string(buffer, c.bytes)));
    EXPECT_EQ(wire::varintBytes(c.value), std::string(buffer, c.bytes));
  }
}

struct FixedCase {
  uint64_t value;
  unsigned bytes;
  bool fits;
  const char* written;  // hex; empty when nothing may be written
};

const FixedCase fixedCases[] = {
    {0, 4, true, "80 80 80 00"},
    {5, 4, true, "85 80 80 00"},
    {300, 4, true, "AC 82 80 00"},
    {16384, 4, true, "80 80 81 00"},
    {268435455, 4, true, "FF FF FF 7F"},
    {268435456, 4, false, ""},
    // A slot as wide as the minimal form holds the minimal form only.
    {300, 2, true, "AC 02"},
    {0, 1, true, "00"},
    {128, 1, false, ""},
    {1, 6, true, "81 80 80 80 80 00"},
};

TEST(Varint, FixedSizeSlots) {
  for (const FixedCase& c : fixedCases) {
    SCOPED_TRACE(testing::Message() << c.value << " in " << c.bytes);
    char buffer[16];
    std::memset(buffer, 0xEE, sizeof buffer);
    char* p = buffer;
    ASSERT_EQ(c.fits, S::_writeFixedSizeVarint(p, c.value, c.bytes));
    if (!c.fits) {
      EXPECT_EQ(buffer, p);
      EXPECT_EQ(std::string(sizeof buffer, '\xEE'), std::string(buffer, sizeof buffer));
      continue;
    }
    ASSERT_EQ(c.bytes, static_cast<size_t>(p - buffer));
    EXPECT_EQ(c.written, wire::hex(std::string(buffer, c.bytes)));
    EXPECT_EQ('\xEE', buffer[c.bytes]);  // nothing beyond the slot
  }
}

struct TagCase {
  const char* raw;
  size_t length;
  size_t tag;
};

TEST(Varint, TagLengthStaysInsideTheBytes) {
  const TagCase cases[] = {
      {"\x1A\x02\x08\x05", 4, 1},
      {"\x80\x01\x00", 3, 2},
      {"\x80\x80", 2, 0},  // cut off: no complete tag
      {"\x08", 0, 0},      // no bytes
  };
  for (const TagCase& c : cases) EXPECT_EQ(c.tag, S::_tagLength(c.raw, c.length));
  EXPECT_EQ(0u, S::_tagLength(nullptr, 5));
}

}  // namespace
