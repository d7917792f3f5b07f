#include <cstdio>
#include <regex>

#include "body_check.h"
#include "commands.h"
#include "diagnose.h"
#include "did_you_mean.h"
#include "host/module_driver.h"
#include "input.h"

namespace tarnpb {

const std::vector<Command>& commands() {
  static const std::vector<Command> all = {parseCommand(),     traceCommand(),  mergeCommand(),
                                           serializeCommand(), encodeCommand(), decodeCommand(),
                                           checkCommand(),     rawCommand(),    demoCommand()};
  return all;
}

namespace {

// Fields that do not fit the schema, named one by one before the rest are
// counted.
const size_t max_misfits_shown = 3;

// " (did you mean ...?)" when the module cannot find the type named and the
// schema has one close to it; what the module says comes first all the same.
std::string typeHint(const SchemaConfig& config_) {
  try {
    const Schema schema(config_.protoPaths, config_.file);
    for (const auto& name : schema.knownTypes())
      if (name == config_.type) return "";
    return didYouMean(config_.type, schema.knownTypes());
  } catch (const ToolError&) {
    return "";
  }
}

// The module logs an import error as "Error in tarn_protobuf parsing file F
// at line L column C: ..." with L and C counted from 0 (its log text is fixed);
// the tool's own messages say F:L:C counted from 1, as compilers do.
std::string oneBased(const std::string& text_) {
  static const std::regex located(
      "Error in tarn_protobuf parsing file (.*) at line (-?[0-9]+) column (-?[0-9]+): ");
  std::smatch m;
  if (!std::regex_search(text_, m, located)) return text_;
  const long line = std::stol(m[2]), column = std::stol(m[3]);
  std::string where = m[1].str();
  if (line >= 0) where += ":" + std::to_string(line + 1) + ":" + std::to_string(column + 1);
  return m.prefix().str() + where + ": " + m.suffix().str();
}

}  // namespace

std::unique_ptr<Workbench> Workbench::open(const Args& args_, bool withModule_) {
  return open(SchemaConfig::fromArgs(args_), modulePathFromArgs(args_), args_.has("quiet"),
              withModule_);
}

std::unique_ptr<Workbench> Workbench::open(const SchemaConfig& config_,
                                           const std::string& modulePath_, bool quiet_,
                                           bool withModule_) {
  std::unique_ptr<Workbench> bench(new Workbench);
  bench->config = config_;
  const bool moduleFirst = withModule_ && !config_.type.empty();
  if (moduleFirst) {
    bench->module.reset(new ModuleSession(modulePath_, quiet_));
    try {
      bench->module->createContext(bench->config);
    } catch (const ToolError& e) {
      throw ToolError(e.status(), oneBased(e.what()) + typeHint(config_));
    }
  }
  bench->schema.reset(new Schema(config_.protoPaths, config_.file));
  bench->pRoot = bench->schema->rootType(config_.type);
  bench->config.type = bench->pRoot->full_name();
  if (!config_.addedWellKnown.empty() && !quiet_) {
    for (const auto& file : bench->schema->filesFrom(config_.addedWellKnown)) {
      std::fprintf(stderr,
                   "tarnpb: note: %s is read from %s, which tarnpb searches by itself as protoc "
                   "does; a server needs the option ProtoPath=;%s for it\n",
                   file.c_str(), config_.addedWellKnown.c_str(), config_.addedWellKnown.c_str());
    }
  }
  if (withModule_ && !moduleFirst) {
    bench->module.reset(new ModuleSession(modulePath_, quiet_));
    bench->module->createContext(bench->config);
  }
  return bench;
}

std::string Workbench::loadMessage(const std::string& path_, bool forceText_) const {
  std::string data = readInput(path_);
  if (!forceText_ && !looksLikeText(path_)) return data;
  return schema->encode(pRoot, data, path_ == "-" ? "<stdin>" : path_);
}

ParseView Parsed::view(const Workbench& bench_, const std::string& title_) const {
  ParseView v;
  v.title = title_;
  v.typeName = bench_.config.type;
  v.pBody = &body;
  v.pSet = set.get();
  v.status = status;
  v.partial = partial;
  v.wide = wide;
  v.pRoot = bench_.pRoot;
  v.pKnownPaths = &knownPaths;
  return v;
}

namespace {

void parseInto(const Workbench& bench_, Parsed& parsed_, const tarn::tarn_xpath_hash_set* pFind_,
               std::unique_ptr<tarn_host::ValueSet> set_) {
  if (set_) {
    set_->clear();
    parsed_.set = std::move(set_);
  } else {
    parsed_.set.reset(new tarn_host::ValueSet());
  }
  parsed_.partial = pFind_ != nullptr;
  parsed_.status = bench_.module->parse(parsed_.body, *parsed_.set, pFind_);
}

}  // namespace

Parsed parseWith(const Workbench& bench_, std::string body_,
                 const tarn::tarn_xpath_hash_set* pFind_,
                 std::unique_ptr<tarn_host::ValueSet> set_) {
  Parsed parsed;
  parsed.body = std::move(body_);
  parseInto(bench_, parsed, pFind_, std::move(set_));
  return parsed;
}

std::future<BodyFit> parseChecked(const Workbench& bench_, Parsed& parsed_, std::string body_,
                                  const tarn::tarn_xpath_hash_set* pFind_) {
  parsed_.body = std::move(body_);
  std::future<BodyFit> fit = startFitCheck(bench_, parsed_.body);
  parseInto(bench_, parsed_, pFind_, nullptr);
  return fit;
}

void showParse(std::FILE* pOut_, const Workbench& bench_, const Parsed& parsed_,
               const std::string& title_) {
  printTree(pOut_, parsed_.view(bench_, title_));
}

std::string refusalDetail(const Workbench& bench_, const std::string& body_) {
  const std::string verdict = notProtobufVerdict(body_);
  return "; " + (verdict.empty() ? diagnose(bench_.pRoot, body_).text() : verdict);
}

std::future<BodyFit> startFitCheck(const Workbench& bench_, const std::string& body_,
                                   size_t budget_) {
  const google::protobuf::Descriptor* pRoot = bench_.pRoot;
  return std::async(std::launch::async, [pRoot, &body_, budget_] {
    return checkFit(pRoot, body_, max_misfits_shown, budget_);
  });
}

std::vector<std::string> misfitLines(const BodyFit& fit_) {
  std::vector<std::string> lines = fit_.misfits;
  if (fit_.moreMisfits != 0) {
    lines.push_back("and " + std::to_string(fit_.moreMisfits) +
                    " more fields that do not fit the schema");
  }
  return lines;
}

void warn(const char* command_, const std::string& line_) {
  std::fprintf(stderr, "tarnpb %s: warning: %s\n", command_, line_.c_str());
}

void warnMisfits(const char* command_, const BodyFit& fit_) {
  for (const auto& line : misfitLines(fit_)) warn(command_, line);
}

std::string throughputLine(const char* verb_, size_t messages_, size_t refused_, size_t bytes_,
                           const std::string& extra_, double seconds_) {
  char text[256];
  const double safe = seconds_ > 1e-9 ? seconds_ : 1e-9;
  std::snprintf(text, sizeof text,
                "%s %zu messages (%zu ok, %zu refused), %zu bytes, %s in %.3f ms: %.1f MB/s, "
                "%.0f messages/s",
                verb_, messages_, messages_ - refused_, refused_, bytes_, extra_.c_str(),
                seconds_ * 1e3, static_cast<double>(bytes_) / safe / 1e6,
                static_cast<double>(messages_) / safe);
  return text;
}

}  // namespace tarnpb
