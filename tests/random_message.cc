#include "random_message.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <map>
#include <stdexcept>
#include <vector>

#include "wire.h"

namespace tarn_test {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

namespace {

template <typename T>
T pickInt(std::mt19937_64& rng) {
  const T picks[] = {0,
                     static_cast<T>(-1),
                     std::numeric_limits<T>::max(),
                     std::numeric_limits<T>::min(),
                     static_cast<T>(rng() % 300),
                     static_cast<T>(rng())};
  return picks[rng() % 6];
}

double pickDouble(std::mt19937_64& rng) {
  static const double values[] = {0.0, -0.0, 1.5, -2.25, 1e300, -1e-300, 123456789.0, 0.1};
  return rng() % 3 ? values[rng() % 8] : static_cast<double>(static_cast<int64_t>(rng())) / 7;
}

// Sets (or adds, for a repeated field) one random value of f.
void setOne(Message& m, const FieldDescriptor* f, std::mt19937_64& rng, int maxDepth) {
  const Reflection* r = m.GetReflection();
  const bool rep = f->is_repeated();
#define SET(Kind, value) rep ? r->Add##Kind(&m, f, value) : r->Set##Kind(&m, f, value)
  switch (f->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32: SET(Int32, pickInt<int32_t>(rng)); break;
    case FieldDescriptor::CPPTYPE_INT64: SET(Int64, pickInt<int64_t>(rng)); break;
    case FieldDescriptor::CPPTYPE_UINT32: SET(UInt32, pickInt<uint32_t>(rng)); break;
    case FieldDescriptor::CPPTYPE_UINT64: SET(UInt64, pickInt<uint64_t>(rng)); break;
    case FieldDescriptor::CPPTYPE_DOUBLE: SET(Double, pickDouble(rng)); break;
    case FieldDescriptor::CPPTYPE_FLOAT: SET(Float, static_cast<float>(pickDouble(rng))); break;
    case FieldDescriptor::CPPTYPE_BOOL: SET(Bool, (rng() & 1) != 0); break;
    case FieldDescriptor::CPPTYPE_ENUM:
      SET(Enum, f->enum_type()->value(static_cast<int>(rng() % f->enum_type()->value_count())));
      break;
    case FieldDescriptor::CPPTYPE_STRING: {
      std::string s(rng() % 12, ' ');
      const bool binary = f->type() == FieldDescriptor::TYPE_BYTES;
      for (char& c : s) c = static_cast<char>(binary ? rng() : ' ' + rng() % 95);
      SET(String, s);
      break;
    }
    case FieldDescriptor::CPPTYPE_MESSAGE:
      fillRandom(rep ? *r->AddMessage(&m, f) : *r->MutableMessage(&m, f), rng, maxDepth - 1);
      break;
  }
#undef SET
}

// Element i_ of a repeated field, or the singular field's value (its default
// when unset), as tarn_test::value shows an entry of it.
std::string valueOf(const Message& m_, const FieldDescriptor* f_, int i_, bool isDefault_) {
  const Reflection* r = m_.GetReflection();
#define GET(Kind) (f_->is_repeated() ? r->GetRepeated##Kind(m_, f_, i_) : r->Get##Kind(m_, f_))
  char text[48];
  switch (f_->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32: return "=" + std::to_string(GET(Int32));
    case FieldDescriptor::CPPTYPE_INT64: return "=" + std::to_string(GET(Int64));
    case FieldDescriptor::CPPTYPE_UINT32: return "=" + std::to_string(GET(UInt32));
    case FieldDescriptor::CPPTYPE_UINT64: return "=" + std::to_string(int64_t(GET(UInt64)));
    case FieldDescriptor::CPPTYPE_BOOL: return GET(Bool) ? "=1" : "=0";
    case FieldDescriptor::CPPTYPE_ENUM: return "=" + std::to_string(GET(EnumValue));
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return std::snprintf(text, 48, "=d%.17g", GET(Double)), text;
    case FieldDescriptor::CPPTYPE_FLOAT:
      return std::snprintf(text, 48, "=d%.17g", GET(Float)), text;
    case FieldDescriptor::CPPTYPE_STRING: return (isDefault_ ? "S" : "s") + wire::hex(GET(String));
    case FieldDescriptor::CPPTYPE_MESSAGE: return "{}";
  }
#undef GET
  return "?";
}

// A level as tarn_test::tree shows it: the fields in wire order (libprotobuf
// writes them by number, as ListFields lists them), each message's entries
// below it, then the defaults of absent fields in declaration order.
void expectedLevel(const Message& m_, bool withDefaults_, size_t depth_, std::string& out_) {
  const Reflection* r = m_.GetReflection();
  auto line = [&](const FieldDescriptor* f, int i, bool isDefault) {
    out_ +=
        std::string(2 * depth_, ' ') + f->name() + " " + valueOf(m_, f, i, isDefault) +
        (f->is_required() ? " flags " + std::to_string(tarn_message_value_set_entry_flag_required)
                          : "") +
        (isDefault ? " default" : "") + "\n";
    if (f->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE)
      expectedLevel(i < 0 ? r->GetMessage(m_, f) : r->GetRepeatedMessage(m_, f, i), withDefaults_,
                    depth_ + 1, out_);
  };
  std::vector<const FieldDescriptor*> fields;
  r->ListFields(m_, &fields);
  for (const FieldDescriptor* f : fields)
    for (int i = 0; i < (f->is_repeated() ? r->FieldSize(m_, f) : 1); ++i)
      line(f, f->is_repeated() ? i : -1, false);
  const Descriptor* d = m_.GetDescriptor();
  for (int k = 0; k < d->field_count() && withDefaults_; ++k)
    if (d->field(k)->has_default_value() && !r->HasField(m_, d->field(k)))
      line(d->field(k), -1, true);
}

}  // namespace

TestSchema::TestSchema(const std::string& file, const std::string& dir)
    : _schema(std::make_shared<tarn_host::DynamicSchema>(std::vector<std::string>{dir}, file)) {
  if (_schema->file() == nullptr)
    throw std::runtime_error("cannot import " + file + ": " + _schema->error());
}

TestSchema& TestSchema::get(const std::string& file, const std::string& dir) {
  // Never destroyed, so the schemas stay reachable for the leak checker.
  static auto* schemas = new std::map<std::string, TestSchema*>();
  auto& slot = (*schemas)[dir + "|" + file];
  if (slot == nullptr) slot = new TestSchema(file, dir);
  return *slot;
}

const Descriptor* TestSchema::type(const std::string& fullName) const {
  return _schema->type(fullName);
}

std::unique_ptr<Message> TestSchema::newMessage(const Descriptor* type) const {
  return _schema->newMessage(type);
}

std::unique_ptr<Message> TestSchema::read(const Descriptor* type, const std::string& body) const {
  auto m = newMessage(type);
  if (!m->ParsePartialFromString(body)) m.reset();
  return m;
}

void fillRandom(Message& message, std::mt19937_64& rng, int maxDepth) {
  const Descriptor* d = message.GetDescriptor();
  for (int i = 0; i < d->field_count(); ++i) {
    const FieldDescriptor* f = d->field(i);
    if (f->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE && maxDepth <= 0) continue;
    if (f->is_repeated()) {
      if (rng() % 3 == 0) continue;
      for (int n = static_cast<int>(rng() % 5); n > 0; --n) setOne(message, f, rng, maxDepth);
    } else if (f->is_required() || rng() % 2 == 0) {
      setOne(message, f, rng, maxDepth);
    }
  }
}

std::string randomBody(const Descriptor* type, uint64_t seed, int maxDepth) {
  std::mt19937_64 rng(seed);
  auto message = TestSchema::get().newMessage(type);
  fillRandom(*message, rng, maxDepth);
  return message->SerializePartialAsString();
}

std::string expectedTree(const Message& message, bool withDefaults) {
  std::string out;
  expectedLevel(message, withDefaults, 0, out);
  return out;
}

}  // namespace tarn_test
