// Random bodies from libprotobuf: the trace of a well-formed body must equal a
// rendering of what libprotobuf itself decodes from it, and cut or damaged
// bodies must trace within bounds, into any capacity, without crashing.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "random_message.h"
#include "trace_support.h"

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using trace_test::trace;

const int seeds = 300;

template <typename T>
std::string format(const char* format_, T value) {
  char text[64];
  std::snprintf(text, sizeof(text), format_, value);
  return text;
}

// How a value reads when it arrives unpacked: by its wire type.
std::string unpackedValue(const Message& m, const FieldDescriptor* f, int i);
// How a value reads inside a packed list: by its field type.
std::string packedValue(const Message& m, const FieldDescriptor* f, int i);

std::string render(const Message& m) {
  const Reflection* r = m.GetReflection();
  std::vector<const FieldDescriptor*> fields;
  r->ListFields(m, &fields);  // in field number order, as libprotobuf writes them
  std::string out = "{";
  for (const FieldDescriptor* f : fields) {
    const int count = f->is_repeated() ? r->FieldSize(m, f) : 1;
    if (f->is_packed()) {
      out += (out.size() > 1 ? ",\"" : "\"") + f->name() + "\":[";
      for (int i = 0; i < count; ++i) out += (i ? "," : "") + packedValue(m, f, i);
      out += "]";
      continue;
    }
    for (int i = 0; i < count; ++i)
      out += (out.size() > 1 ? ",\"" : "\"") + f->name() + "\":" + unpackedValue(m, f, i);
  }
  return out + "}";
}

// Reads element i of a repeated field, or the field itself when i is -1.
#define GET(Kind, m, f, i)                                                    \
  ((f)->is_repeated() ? (m).GetReflection()->GetRepeated##Kind((m), (f), (i)) \
                      : (m).GetReflection()->Get##Kind((m), (f)))

std::string unpackedValue(const Message& m, const FieldDescriptor* f, int i) {
  switch (f->type()) {
    case FieldDescriptor::TYPE_INT32:
      return format("%" PRIu64, static_cast<uint64_t>(int64_t{GET(Int32, m, f, i)}));
    case FieldDescriptor::TYPE_INT64:
      return format("%" PRIu64, static_cast<uint64_t>(GET(Int64, m, f, i)));
    case FieldDescriptor::TYPE_UINT32:
      return format("%" PRIu32, GET(UInt32, m, f, i));
    case FieldDescriptor::TYPE_UINT64:
      return format("%" PRIu64, GET(UInt64, m, f, i));
    case FieldDescriptor::TYPE_SINT32: {
      const auto v = static_cast<uint32_t>(GET(Int32, m, f, i));
      return format("%" PRIu32, (v << 1) ^ (v & 0x80000000u ? 0xFFFFFFFFu : 0));
    }
    case FieldDescriptor::TYPE_SINT64: {
      const auto v = static_cast<uint64_t>(GET(Int64, m, f, i));
      return format("%" PRIu64, (v << 1) ^ (v >> 63 ? ~uint64_t{0} : 0));
    }
    case FieldDescriptor::TYPE_BOOL:
      return GET(Bool, m, f, i) ? "1" : "0";
    case FieldDescriptor::TYPE_ENUM:
      return format("%" PRIu64, static_cast<uint64_t>(int64_t{GET(EnumValue, m, f, i)}));
    case FieldDescriptor::TYPE_FIXED32:
      return format("%" PRId32, static_cast<int32_t>(GET(UInt32, m, f, i)));
    case FieldDescriptor::TYPE_SFIXED32:
      return format("%" PRId32, GET(Int32, m, f, i));
    case FieldDescriptor::TYPE_FIXED64:
      return format("%" PRId64, static_cast<int64_t>(GET(UInt64, m, f, i)));
    case FieldDescriptor::TYPE_SFIXED64:
      return format("%" PRId64, GET(Int64, m, f, i));
    case FieldDescriptor::TYPE_DOUBLE:
      return format("%g", GET(Double, m, f, i));
    case FieldDescriptor::TYPE_FLOAT:
      return format("%g", static_cast<double>(GET(Float, m, f, i)));
    case FieldDescriptor::TYPE_STRING:
    case FieldDescriptor::TYPE_BYTES:
      return "\"" + GET(String, m, f, i) + "\"";
    case FieldDescriptor::TYPE_MESSAGE:
      return render(GET(Message, m, f, i));
    default:
      ADD_FAILURE() << f->full_name();
      return "?";
  }
}

std::string packedValue(const Message& m, const FieldDescriptor* f, int i) {
  switch (f->type()) {
    case FieldDescriptor::TYPE_SINT32:
      return format("%" PRId32, GET(Int32, m, f, i));
    case FieldDescriptor::TYPE_SINT64:
      return format("%" PRId64, GET(Int64, m, f, i));
    case FieldDescriptor::TYPE_FIXED32:
      return format("%" PRIu32, GET(UInt32, m, f, i));
    case FieldDescriptor::TYPE_FIXED64:
      return format("%" PRIu64, GET(UInt64, m, f, i));
    default:
      return unpackedValue(m, f, i);
  }
}

#undef GET

TEST(TraceRandom, MatchesWhatLibprotobufDecodes) {
  const auto& schema = tarn_test::TestSchema::get();
  const auto* type = schema.type("tarn.test.Rich");
  ASSERT_NE(nullptr, type);
  for (int seed = 0; seed < seeds; ++seed) {
    const std::string body = tarn_test::randomBody(type, seed);
    auto decoded = schema.newMessage(type);
    ASSERT_TRUE(decoded->ParsePartialFromString(body)) << seed;
    auto result = trace(trace_test::rich(), body, 64 * body.size() + 1024);
    EXPECT_EQ(0, result.status) << seed;
    EXPECT_EQ("protobuf(" + render(*decoded) + ")", result.text) << seed;
  }
}

// Checks one body with a capacity that surely fits (every input byte adds at
// most a separator, a quoted name and a colon; a number needs 64 bytes of
// room) and with a few small random capacities, which must cut the same text.
void traceEverywhere(const std::string& body, std::mt19937_64& rng, const std::string& what) {
  auto whole = trace(trace_test::rich(), body, 16 * body.size() + 128);
  ASSERT_EQ(0, whole.status) << what;
  ASSERT_EQ(0u, whole.text.rfind("protobuf({", 0)) << what;
  ASSERT_GE(whole.text.size(), 12u) << what;
  EXPECT_EQ("})", whole.text.substr(whole.text.size() - 2)) << what;
  for (int i = 0; i < 3; ++i) {
    const size_t capacity = rng() % (whole.text.size() + 80);
    auto cut = trace(trace_test::rich(), body, capacity);
    if (cut.status == 0) {
      EXPECT_EQ(whole.text, cut.text) << what << " capacity " << capacity;
    } else {
      EXPECT_EQ(whole.text.substr(0, cut.text.size()), cut.text)
          << what << " capacity " << capacity;
    }
  }
}

TEST(TraceRandom, CutAndDamagedBodiesStayInBounds) {
  const auto* type = tarn_test::TestSchema::get().type("tarn.test.Rich");
  std::mt19937_64 rng(20240611);
  for (int seed = 0; seed < seeds; ++seed) {
    const std::string body = tarn_test::randomBody(type, seed);
    traceEverywhere(body, rng, "seed " + std::to_string(seed));
    for (int i = 0; i < 4 && !body.empty(); ++i) {
      const size_t cut = rng() % body.size();
      traceEverywhere(body.substr(0, cut), rng,
                      "seed " + std::to_string(seed) + " cut " + std::to_string(cut));
      std::string damaged = body;
      for (int flips = 1 + rng() % 3; flips > 0; --flips)
        damaged[rng() % damaged.size()] ^= static_cast<char>(1 + rng() % 255);
      traceEverywhere(damaged, rng, "seed " + std::to_string(seed) + " damaged");
    }
  }
}

}  // namespace
