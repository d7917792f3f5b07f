#include "random_message.h"

#include <google/protobuf/compiler/importer.h>

#include <limits>
#include <map>
#include <stdexcept>

#include "module_fixture.h"

namespace tarn_test {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

namespace {

class ThrowingCollector : public google::protobuf::compiler::MultiFileErrorCollector {
 public:
  void AddError(const std::string& file, int line, int column,
                const std::string& message) override {
    throw std::runtime_error(file + ":" + std::to_string(line) + ":" + std::to_string(column) +
                             ": " + message);
  }
};

template <typename T>
T pickInt(std::mt19937_64& rng) {
  switch (rng() % 6) {
    case 0:
      return 0;
    case 1:
      return static_cast<T>(-1);
    case 2:
      return std::numeric_limits<T>::max();
    case 3:
      return std::numeric_limits<T>::min();
    case 4:
      return static_cast<T>(rng() % 300);
    default:
      return static_cast<T>(rng());
  }
}

double pickDouble(std::mt19937_64& rng) {
  static const double values[] = {0.0, -0.0, 1.5, -2.25, 1e300, -1e-300, 123456789.0, 0.1};
  return rng() % 3 ? values[rng() % 8] : static_cast<double>(static_cast<int64_t>(rng())) / 7;
}

std::string pickText(std::mt19937_64& rng, bool binary) {
  std::string s(rng() % 12, ' ');
  for (char& c : s) c = binary ? static_cast<char>(rng()) : static_cast<char>(' ' + rng() % 95);
  return s;
}

void setOne(Message& m, const FieldDescriptor* f, std::mt19937_64& rng, int maxDepth) {
  const Reflection* r = m.GetReflection();
  const bool rep = f->is_repeated();
  switch (f->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32: {
      int32_t v = pickInt<int32_t>(rng);
      rep ? r->AddInt32(&m, f, v) : r->SetInt32(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_INT64: {
      int64_t v = pickInt<int64_t>(rng);
      rep ? r->AddInt64(&m, f, v) : r->SetInt64(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_UINT32: {
      uint32_t v = pickInt<uint32_t>(rng);
      rep ? r->AddUInt32(&m, f, v) : r->SetUInt32(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_UINT64: {
      uint64_t v = pickInt<uint64_t>(rng);
      rep ? r->AddUInt64(&m, f, v) : r->SetUInt64(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_DOUBLE: {
      double v = pickDouble(rng);
      rep ? r->AddDouble(&m, f, v) : r->SetDouble(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_FLOAT: {
      float v = static_cast<float>(pickDouble(rng));
      rep ? r->AddFloat(&m, f, v) : r->SetFloat(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_BOOL: {
      bool v = rng() & 1;
      rep ? r->AddBool(&m, f, v) : r->SetBool(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_ENUM: {
      const auto* e = f->enum_type();
      const auto* v = e->value(static_cast<int>(rng() % e->value_count()));
      rep ? r->AddEnum(&m, f, v) : r->SetEnum(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_STRING: {
      std::string v = pickText(rng, f->type() == FieldDescriptor::TYPE_BYTES);
      rep ? r->AddString(&m, f, v) : r->SetString(&m, f, v);
      break;
    }
    case FieldDescriptor::CPPTYPE_MESSAGE: {
      Message* child = rep ? r->AddMessage(&m, f) : r->MutableMessage(&m, f);
      fillRandom(*child, rng, maxDepth - 1);
      break;
    }
  }
}

}  // namespace

struct TestSchema::Impl {
  google::protobuf::compiler::DiskSourceTree tree;
  ThrowingCollector errors;
  std::unique_ptr<google::protobuf::compiler::Importer> importer;
  google::protobuf::DynamicMessageFactory factory;
};

TestSchema::TestSchema(const std::string& file) : _impl(std::make_shared<Impl>()) {
  _impl->tree.MapPath("", dataDir());
  _impl->importer.reset(new google::protobuf::compiler::Importer(&_impl->tree, &_impl->errors));
  if (_impl->importer->Import(file) == nullptr) throw std::runtime_error("cannot import " + file);
}

TestSchema& TestSchema::get(const std::string& file) {
  // Never destroyed, so the schemas stay reachable for the leak checker.
  static auto* schemas = new std::map<std::string, TestSchema*>();
  auto it = schemas->find(file);
  if (it == schemas->end()) it = schemas->emplace(file, new TestSchema(file)).first;
  return *it->second;
}

const Descriptor* TestSchema::type(const std::string& fullName) const {
  return _impl->importer->pool()->FindMessageTypeByName(fullName);
}

std::unique_ptr<Message> TestSchema::newMessage(const Descriptor* type) const {
  return std::unique_ptr<Message>(_impl->factory.GetPrototype(type)->New());
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

}  // namespace tarn_test
