// Every --json output of tarnpb is one JSON document that a JSON parser reads
// back to the exact values: text as UTF-8, integers to all 64 bits, floating
// values in their shortest form, whatever the other options ask for.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <sstream>

#include "tool_run.h"
#include "wire.h"

namespace {

using namespace tool_run;
using rapidjson::Value;
using wire::Body;

// The whole text as one document; anything after it fails the parse.
std::unique_ptr<rapidjson::Document> document(const std::string& text) {
  auto doc = std::make_unique<rapidjson::Document>();
  doc->Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  EXPECT_FALSE(doc->HasParseError())
      << "error " << doc->GetParseError() << " at " << doc->GetErrorOffset() << " of:\n"
      << text;
  EXPECT_TRUE(doc->IsObject()) << text;
  return doc;
}

// The parse view's entry of that name.
const Value& entryNamed(const Value& parse, const char* name) {
  static const Value none;
  if (!parse.IsObject() || !parse.HasMember("entries")) return none;
  for (const auto& e : parse["entries"].GetArray())
    if (std::strcmp(e["name"].GetString(), name) == 0) return e;
  ADD_FAILURE() << "no entry " << name;
  return none;
}

std::string text(const Value& v) {
  return v.IsString() ? std::string(v.GetString(), v.GetStringLength()) : "(not a string)";
}

TEST(ToolJson, ValuesReadBackExactly) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const std::string cafe = "caf\xC3\xA9 \xE2\x82\xAC";
  const std::string control("a\x01\x1f\"\\/\x7f\tb\0", 10);
  // Long enough to be read eight bytes at a time, each special byte late.
  const std::string late = "0123456789abcdef\"0123456789\\01234567\x1f" + cafe + "xyz";
  const struct {
    std::string args, body;
    const char* name;
    // How the value is written, and what it reads back as.
    std::string written;
    std::function<void(const Value& entry)> check;
  } cases[] = {
      {sample, Body().str(2, cafe), "name", "\"" + cafe + "\"",
       [&](const Value& e) {
         EXPECT_EQ(cafe, text(e["value"]));
         EXPECT_FALSE(e.HasMember("value_hex"));
       }},
      {sample,
       Body().str(2,
                  "\xFF"
                  "a\xC3"),
       "name",
       "\"\xEF\xBF\xBD"
       "a\xEF\xBF\xBD\"",
       [](const Value& e) { EXPECT_EQ("ff61c3", text(e["value_hex"])); }},
      {sample, Body().str(2, control), "name",
       R"("a\u0001\u001F\"\\/)"
       "\x7f"
       R"(\tb\u0000")",
       [&](const Value& e) { EXPECT_EQ(control, text(e["value"])); }},
      {sample, Body().str(2, late), "name",
       R"("0123456789abcdef\"0123456789\\01234567\u001F)" + cafe + "xyz\"",
       [&](const Value& e) { EXPECT_EQ(late, text(e["value"])); }},
      {book, Body().fixed64(2, ~uint64_t{0}), "sequence", "18446744073709551615",
       [](const Value& e) {
         ASSERT_TRUE(e["value"].IsUint64());
         EXPECT_EQ(~uint64_t{0}, e["value"].GetUint64());
       }},
      {sample, Body().varint(1, ~uint64_t{0}), "id", "-1",
       [](const Value& e) { EXPECT_EQ(-1, e["value"].GetInt64()); }},
      {book, Body().f32(10, 1.5e-7f), "spread_bps", "1.5e-07",
       [](const Value& e) { EXPECT_EQ(1.5e-7f, static_cast<float>(e["value"].GetDouble())); }},
      {sample, Body().f64(3, 0.1), "score", "0.1",
       [](const Value& e) { EXPECT_EQ(0.1, e["value"].GetDouble()); }},
      {sample, Body().f64(3, -0.0), "score", "-0.0",
       [](const Value& e) { EXPECT_TRUE(std::signbit(e["value"].GetDouble())); }},
      {sample, Body().f64(3, 1e300), "score", "1e+300",
       [](const Value& e) { EXPECT_EQ(1e300, e["value"].GetDouble()); }},
      {sample, Body().f64(3, -nan), "score", "\"nan\"", nullptr},
      {sample, Body().f64(3, inf), "score", "\"inf\"", nullptr},
      {sample, Body().f32(6, -std::numeric_limits<float>::infinity()), "ratio", "\"-inf\"",
       nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.written);
    const ToolRun run = tarnpb("parse --json " + c.args + file(c.body));
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_NE(std::string::npos, run.out.find(",\"value\":" + c.written + ",")) << run.out;
    const auto doc = document(run.out);
    const Value& e = entryNamed(*doc, c.name);
    if (c.check && e.IsObject()) c.check(e);
  }
}

// The tree shows floating values as printf's "%g" with as many digits as
// the shortest form that reads back (at least six); JSON has that shortest
// form. Both read back as the value, double or float.
TEST(ToolJson, FloatingValuesReadBackInTheTreeAndInJson) {
  const std::string all = "-q -I " + quote(std::string(TARN_SOURCE_DIR) + "/tests/data") +
                          " --proto parser.proto --type tarn.ptest.AllTypes ";
  std::mt19937_64 random(20261124);
  std::vector<double> doubles = {
      0.1, 100,    1e6, 1e7, 123456789, 1e16, 1e-5, 1e-4, -0.0, 5e-324, 1.7976931348623157e308,
      2.5, 1.0 / 3};
  std::vector<float> floats = {1.5e-7f, 0.1f, 1e20f, 16777216.f, 3.4028235e38f, 1e-45f};
  while (doubles.size() < 300) {
    uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, 8);
    if (std::isfinite(d)) doubles.push_back(d);
    uint32_t bits32 = static_cast<uint32_t>(random());
    float f;
    std::memcpy(&f, &bits32, 4);
    if (std::isfinite(f)) floats.push_back(f);
  }
  std::string packedDoubles, packedFloats;
  for (double d : doubles) packedDoubles.append(reinterpret_cast<const char*>(&d), 8);
  for (float f : floats) packedFloats.append(reinterpret_cast<const char*>(&f), 4);
  const std::string body = file(Body().str(21, packedDoubles).str(22, packedFloats));

  // Tree lines: index, hash, name, kind, value, ...
  const ToolRun tree = tarnpb("parse " + all + body);
  ASSERT_EQ(0, tree.status) << tree.err;
  std::vector<std::string> shown;
  std::istringstream lines(tree.out);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string index, hash, name, kind, value;
    words >> index >> hash >> name >> kind >> value;
    if (kind == "double") shown.push_back(value);
  }
  const auto doc = document(tarnpb("parse --json " + all + body).out);
  const auto& entries = (*doc)["entries"];
  ASSERT_EQ(doubles.size() + floats.size(), shown.size());
  ASSERT_EQ(shown.size(), entries.Size());
  for (size_t i = 0; i < shown.size(); ++i) {
    const bool isFloat = i >= doubles.size();
    const double value = isFloat ? floats[i - doubles.size()] : doubles[i];
    SCOPED_TRACE(shown[i]);
    const double json = entries[static_cast<rapidjson::SizeType>(i)]["value"].GetDouble();
    if (isFloat) {
      EXPECT_EQ(static_cast<float>(value), std::strtof(shown[i].c_str(), nullptr));
      EXPECT_EQ(static_cast<float>(value), static_cast<float>(json));
    } else {
      EXPECT_EQ(value, std::strtod(shown[i].c_str(), nullptr));
      EXPECT_EQ(value, json);
    }
    EXPECT_EQ(std::signbit(value), std::signbit(json));
    // Subnormal values have fewer digits than printf's six would give.
    const int type = isFloat ? std::fpclassify(static_cast<float>(value)) : std::fpclassify(value);
    if (type == FP_SUBNORMAL) continue;
    size_t digits = 0, first = shown[i].find_first_of("123456789");
    for (size_t k = first; k < shown[i].size() && shown[i][k] != 'e'; ++k)
      digits += std::isdigit(static_cast<unsigned char>(shown[i][k])) ? 1 : 0;
    char printf[64];
    std::snprintf(printf, sizeof printf, "%.*g", static_cast<int>(digits > 6 ? digits : 6), value);
    EXPECT_EQ(printf, shown[i]);
  }
}

// Each command's --json with its other options: one document on the stream
// that carries it, whatever else the run writes or refuses.
TEST(ToolJson, EveryModeWritesOneDocument) {
  const std::string one = file(Body().varint(1, 7).msg(5, Body().str(1, "x")));
  const std::string notUtf8 = file(Body().str(2, "\xFF"));
  const std::string stream = file(wire::fromHex("02 08 07 02 08 09"));
  const std::string bids = file("bids { quantity: 1 }"), moreBids = file("bids { quantity: 2 }");
  const std::string traceOne = tarnpb("trace " + sample + one).out;
  const struct {
    std::string args;
    int status;
    bool onStderr;  // the body occupies the standard output
    std::function<void(const Value& doc)> check;
  } cases[] = {
      {"parse -j -f inner.label " + sample + one, 0, false,
       [](const Value& d) {
         EXPECT_TRUE(d["partial"].GetBool());
         EXPECT_EQ("x", text(entryNamed(d, "label")["value"]));
         EXPECT_EQ("inner.label", text(entryNamed(d, "label")["path"]));
       }},
      {"parse -j " + sample + file(Body().varint(1, 7).varint(9, 1)), 1, false,
       [](const Value& d) { EXPECT_EQ(255, d["status"].GetInt()); }},
      {"parse -d -j " + sample + stream, 0, false,
       [](const Value& d) {
         ASSERT_EQ(2u, d["messages"].Size());
         EXPECT_EQ(9, entryNamed(d["messages"][1], "id")["value"].GetInt());
         EXPECT_EQ(2u, d["summary"]["messages"].GetUint64());
         EXPECT_EQ(4u, d["summary"]["bytes"].GetUint64());
         EXPECT_EQ(2u, d["summary"]["entries"].GetUint64());
         EXPECT_TRUE(d["summary"]["seconds"].IsNumber());
       }},
      {"parse -ds -j " + sample + stream, 0, false,
       [](const Value& d) {
         EXPECT_FALSE(d.HasMember("messages"));
         EXPECT_EQ(0u, d["summary"]["refused"].GetUint64());
       }},
      {"parse -d -j " + sample + file(wire::fromHex("02 08 07 04 08 07 48 01 05 08")), 1, false,
       [](const Value& d) {
         EXPECT_EQ(255, d["messages"][1]["status"].GetInt());
         EXPECT_EQ(1u, d["summary"]["refused"].GetUint64());
         EXPECT_TRUE(d["summary"]["stream_error"].IsString());
       }},
      {"merge -j --view --trace -o /dev/null " + sample + one + " " + one, 0, false,
       [&](const Value& d) {
         EXPECT_EQ(0u, d["warnings"].Size());
         EXPECT_EQ("x", text(entryNamed(d["parsed"], "label")["value"]));
         EXPECT_EQ(traceOne, text(d["trace"]) + "\n");
         EXPECT_FALSE(d.HasMember("trace_hex"));
       }},
      {"merge -j --trace -o /dev/null " + sample + notUtf8 + " " + notUtf8, 0, false,
       [](const Value& d) {
         EXPECT_EQ("protobuf({\"name\":\"\xEF\xBF\xBD\"})", text(d["trace"]));
         EXPECT_EQ("protobuf({\"name\":\"\xFF\"})", wire::fromHex(text(d["trace_hex"])));
       }},
      {"merge -j --text " + book + bids + " " + moreBids, 0, true,
       [](const Value& d) {
         EXPECT_EQ("tarn.example.BookSnapshot", text(d["type"]));
         EXPECT_EQ(4u, d["bytes"].GetUint64());
         EXPECT_EQ(4u, d["stored_bytes"].GetUint64());
         EXPECT_EQ(4u, d["update_bytes"].GetUint64());
         ASSERT_EQ(2u, d["warnings"].Size());
         EXPECT_EQ("repeated", text(d["warnings"][0]["kind"]));
         EXPECT_EQ("bids", text(d["warnings"][0]["path"]));
         EXPECT_EQ(0u, text(d["warnings"][0]["text"]).find("the update's 1 item replaces"));
         EXPECT_EQ("items", text(d["warnings"][1]["kind"]));
       }},
      {"serialize -j --view -o /dev/null " + sample + one, 0, false,
       [](const Value& d) {
         EXPECT_EQ("tarn.test.Sample", text(d["type"]));
         EXPECT_TRUE(d["same_message"].GetBool());
         EXPECT_EQ(3u, d["parsed"]["entries"].Size());
       }},
      {"serialize -j " + sample + file(Body().str(1, "x")), 0, true,
       [](const Value& d) {
         ASSERT_EQ(1u, d["warnings"].Size());
         EXPECT_EQ("misfit", text(d["warnings"][0]["kind"]));
         EXPECT_EQ(0u, text(d["warnings"][0]["text"]).find("message: at byte 0, id "));
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    const ToolRun run = tarnpb(c.args);
    EXPECT_EQ(c.status, run.status) << run.err;
    // Refusals end standard error with their reason, after the document.
    std::string json = c.onStderr ? run.err : run.out;
    if (c.status != 0 && c.onStderr) json.resize(json.size() - run.lastError.size() - 1);
    const auto doc = document(json);
    if (!doc->HasParseError()) c.check(*doc);
  }
}

}  // namespace

#endif
