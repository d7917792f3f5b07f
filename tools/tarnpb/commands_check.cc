// check: two versions of a schema, each as a server is given it, compared
// under the module's rules, with the rollout order each change needs; sample
// bodies show the differences on real messages.
#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include "check_bodies.h"
#include "check_compare.h"
#include "commands.h"
#include "input.h"
#include "json_out.h"

namespace tarnpb {

namespace {

namespace gp = google::protobuf;

// One version: where its files lie, and the tool's view of its root type.
struct Version {
  SchemaConfig config;
  std::unique_ptr<Schema> schema;
  const gp::Descriptor* pRoot = nullptr;
};

bool isDirectory(const std::string& path_) {
  struct stat info;
  if (::stat(path_.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
  readInput(path_);  // throws with the system's reason
  throw ToolError(exit_usage, "cannot read " + path_);
}

// OLD or NEW as the server is given it: a directory holding --proto, or a
// .proto file whose directory is the search path. Either way the side's own
// directory comes first, then its own and the shared extra directories.
SchemaConfig versionConfig(const Args& args_, const std::string& side_,
                           const std::string& location_) {
  SchemaConfig config;
  config.file = args_.get(side_ + "-proto", args_.get("proto"));
  if (isDirectory(location_)) {
    if (config.file.empty())
      throw ToolError(exit_usage, location_ + " is a directory: name the file in it with --proto");
    config.protoPaths.emplace_back("", location_);
  } else {
    if (!config.file.empty())
      throw ToolError(exit_usage,
                      location_ + " is a file: --proto names a file in OLD and NEW directories");
    const size_t slash = location_.rfind('/');
    config.protoPaths.emplace_back("", slash == std::string::npos ? "."
                                       : slash == 0               ? "/"
                                                                  : location_.substr(0, slash));
    config.file = location_.substr(slash == std::string::npos ? 0 : slash + 1);
  }
  for (const auto& dir : args_.all(side_ + "-proto-path")) config.protoPaths.emplace_back("", dir);
  for (const auto& dir : args_.all("proto-path")) config.protoPaths.emplace_back("", dir);
  config.type = args_.get(side_ + "-type", args_.get("type"));
  return config;
}

void openVersion(Version& v_) {
  v_.schema.reset(new Schema(v_.config.protoPaths, v_.config.file));
  v_.pRoot = v_.schema->rootType(v_.config.type);
  v_.config.type = v_.pRoot->full_name();
}

std::vector<Change> rootGone(const Version& old_, const Version& new_) {
  Change gone;
  gone.kind = "root type gone";
  gone.before = old_.config.type;
  gone.effect = "Servers configured with Type " + old_.config.type + " refuse the context for " +
                new_.config.file +
                ": no message of this type can be parsed until every server, publisher and "
                "subscriber has moved to a new type. If it was renamed, name the new one with "
                "--new-type.";
  gone.parties = party_publishers | party_subscribers | party_find_sets | party_stored;
  gone.order = Order::coordinated;
  return {gone};
}

std::vector<SampleBody> loadBodies(const Args& args_, const Version& old_, const Version& new_) {
  std::vector<SampleBody> bodies;
  for (const auto& path : args_.all("body")) {
    const std::string data = readInput(path);
    if (args_.has("delimited")) {
      const Delimited stream = splitDelimited(data);
      if (!stream.error.empty())
        throw ToolError(exit_usage, path + " is not a delimited stream: " + stream.error);
      for (size_t i = 0; i < stream.messages.size(); ++i) {
        const auto& m = stream.messages[i];
        bodies.push_back({path + " #" + std::to_string(i + 1), data.substr(m.first, m.second)});
      }
    } else if (args_.has("text") || looksLikeText(path)) {
      // Written by hand against either version: the old one first.
      try {
        bodies.push_back({path, old_.schema->encode(old_.pRoot, data, path)});
      } catch (const ToolError&) {
        bodies.push_back({path, new_.schema->encode(new_.pRoot, data, path)});
      }
    } else {
      bodies.push_back({path, data});
    }
  }
  return bodies;
}

Order overall(const std::vector<Change>& changes_) {
  Order order = Order::any;
  for (const auto& c : changes_) order = combine(order, c.order);
  return order;
}

// When some changes need servers first and others publishers first, splitting
// them into two versions gives each its order.
bool twoVersions(const std::vector<Change>& changes_) {
  bool serversFirst = false, publishersFirst = false;
  for (const auto& c : changes_) {
    serversFirst = serversFirst || c.order == Order::serversFirst;
    publishersFirst = publishersFirst || c.order == Order::publishersFirst;
  }
  return serversFirst && publishersFirst;
}

// The closing verdict.
std::string rolloutText(const std::vector<Change>& changes_) {
  std::string text = orderText(overall(changes_));
  if (twoVersions(changes_))
    text +=
        " (some changes need servers first, others publishers first: roll them out as two "
        "versions)";
  return text;
}

// The disk directories a version searches, in order.
std::vector<std::string> diskDirs(const SchemaConfig& config_) {
  std::vector<std::string> dirs;
  for (const auto& path : config_.protoPaths) dirs.push_back(path.second);
  return dirs;
}

std::string joined(const std::vector<std::string>& parts_) {
  std::string out;
  for (const auto& p : parts_) out += (out.empty() ? "" : ", ") + p;
  return out.empty() ? "nobody" : out;
}

std::string versionLine(const char* label_, const Version& v_) {
  std::string dirs;
  for (const auto& d : v_.config.protoPaths) dirs += (dirs.empty() ? "" : ":") + d.second;
  return std::string(label_) + ": " + v_.config.file + " type " + v_.config.type + " (proto path " +
         dirs + ")";
}

void printPeople(const Version& old_, const Version& new_, const std::vector<Change>& changes_,
                 const std::vector<BodyReport>& bodies_) {
  std::printf("%s\n%s\n", versionLine("old", old_).c_str(), versionLine("new", new_).c_str());
  if (changes_.empty()) std::printf("no change reaches %s\n", new_.config.type.c_str());
  for (const auto& c : changes_) {
    std::printf("\n%s%s%s\n", c.kind.c_str(), c.path.empty() ? "" : ": ", c.path.c_str());
    if (!c.before.empty()) std::printf("  old: %s\n", c.before.c_str());
    if (!c.after.empty()) std::printf("  new: %s\n", c.after.c_str());
    if (!c.alsoAt.empty()) std::printf("  also at: %s\n", joined(c.alsoAt).c_str());
    std::printf("  %s\n  affects: %s\n  rollout: %s\n", c.effect.c_str(),
                joined(partyNames(c.parties)).c_str(), orderText(c.order));
  }
  for (const auto& b : bodies_) {
    std::printf("\nbody %s (%zu bytes): %s\n", b.name.c_str(), b.length,
                b.differences.empty() ? "the same under both versions" : "differs");
    for (const auto& d : b.differences) {
      std::printf("  %s%s%s\n    old: %s\n    new: %s\n", d.what.c_str(),
                  d.where.empty() ? "" : " ", d.where.c_str(), d.before.c_str(), d.after.c_str());
    }
  }
  std::printf("\nrollout: %s\n", rolloutText(changes_).c_str());
}

// A member whose empty text means none; "path" is "" for the root instead.
void field(JsonOut& out_, const char* name_, const std::string& value_) {
  out_.key(name_);
  if (value_.empty() && std::string(name_) != "path") {
    out_.null();
  } else {
    out_.string(value_);
  }
}

void printJsonReport(const Version& old_, const Version& new_, const std::vector<Change>& changes_,
                     const std::vector<BodyReport>& bodies_) {
  JsonOut out(stdout);
  out.beginObject();
  for (const Version* pVersion : {&old_, &new_}) {
    out.key(pVersion == &old_ ? "old" : "new").beginObject();
    field(out, "file", pVersion->config.file);
    field(out, "type", pVersion->config.type);
    out.key("proto_path").strings(diskDirs(pVersion->config));
    out.endObject();
  }
  out.key("changes").beginArray();
  for (const Change& c : changes_) {
    out.beginObject();
    field(out, "kind", c.kind);
    field(out, "path", c.path);
    field(out, "old", c.before);
    field(out, "new", c.after);
    out.key("also_at").strings(c.alsoAt);
    field(out, "effect", c.effect);
    out.key("affects").strings(partyNames(c.parties));
    field(out, "rollout", orderText(c.order));
    out.endObject();
  }
  out.endArray();
  out.key("bodies").beginArray();
  for (const BodyReport& b : bodies_) {
    out.beginObject();
    field(out, "body", b.name);
    out.key("bytes").unsignedInteger(b.length);
    out.key("differences").beginArray();
    for (const BodyDifference& d : b.differences) {
      out.beginObject();
      field(out, "what", d.what);
      field(out, "where", d.where);
      field(out, "old", d.before);
      field(out, "new", d.after);
      out.endObject();
    }
    out.endArray();
    out.endObject();
  }
  out.endArray();
  field(out, "rollout", orderText(overall(changes_)));
  out.key("safe").boolean(overall(changes_) == Order::any);
  out.key("two_versions").boolean(twoVersions(changes_));
  out.endObject();
}

int runCheck(const Args& args_) {
  Version oldVersion, newVersion;
  oldVersion.config = versionConfig(args_, "old", args_.positional()[0]);
  newVersion.config = versionConfig(args_, "new", args_.positional()[1]);
  openVersion(oldVersion);
  if (newVersion.config.type.empty()) newVersion.config.type = oldVersion.config.type;
  newVersion.schema.reset(new Schema(newVersion.config.protoPaths, newVersion.config.file));
  std::vector<Change> changes;
  std::vector<BodyReport> bodies;
  const bool named = args_.has("new-type");
  const std::vector<std::string> newTypes = newVersion.schema->messageTypes();
  bool found = false;
  for (const auto& t : newTypes) found = found || t == newVersion.config.type;
  if (!found && !named) {
    changes = rootGone(oldVersion, newVersion);
  } else {
    openVersion(newVersion);
    changes = compareSchemas(oldVersion.pRoot, newVersion.pRoot);
    if (args_.has("body")) {
      const std::vector<SampleBody> samples = loadBodies(args_, oldVersion, newVersion);
      const std::string module = args_.get("module", tarn_host::defaultModulePath());
      const bool quiet = args_.has("quiet");
      CheckModule oldModule(module, false, oldVersion.config, quiet);
      CheckModule newModule(module, true, newVersion.config, quiet);
      bodies =
          compareBodies(samples, {oldVersion.pRoot, &oldModule}, {newVersion.pRoot, &newModule});
    }
  }
  if (args_.has("json")) {
    printJsonReport(oldVersion, newVersion, changes, bodies);
  } else {
    printPeople(oldVersion, newVersion, changes, bodies);
  }
  return overall(changes) == Order::any ? exit_ok : exit_refused;
}

}  // namespace

Command checkCommand() {
  std::vector<OptionSpec> options = {
      {"proto-path", 'I', "DIR", true,
       "directory searched for imports by both versions, after their own directory"},
      {"proto", 'p', "FILE", false,
       "the file both versions are loaded as (the server's ProtoFile), when OLD and NEW are "
       "directories"},
      {"type", 't', "NAME", false,
       "full name of the root message type of both versions (default: the old file's only "
       "message)"},
      {"old-proto-path", 0, "DIR", true, "directory searched by the old version only"},
      {"new-proto-path", 0, "DIR", true, "directory searched by the new version only"},
      {"old-proto", 0, "FILE", false, "the old version's file, when it differs"},
      {"new-proto", 0, "FILE", false, "the new version's file, when it differs"},
      {"old-type", 0, "NAME", false, "the old version's root type, when it differs"},
      {"new-type", 0, "NAME", false, "the new version's root type, when it was renamed"},
      {"body", 'b', "FILE", true,
       "a sample body: parsed, traced and merged under both versions, differences shown"},
      {"text", 0, nullptr, false,
       "the bodies are protobuf text format (implied by .txtpb, .textproto, .pbtxt)"},
      {"delimited", 'd', nullptr, false,
       "each --body file is a stream of varint-length-delimited bodies"},
      {"json", 'j', nullptr, false,
       "print the report as JSON; \"two_versions\" is true when the changes need opposite "
       "orders and rolling them out as two versions gives each its own"},
  };
  for (const auto& o : moduleOptions()) options.push_back(o);
  return {{"check", "[options] OLD NEW",
           "Judge a schema change under the module's rules and name its rollout order.",
           "What each change does, who it affects and the rollout order that keeps it safe.\n"
           "OLD and NEW are the two versions, each a .proto file or a directory holding\n"
           "--proto. Fields are matched by number and message types by where they sit\n"
           "under the root type. Each change names its rollout: safe in any order, servers\n"
           "before publishers, publishers before servers, or not safe without a coordinated\n"
           "switch. With --body, each body is also parsed, traced and merged (into the body\n"
           "before it, the first into itself) by one module instance per version.\n"
           "Exit status 0 when every change is safe in any order, 1 when one needs an order\n"
           "or a coordinated switch.",
           options, 2, 2},
          runCheck};
}

}  // namespace tarnpb
