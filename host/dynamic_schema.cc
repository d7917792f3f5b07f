#include "dynamic_schema.h"

#include <sstream>

namespace tarn_host {

namespace gp = google::protobuf;

class DynamicSchema::Errors : public gp::compiler::MultiFileErrorCollector {
 public:
  void AddError(const std::string& filename_, int line_, int column_,
                const std::string& message_) override {
    if (!first.empty()) return;
    std::ostringstream out;
    out << filename_;
    if (line_ >= 0) out << ":" << line_ + 1 << ":" << column_ + 1;
    out << ": " << message_;
    first = out.str();
  }
  std::string first;
};

DynamicSchema::DynamicSchema(const std::vector<std::string>& protoDirs_, const std::string& file_)
    : _errors(new Errors) {
  for (const std::string& dir : protoDirs_) _tree.MapPath("", dir);
  _importer.reset(new gp::compiler::Importer(&_tree, _errors.get()));
  _pFile = _importer->Import(file_);
}

DynamicSchema::~DynamicSchema() = default;

const std::string& DynamicSchema::error() const { return _errors->first; }

const gp::Descriptor* DynamicSchema::type(const std::string& fullName_) const {
  return _importer->pool()->FindMessageTypeByName(fullName_);
}

std::unique_ptr<gp::Message> DynamicSchema::newMessage(const gp::Descriptor* type_) const {
  return std::unique_ptr<gp::Message>(_factory.GetPrototype(type_)->New());
}

}  // namespace tarn_host
