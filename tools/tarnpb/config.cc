#include "config.h"

#include <sys/stat.h>

#include "cli.h"
#include "host/module_driver.h"

namespace tarnpb {

namespace {

bool exists(const std::string& path_) {
  struct stat info;
  return ::stat(path_.c_str(), &info) == 0;
}

bool startsWith(const std::string& text_, const std::string& head_) {
  return text_.compare(0, head_.size(), head_) == 0;
}

std::string withoutTrailingSlash(std::string dir_) {
  while (dir_.size() > 1 && dir_.back() == '/') dir_.pop_back();
  return dir_;
}

// The module's reading of its options: ProtoPath and ProtoFile by their whole
// key, Type by its first four characters, a ProtoPath value split at its
// first ';' (one without is ignored).
void readVerbatim(SchemaConfig& config_) {
  for (const auto& option : config_.verbatim) {
    if (option.first == "ProtoPath") {
      const size_t semicolon = option.second.find(';');
      if (semicolon != std::string::npos)
        config_.protoPaths.emplace_back(option.second.substr(0, semicolon),
                                        option.second.substr(semicolon + 1));
    } else if (option.first == "ProtoFile") {
      if (config_.file.empty()) config_.file = option.second;
    } else if (option.first.compare(0, 4, "Type") == 0) {
      if (config_.type.empty()) {
        config_.type = option.second;
      } else {
        config_.moreTypes.push_back(option.second);
      }
    }
  }
  if (config_.file.empty())
    throw ToolError(exit_usage, "the --option list names no ProtoFile, so no schema is loaded");
}

// protoc's habits: the --proto file named in the virtual tree, or by a disk
// path under one of the -I directories; without -I, the file's own directory
// is the search path, or the well-known types' directory for their names.
void readProtocStyle(const Args& args_, SchemaConfig& config_) {
  config_.file = args_.get("proto");
  if (config_.file.empty()) throw ToolError(exit_usage, "a schema is needed: --proto FILE");
  for (const auto& dir : args_.all("proto-path"))
    config_.protoPaths.emplace_back("", withoutTrailingSlash(dir));
  if (config_.protoPaths.empty()) {
    const size_t slash = config_.file.rfind('/');
    if (!exists(config_.file) && exists(wellKnownDir() + "/" + config_.file)) {
      config_.protoPaths.emplace_back("", wellKnownDir());
    } else if (slash == std::string::npos) {
      config_.protoPaths.emplace_back("", ".");
    } else {
      config_.protoPaths.emplace_back("", slash == 0 ? "/" : config_.file.substr(0, slash));
      config_.file = config_.file.substr(slash + 1);
    }
  } else {
    bool found = false;
    for (const auto& path : config_.protoPaths)
      found = found || exists(path.second + "/" + config_.file);
    for (const auto& path : config_.protoPaths) {
      const std::string head = path.second == "/" ? "/" : path.second + "/";
      if (!found && startsWith(config_.file, head)) {
        config_.file = config_.file.substr(head.size());
        found = true;
      }
    }
    if (!found && config_.file[0] == '/')
      throw ToolError(exit_usage, "--proto " + config_.file +
                                      " lies under none of the --proto-path directories");
  }
  // Imports of google/protobuf/*.proto resolve as protoc resolves them.
  const std::string wellKnown = wellKnownDir();
  bool listed = false;
  for (const auto& path : config_.protoPaths) listed = listed || path.second == wellKnown;
  if (!listed) {
    config_.protoPaths.emplace_back("", wellKnown);
    config_.addedWellKnown = wellKnown;
  } else if (args_.all("proto-path").empty()) {
    config_.addedWellKnown = wellKnown;
  }
  const auto& types = args_.all("type");
  if (!types.empty()) {
    config_.type = types[0];
    config_.moreTypes.assign(types.begin() + 1, types.end());
  }
}

}  // namespace

SchemaConfig SchemaConfig::fromArgs(const Args& args_) {
  SchemaConfig config;
  for (const auto& option : args_.all("option")) {
    const size_t eq = option.find('=');
    if (eq == std::string::npos || eq == 0)
      throw ToolError(exit_usage, "--option wants KEY=VALUE, not '" + option + "'");
    config.verbatim.emplace_back(option.substr(0, eq), option.substr(eq + 1));
  }
  if (config.verbatim.empty()) {
    readProtocStyle(args_, config);
  } else if (args_.has("proto") || args_.has("proto-path") || args_.has("type")) {
    throw ToolError(exit_usage,
                    "--option gives the module's whole configuration: name the schema with "
                    "--option ProtoPath=..., ProtoFile=..., Type=... instead of -I, --proto "
                    "and --type");
  } else {
    readVerbatim(config);
  }
  return config;
}

std::vector<KeyValue> SchemaConfig::moduleOptions() const {
  if (!verbatim.empty()) return verbatim;
  std::vector<KeyValue> options;
  for (const auto& path : protoPaths)
    options.emplace_back("ProtoPath", path.first + ";" + path.second);
  options.emplace_back("ProtoFile", file);
  options.emplace_back("Type", type);
  for (const auto& more : moreTypes) options.emplace_back("Type", more);
  return options;
}

std::string modulePathFromArgs(const Args& args_) {
  if (!args_.has("module")) return tarn_host::defaultModulePath();
  const std::string path = args_.get("module");
  if (path.find('/') == std::string::npos && exists(path)) return "./" + path;
  return path;
}

std::string wellKnownDir() { return TARNPB_WELL_KNOWN_DIR; }

}  // namespace tarnpb
