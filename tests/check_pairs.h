// Pairs of schema versions for tarnpb check's tests: a base schema, edits
// made to it at test time, the two versions written to old/ and new/, and the
// verdicts read back from the report.
#ifndef TARN_TESTS_CHECK_PAIRS_H
#define TARN_TESTS_CHECK_PAIRS_H

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tool_run.h"

namespace tarn_test {
namespace check_pairs {

using tool_run::quote;
using tool_run::scratch;

const char* const base = R"(syntax = "proto2";
package t;
message Inner {
  optional string s = 1;
  optional int32 d = 2 [default = 7];
}
enum Color { RED = 0; GREEN = 1; }
message M {
  optional int32 a = 1;
  optional Inner n = 2;
  repeated int32 r = 3;
  optional fixed32 f = 4;
  optional string s = 5;
  optional Color c = 6;
  optional float x = 7;
  optional int64 big = 8;
  optional bytes raw = 9;
  optional uint32 u = 10;
  optional string tag = 11 [default = "none"];
  repeated Inner items = 12;
  oneof choice {
    int32 left = 13;
    string right = 14;
  }
}
)";

inline std::string edited(std::string text,
                          const std::vector<std::pair<std::string, std::string>>& edits) {
  for (const auto& e : edits) {
    const size_t at = text.find(e.first);
    if (at == std::string::npos) return "edit not found: " + e.first;
    text.replace(at, e.first.size(), e.second);
  }
  return text;
}

// A directory holding the old and the new version of a file, in old/ and new/.
inline std::string versions(const std::string& file, const std::string& oldText,
                            const std::string& newText) {
  const std::string name = uniqueName("check");
  scratch().write(name + "/old/" + file, oldText);
  scratch().write(name + "/new/" + file, newText);
  return scratch().path() + "/" + name;
}

// The two versions of m.proto, as check's arguments.
inline std::string pair(const std::string& oldText, const std::string& newText) {
  const std::string dir = versions("m.proto", oldText, newText);
  return quote(dir + "/old") + " " + quote(dir + "/new");
}

// "kind: path | affects | rollout" for each change, then the closing verdict.
inline std::vector<std::string> verdicts(const std::string& out) {
  std::vector<std::string> lines, found;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::string current, affects;
  for (const auto& line : lines) {
    if (line.rfind("old: ", 0) == 0 || line.rfind("new: ", 0) == 0) continue;
    if (line.rfind("rollout: ", 0) == 0) {
      found.push_back(line);
    } else if (line.rfind("  affects: ", 0) == 0) {
      affects = line.substr(11);
    } else if (line.rfind("  rollout: ", 0) == 0) {
      found.push_back(current + " | " + affects + " | " + line.substr(11));
    } else if (!line.empty() && line[0] != ' ') {
      current = line;
    }
  }
  return found;
}

const std::string any = "rollout: safe in any order";
const std::string coordinated = "rollout: not safe without a coordinated switch";
const std::string serversFirst = "rollout: servers before publishers";
const std::string publishersFirst = "rollout: publishers before servers";
const std::string all = "publishers, subscribers, find sets, stored messages, traces";

}  // namespace check_pairs
}  // namespace tarn_test

#endif
