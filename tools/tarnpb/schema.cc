#include "schema.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <sstream>

#include "cli.h"
#include "did_you_mean.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

struct TextErrors : public gp::io::ErrorCollector {
  void AddError(int line_, gp::io::ColumnNumber column_, const std::string& message_) override {
    if (!first.empty()) return;
    std::ostringstream out;
    out << line_ + 1 << ":" << column_ + 1 << ": " << message_;
    first = out.str();
  }
  std::string first;
};

void collectTypes(const gp::Descriptor* type_, std::vector<std::string>& out_) {
  out_.push_back(type_->full_name());
  for (int i = 0; i < type_->nested_type_count(); ++i) collectTypes(type_->nested_type(i), out_);
}

}  // namespace

Schema::Schema(const std::vector<std::pair<std::string, std::string>>& protoPaths_,
               const std::string& file_)
    : _schema(protoPaths_, file_), _pFile(_schema.file()) {
  if (_pFile == nullptr) {
    const std::string& error = _schema.error();
    std::string why = error.empty() ? "not found in the proto path" : error;
    throw ToolError(exit_refused, "cannot load schema " + file_ + ": " + why);
  }
}

std::vector<std::string> Schema::messageTypes() const {
  std::vector<std::string> names;
  for (int i = 0; i < _pFile->message_type_count(); ++i)
    collectTypes(_pFile->message_type(i), names);
  return names;
}

namespace {

// The file and every file it imports, each once, the file first.
std::vector<const gp::FileDescriptor*> closureOf(const gp::FileDescriptor* pFile_) {
  std::vector<const gp::FileDescriptor*> files{pFile_};
  for (size_t i = 0; i < files.size(); ++i) {
    for (int d = 0; d < files[i]->dependency_count(); ++d) {
      const gp::FileDescriptor* pDependency = files[i]->dependency(d);
      if (std::find(files.begin(), files.end(), pDependency) == files.end())
        files.push_back(pDependency);
    }
  }
  return files;
}

}  // namespace

std::vector<std::string> Schema::knownTypes() const {
  std::vector<std::string> names;
  for (const gp::FileDescriptor* pFile : closureOf(_pFile))
    for (int i = 0; i < pFile->message_type_count(); ++i)
      collectTypes(pFile->message_type(i), names);
  return names;
}

std::vector<std::string> Schema::filesFrom(const std::string& dir_) const {
  std::vector<std::string> files;
  for (const gp::FileDescriptor* pFile : closureOf(_pFile)) {
    const std::string disk = _schema.diskFile(pFile->name());
    if (!disk.empty() && disk.compare(0, dir_.size() + 1, dir_ + "/") == 0)
      files.push_back(pFile->name());
  }
  return files;
}

const gp::Descriptor* Schema::type(const std::string& fullName_) const {
  const gp::Descriptor* pType = _schema.type(fullName_);
  if (pType != nullptr) return pType;
  const std::string close = didYouMean(fullName_, knownTypes());
  if (!close.empty())
    throw ToolError(exit_refused, "no message type " + fullName_ + " in " + _pFile->name() + close);
  std::string known;
  for (const auto& name : messageTypes()) known += (known.empty() ? "" : ", ") + name;
  throw ToolError(exit_refused, "no message type " + fullName_ + " in " + _pFile->name() +
                                    (known.empty() ? "" : " (it has " + known + ")"));
}

const gp::Descriptor* Schema::rootType(const std::string& fullName_) const {
  if (!fullName_.empty()) return type(fullName_);
  if (_pFile->message_type_count() == 1) return _pFile->message_type(0);
  std::string known;
  for (int i = 0; i < _pFile->message_type_count(); ++i)
    known += (i ? ", " : "") + _pFile->message_type(i)->full_name();
  if (known.empty()) throw ToolError(exit_refused, _pFile->name() + " defines no message type");
  throw ToolError(
      exit_usage,
      _pFile->name() + " has several message types; pick one with --type (" + known + ")");
}

std::string Schema::encode(const gp::Descriptor* type_, const std::string& text_,
                           const std::string& where_) const {
  std::unique_ptr<gp::Message> message = _schema.newMessage(type_);
  TextErrors errors;
  gp::TextFormat::Parser parser;
  parser.RecordErrorsTo(&errors);
  // Test messages may leave required fields out on purpose: the module does
  // not enforce them, and users want to see what it does then.
  parser.AllowPartialMessage(true);
  if (!parser.ParseFromString(text_, message.get())) {
    throw ToolError(
        exit_refused,
        where_ + ":" +
            (errors.first.empty() ? " not a text-format " + type_->full_name() : errors.first));
  }
  return message->SerializePartialAsString();
}

bool Schema::decode(const gp::Descriptor* type_, const std::string& wire_,
                    std::string& text_) const {
  std::unique_ptr<gp::Message> message = _schema.newMessage(type_);
  if (!message->ParsePartialFromString(wire_)) return false;
  return gp::TextFormat::PrintToString(*message, &text_);
}

bool Schema::canonical(const gp::Descriptor* type_, const std::string& wire_,
                       std::string& out_) const {
  // Written out rather than compared field by field: a reflective comparison
  // of a large message costs several times its parse. On an arena, which is
  // dropped whole instead of freeing the message object by object.
  gp::Arena arena;
  gp::Message* message = _schema.prototype(type_)->New(&arena);
  if (!message->ParsePartialFromString(wire_)) return false;
  out_.clear();
  gp::io::StringOutputStream stream(&out_);
  gp::io::CodedOutputStream coded(&stream);
  coded.SetSerializationDeterministic(true);
  return message->SerializePartialToCodedStream(&coded);
}

bool Schema::sameMessage(const gp::Descriptor* type_, const std::string& original_,
                         const std::string& rebuilt_) const {
  // canonical() is idempotent, so a rebuild whose canonical form is the
  // original's bytes has the original's canonical form too.
  std::string rebuiltForm, originalForm;
  if (!canonical(type_, rebuilt_, rebuiltForm)) return false;
  if (rebuiltForm == original_) return true;
  return canonical(type_, original_, originalForm) && originalForm == rebuiltForm;
}

const gp::FieldDescriptor* Schema::fieldAt(const gp::Descriptor* root_,
                                           const std::vector<std::string>& names_) {
  const gp::Descriptor* pLevel = root_;
  const gp::FieldDescriptor* pField = nullptr;
  for (const auto& name : names_) {
    if (pLevel == nullptr) return nullptr;
    pField = pLevel->FindFieldByName(name);
    if (pField == nullptr) return nullptr;
    pLevel = pField->message_type();
  }
  return pField;
}

std::string Schema::closestPath(const gp::Descriptor* root_,
                                const std::vector<std::string>& names_) {
  const gp::Descriptor* pLevel = root_;
  std::string path;
  for (const auto& name : names_) {
    if (pLevel == nullptr) return "";
    const gp::FieldDescriptor* pField = pLevel->FindFieldByName(name);
    if (pField == nullptr) {
      std::vector<std::string> fields;
      for (int i = 0; i < pLevel->field_count(); ++i) fields.push_back(pLevel->field(i)->name());
      const std::string close = closestName(name, fields);
      if (close.empty()) return "";
      pField = pLevel->FindFieldByName(close);
    }
    path += (path.empty() ? "" : ".") + pField->name();
    pLevel = pField->message_type();
  }
  return path;
}

std::vector<std::string> splitPath(const std::string& path_) {
  std::vector<std::string> names;
  size_t start = 0;
  for (;;) {
    const size_t dot = path_.find('.', start);
    const std::string part = path_.substr(start, dot == std::string::npos ? dot : dot - start);
    if (part.empty()) throw ToolError(exit_usage, "'" + path_ + "' is not a dotted field path");
    names.push_back(part);
    if (dot == std::string::npos) return names;
    start = dot + 1;
  }
}

}  // namespace tarnpb
