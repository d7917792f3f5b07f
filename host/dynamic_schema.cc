#include "dynamic_schema.h"

#include <sstream>

namespace tarn_host {

namespace gp = google::protobuf;

namespace {

// Each directory as the root of the virtual tree.
std::vector<std::pair<std::string, std::string>> rootMappings(
    const std::vector<std::string>& dirs_) {
  std::vector<std::pair<std::string, std::string>> mappings;
  for (const std::string& dir : dirs_) mappings.emplace_back("", dir);
  return mappings;
}

}  // namespace

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
    : DynamicSchema(rootMappings(protoDirs_), file_) {}

DynamicSchema::DynamicSchema(const std::vector<std::pair<std::string, std::string>>& protoPaths_,
                             const std::string& file_)
    : _errors(new Errors) {
  for (const auto& path : protoPaths_) _tree.MapPath(path.first, path.second);
  _importer.reset(new gp::compiler::Importer(&_tree, _errors.get()));
  _pFile = _importer->Import(file_);
}

DynamicSchema::~DynamicSchema() = default;

const std::string& DynamicSchema::error() const { return _errors->first; }

const gp::Descriptor* DynamicSchema::type(const std::string& fullName_) const {
  return _importer->pool()->FindMessageTypeByName(fullName_);
}

std::unique_ptr<gp::Message> DynamicSchema::newMessage(const gp::Descriptor* type_) const {
  return std::unique_ptr<gp::Message>(prototype(type_)->New());
}

const gp::Message* DynamicSchema::prototype(const gp::Descriptor* type_) const {
  return _factory.GetPrototype(type_);
}

std::string DynamicSchema::diskFile(const std::string& virtualFile_) const {
  std::string disk;
  return _tree.VirtualFileToDiskFile(virtualFile_, &disk) ? disk : std::string();
}

}  // namespace tarn_host
