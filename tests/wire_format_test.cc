// The shared varint reader against libprotobuf's, at every length, with every
// amount of room behind the varint and of readable bytes before it (the
// reader decodes from one eight-byte load at the varint when eight bytes are
// left, from the eight before the end when those may be read, and byte by
// byte otherwise), and cut off at every byte. Each case sits in a heap copy
// of exactly its own size, so a read outside it is a sanitizer error.
#include "modules/message_type/protobuf/wire_format.h"

#include <google/protobuf/io/coded_stream.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "wire.h"

namespace {

uint64_t libprotobufVarint(const std::string& bytes_, size_t* pLength_) {
  google::protobuf::io::CodedInputStream in(reinterpret_cast<const uint8_t*>(bytes_.data()),
                                            static_cast<int>(bytes_.size()));
  uint64_t value = 0;
  EXPECT_TRUE(in.ReadVarint64(&value));
  *pLength_ = static_cast<size_t>(in.CurrentPosition());
  return value;
}

// Reads the varint at the start of buffer_ from an exact-size copy of it
// behind `before_` other bytes, which the reader may read when it is told so.
bool readAt(const std::string& buffer_, uint64_t& value_, size_t& length_, size_t before_ = 0,
            bool floor_ = false) {
  const std::string all = std::string(before_, '\xFF') + buffer_;
  std::unique_ptr<char[]> copy(new char[all.size() ? all.size() : 1]);
  std::memcpy(copy.get(), all.data(), all.size());
  const char* const start = copy.get() + before_;
  const char* const end = copy.get() + all.size();
  const char* p = start;
  value_ = ~uint64_t{0};
  const bool ok = floor_ ? readVarintLong(p, end, value_, copy.get()) : readVarint(p, end, value_);
  length_ = static_cast<size_t>(p - start);
  return ok;
}

// Minimal encodings at both sides of every length step, the top bit alone,
// all ones; and padded encodings (continuation bits over zero groups) of
// every length up to ten bytes.
std::vector<std::string> encodings() {
  std::vector<std::string> out;
  for (unsigned bits = 0; bits <= 64; ++bits) {
    const uint64_t top = bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    out.push_back(wire::varintBytes(top));
    if (bits < 64) out.push_back(wire::varintBytes(uint64_t{1} << bits));
    out.push_back(wire::varintBytes(top & 0xAAAAAAAAAAAAAAAAull));
  }
  for (size_t bytes = 1; bytes <= max_varint_bytes; ++bytes) {
    out.push_back(wire::paddedVarint(0, bytes));
    out.push_back(wire::paddedVarint(0x55, bytes));
  }
  return out;
}

TEST(WireVarint, AgreesWithLibprotobufAtEveryLengthAndRoomBehind) {
  for (const std::string& encoding : encodings()) {
    size_t expectedLength = 0;
    const uint64_t expected = libprotobufVarint(encoding, &expectedLength);
    ASSERT_EQ(encoding.size(), expectedLength) << wire::hex(encoding);
    for (size_t before = 0; before <= 9; ++before) {
      for (bool floor : {false, true}) {
        for (size_t room = 0; room <= 12; ++room) {
          const std::string buffer = encoding + std::string(room, '\xFF');
          uint64_t value;
          size_t length;
          SCOPED_TRACE(wire::hex(encoding) + " before " + std::to_string(before) +
                       (floor ? " readable" : "") + " room " + std::to_string(room));
          ASSERT_TRUE(readAt(buffer, value, length, before, floor));
          EXPECT_EQ(expected, value);
          EXPECT_EQ(expectedLength, length);
        }
        // Cut off before its last byte: reported, and the position stays.
        for (size_t cut = 0; cut < encoding.size(); ++cut) {
          uint64_t value;
          size_t length;
          SCOPED_TRACE(wire::hex(encoding) + " before " + std::to_string(before) +
                       (floor ? " readable" : "") + " cut " + std::to_string(cut));
          EXPECT_FALSE(readAt(encoding.substr(0, cut), value, length, before, floor));
          EXPECT_EQ(0u, length);
        }
      }
    }
  }
}

// Groups beyond the 64th bit are dropped, whatever room is left behind: the
// tenth byte adds bit 63 only, and a varint longer than ten bytes ends at
// its first byte without a continuation bit.
TEST(WireVarint, BitsBeyondSixtyFourAreDropped) {
  struct Case {
    std::string bytes;
    uint64_t value;
  };
  const Case cases[] = {
      {wire::fromHex("FF FF FF FF FF FF FF FF FF 7F"), ~uint64_t{0}},
      {wire::fromHex("80 80 80 80 80 80 80 80 80 7E"), 0},
      {wire::fromHex("81 80 80 80 80 80 80 80 80 80 80 00"), 1},
      {wire::fromHex("FF FF FF FF FF FF FF FF FF FF FF 01"), ~uint64_t{0}},
  };
  for (const Case& c : cases) {
    for (size_t room = 0; room <= 12; ++room) {
      uint64_t value;
      size_t length;
      ASSERT_TRUE(readAt(c.bytes + std::string(room, '\x01'), value, length)) << wire::hex(c.bytes);
      EXPECT_EQ(c.value, value) << wire::hex(c.bytes) << " room " << room;
      EXPECT_EQ(c.bytes.size(), length) << wire::hex(c.bytes) << " room " << room;
    }
  }
}

}  // namespace
