// The wire cursor's varint reads (checked, and the parser's tag, value and
// length reads) against libprotobuf's, at every length, with every amount of
// room behind the varint, of readable bytes before it and of body bytes past
// its level (the cursor decodes from one eight-byte load at the varint when
// the level or the body holds eight bytes, from the eight before the end when
// those may be read, and byte by byte otherwise), and cut off at every byte. Each case sits in a
// heap copy of exactly its own size, so a read outside it is a sanitizer error.
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

// The four ways the cursor reads a varint: checked, and the parser's lenient
// tag, value and length reads.
enum class Read { checked, tag, value, length };
const Read every_read[] = {Read::checked, Read::tag, Read::value, Read::length};

// Reads the varint at the start of buffer_, a level of its own, from an
// exact-size copy of it with `before_` other bytes in front and `beyond_`
// behind, which belong to the body (and may be read) only when `body_` says
// so. A lenient read of a cut-off varint yields 0 with the whole level read;
// it is reported here as false with length_ 0.
bool readAt(const std::string& buffer_, uint64_t& value_, size_t& length_, Read read_,
            size_t before_ = 0, bool body_ = false, size_t beyond_ = 0) {
  const std::string all = std::string(before_, '\xFF') + buffer_ + std::string(beyond_, '\x01');
  std::unique_ptr<char[]> copy(new char[all.size() ? all.size() : 1]);
  std::memcpy(copy.get(), all.data(), all.size());
  const char* const start = copy.get() + before_;
  const wire_body body = {body_ ? copy.get() : start,
                          body_ ? copy.get() + all.size() : start + buffer_.size()};
  wire_cursor in(body);
  in.moveTo(start);
  in = in.nested(buffer_.size());
  value_ = ~uint64_t{0};
  bool ok = true;
  switch (read_) {
    case Read::checked: ok = in.readVarint(value_); break;
    case Read::tag: {
      const wire_tag tag = in.tagOrZero();
      value_ =
          static_cast<uint64_t>(static_cast<uint32_t>(tag.number)) << wiretype_bits | tag.wireType;
      break;
    }
    case Read::value: value_ = in.valueOrZero(); break;
    case Read::length: value_ = in.lengthOrZero(); break;
  }
  length_ = static_cast<size_t>(in.position() - start);
  if (read_ != Read::checked && value_ == 0 && length_ == buffer_.size() && !in.more()) {
    // Cut off, or a whole varint of 0 that fills its level: only the bytes
    // tell which.
    const bool cut = buffer_.empty() || (buffer_.back() & 0x80) != 0;
    if (cut) {
      length_ = 0;
      ok = false;
    }
  }
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
    for (const Read read : every_read) {
      // The tag read keeps 35 bits of the number: compared on those.
      const uint64_t want = read == Read::tag ? expected & ((uint64_t{1} << 35) - 1) : expected;
      for (size_t before = 0; before <= 9; ++before) {
        for (bool body : {false, true}) {
          for (size_t beyond : {size_t{0}, size_t{9}}) {
            if (beyond != 0 && !body) continue;
            const std::string where = " read " + std::to_string(static_cast<int>(read)) +
                                      " before " + std::to_string(before) +
                                      (body ? " in a body" : "") + " beyond " +
                                      std::to_string(beyond);
            for (size_t room = 0; room <= 12; ++room) {
              const std::string buffer = encoding + std::string(room, '\xFF');
              uint64_t value;
              size_t length;
              SCOPED_TRACE(wire::hex(encoding) + where + " room " + std::to_string(room));
              ASSERT_TRUE(readAt(buffer, value, length, read, before, body, beyond));
              EXPECT_EQ(want, value);
              EXPECT_EQ(expectedLength, length);
            }
            // Cut off before its last byte: reported, and nothing of it taken.
            for (size_t cut = 0; cut < encoding.size(); ++cut) {
              uint64_t value;
              size_t length;
              SCOPED_TRACE(wire::hex(encoding) + where + " cut " + std::to_string(cut));
              EXPECT_FALSE(
                  readAt(encoding.substr(0, cut), value, length, read, before, body, beyond));
              EXPECT_EQ(0u, length);
            }
          }
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
      ASSERT_TRUE(readAt(c.bytes + std::string(room, '\x01'), value, length, Read::checked))
          << wire::hex(c.bytes);
      EXPECT_EQ(c.value, value) << wire::hex(c.bytes) << " room " << room;
      EXPECT_EQ(c.bytes.size(), length) << wire::hex(c.bytes) << " room " << room;
    }
  }
}

}  // namespace
