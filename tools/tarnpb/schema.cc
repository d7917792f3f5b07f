#include "schema.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>

#include <sstream>

#include "cli.h"

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

Schema::Schema(const std::vector<std::string>& protoPaths_, const std::string& file_)
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

const gp::Descriptor* Schema::type(const std::string& fullName_) const {
  const gp::Descriptor* pType = _schema.type(fullName_);
  if (pType != nullptr) return pType;
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

bool Schema::sameMessage(const gp::Descriptor* type_, const std::string& a_,
                         const std::string& b_) const {
  // Compared field by field: cheaper than writing both out again.
  std::unique_ptr<gp::Message> a = _schema.newMessage(type_);
  std::unique_ptr<gp::Message> b = _schema.newMessage(type_);
  if (!a->ParsePartialFromString(a_) || !b->ParsePartialFromString(b_)) return false;
  return gp::util::MessageDifferencer::Equals(*a, *b);
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
