#include "parser_reference.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <vector>

namespace ptest {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

namespace {

void expectLong(const entry_t& e_, int64_t want_) {
  EXPECT_EQ(18, e_.value_mask);
  EXPECT_EQ(2, e_.type_hint);
  EXPECT_EQ(want_, e_.l);
}

void expectDouble(const entry_t& e_, double want_) {
  EXPECT_EQ(9, e_.value_mask);
  EXPECT_EQ(1, e_.type_hint);
  // Bit for bit, so that -0.0 and 0.0 differ.
  EXPECT_EQ(0, std::memcmp(&want_, &e_.d, sizeof want_)) << want_ << " vs " << e_.d;
}

// Element `i_` of a repeated field, or the singular value (its default when unset).
void expectValue(const entry_t& e_, const Message& m_, const FieldDescriptor* f_, int i_) {
  const Reflection* r = m_.GetReflection();
  const bool rep = f_->is_repeated();
  switch (f_->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      expectLong(e_, rep ? r->GetRepeatedInt32(m_, f_, i_) : r->GetInt32(m_, f_));
      break;
    case FieldDescriptor::CPPTYPE_INT64:
      expectLong(e_, rep ? r->GetRepeatedInt64(m_, f_, i_) : r->GetInt64(m_, f_));
      break;
    case FieldDescriptor::CPPTYPE_UINT32:
      expectLong(e_, rep ? r->GetRepeatedUInt32(m_, f_, i_) : r->GetUInt32(m_, f_));
      break;
    case FieldDescriptor::CPPTYPE_UINT64:
      expectLong(
          e_, static_cast<int64_t>(rep ? r->GetRepeatedUInt64(m_, f_, i_) : r->GetUInt64(m_, f_)));
      break;
    case FieldDescriptor::CPPTYPE_DOUBLE:
      expectDouble(e_, rep ? r->GetRepeatedDouble(m_, f_, i_) : r->GetDouble(m_, f_));
      break;
    case FieldDescriptor::CPPTYPE_FLOAT:
      expectDouble(e_, rep ? r->GetRepeatedFloat(m_, f_, i_) : r->GetFloat(m_, f_));
      break;
    case FieldDescriptor::CPPTYPE_BOOL:
      expectLong(e_, (rep ? r->GetRepeatedBool(m_, f_, i_) : r->GetBool(m_, f_)) ? 1 : 0);
      break;
    case FieldDescriptor::CPPTYPE_ENUM:
      expectLong(e_, rep ? r->GetRepeatedEnumValue(m_, f_, i_) : r->GetEnumValue(m_, f_));
      break;
    case FieldDescriptor::CPPTYPE_STRING: {
      EXPECT_EQ(0, e_.value_mask);
      EXPECT_EQ(0, e_.type_hint);
      const std::string want = rep ? r->GetRepeatedString(m_, f_, i_) : r->GetString(m_, f_);
      EXPECT_EQ(want, text(e_.string_rep, e_.string_rep_length));
      break;
    }
    case FieldDescriptor::CPPTYPE_MESSAGE:
      EXPECT_EQ(0, e_.value_mask);
      EXPECT_EQ(0, e_.type_hint);
      EXPECT_EQ(nullptr, e_.string_rep);
      break;
  }
}

class Walker {
 public:
  Walker(const Parsed& parsed_, ReferenceOptions options_)
      : _parsed(parsed_), _options(options_), _reached(parsed_.size(), false) {}

  void level(uint32_t first_, const Message& m_, uint32_t baseHash_, uint32_t parent_) {
    const Descriptor* d = m_.GetDescriptor();
    std::map<const FieldDescriptor*, std::vector<uint32_t>> byField;
    bool defaultSeen = false;
    for (uint32_t i = first_; i != INV; i = _parsed[i].next_sibling) {
      ASSERT_LT(i, _parsed.size());
      ASSERT_FALSE(_reached[i]) << "entry " << i << " reached twice";
      _reached[i] = true;
      const entry_t& e = _parsed[i];
      const std::string name = text(e.tag_bytes, e.tag_length);
      const FieldDescriptor* f = d->FindFieldByName(name);
      ASSERT_NE(nullptr, f) << name << " is not a field of " << d->full_name();
      EXPECT_EQ(parent_, e.parent) << name;
      EXPECT_EQ(tarn_message_xpath_hash_string(name.data(), name.size(), baseHash_), e.hash)
          << name;
      // Defaults come after every present field of their level.
      if (e.raw_bytes == nullptr) defaultSeen = true;
      EXPECT_FALSE(defaultSeen && e.raw_bytes != nullptr) << name << " after a default";
      byField[f].push_back(i);
    }
    const Reflection* r = m_.GetReflection();
    for (int k = 0; k < d->field_count(); ++k) {
      const FieldDescriptor* f = d->field(k);
      SCOPED_TRACE(f->full_name());
      const std::vector<uint32_t>& got = byField[f];
      if (f->is_repeated()) {
        ASSERT_EQ(static_cast<size_t>(r->FieldSize(m_, f)), got.size());
        for (size_t n = 0; n < got.size(); ++n) entryOf(got[n], m_, f, static_cast<int>(n));
      } else if (r->HasField(m_, f)) {
        ASSERT_EQ(1u, got.size());
        EXPECT_NE(nullptr, _parsed[got[0]].raw_bytes);
        entryOf(got[0], m_, f, -1);
      } else if (_options.withDefaults && f->has_default_value()) {
        ASSERT_EQ(1u, got.size());
        EXPECT_EQ(nullptr, _parsed[got[0]].raw_bytes);
        EXPECT_EQ(0u, _parsed[got[0]].raw_bytes_length);
        expectValue(_parsed[got[0]], m_, f, -1);
      } else {
        EXPECT_EQ(0u, got.size());
      }
    }
  }

  void expectAllReached() const {
    for (uint32_t i = 0; i < _reached.size(); ++i) EXPECT_TRUE(_reached[i]) << "entry " << i;
  }

 private:
  void entryOf(uint32_t index_, const Message& m_, const FieldDescriptor* f_, int i_) {
    const entry_t& e = _parsed[index_];
    expectValue(e, m_, f_, i_);
    EXPECT_TRUE(_parsed.inside(e.raw_bytes, e.raw_bytes_length));
    if (f_->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
      EXPECT_EQ(INV, e.first_child);
      return;
    }
    const Reflection* r = m_.GetReflection();
    const Message& child = i_ >= 0 ? r->GetRepeatedMessage(m_, f_, i_) : r->GetMessage(m_, f_);
    level(e.first_child, child, tarn_message_xpath_hash_add_separator(e.hash), index_);
  }

  const Parsed& _parsed;
  ReferenceOptions _options;
  std::vector<bool> _reached;
};

}  // namespace

void expectMatchesReference(const Parsed& parsed, const Message& message,
                            ReferenceOptions options) {
  Walker walker(parsed, options);
  walker.level(parsed.size() == 0 ? INV : 0, message, tarn_host::default_base_hash, INV);
  walker.expectAllReached();
}

void expectEntriesInBounds(const Parsed& parsed) {
  for (uint32_t i = 0; i < parsed.size(); ++i) {
    const entry_t& e = parsed[i];
    if (e.raw_bytes != nullptr) {
      EXPECT_TRUE(parsed.inside(e.raw_bytes, e.raw_bytes_length)) << "entry " << i;
      if (e.string_rep != nullptr) {
        EXPECT_TRUE(parsed.inside(e.string_rep, e.string_rep_length)) << "entry " << i;
      }
    } else {
      EXPECT_EQ(0u, e.raw_bytes_length);
    }
    EXPECT_TRUE(e.parent == INV || e.parent < i) << "entry " << i;
    EXPECT_TRUE(e.first_child == INV || (e.first_child > i && e.first_child < parsed.size()));
    EXPECT_TRUE(e.next_sibling == INV || (e.next_sibling > i && e.next_sibling < parsed.size()));
  }
}

}  // namespace ptest
