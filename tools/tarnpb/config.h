// Where the schema lies and how the module is configured for it, from the
// command line. Two ways, one result: protoc's habits (-I, --proto, --type),
// or a server's own configuration given verbatim (--option KEY=VALUE), so
// that what the tool loads is exactly what the server will.
#ifndef TARN_TOOLS_TARNPB_CONFIG_H
#define TARN_TOOLS_TARNPB_CONFIG_H

#include <string>
#include <utility>
#include <vector>

namespace tarnpb {

class Args;

typedef std::pair<std::string, std::string> KeyValue;

struct SchemaConfig {
  // Search paths in order, each a virtual directory (empty: the root of the
  // virtual tree) and the disk directory it maps: what the module's ProtoPath
  // options map, and what the tool's own importer maps the same way.
  std::vector<KeyValue> protoPaths;
  std::string file;                    // in the virtual tree
  std::string type;                    // the root; empty until resolved with the tool's schema
  std::vector<std::string> moreTypes;  // further Type options: checked, not the root
  // --option KEY=VALUE in order. When there are any, the module is given
  // exactly these, and the fields above are read from them.
  std::vector<KeyValue> verbatim;
  // The directory of libprotobuf's well-known types when the tool added it to
  // the search path by itself (a server does not); empty otherwise.
  std::string addedWellKnown;

  static SchemaConfig fromArgs(const Args& args_);
  // The context options the module is given, in order.
  std::vector<KeyValue> moduleOptions() const;
};

// The --module value as dlopen should see it: a plain file name that exists
// in the working directory is that file, as for any other file argument
// (dlopen alone would search the library path instead).
std::string modulePathFromArgs(const Args& args_);

// Where libprotobuf's own .proto files (google/protobuf/*.proto) lie.
std::string wellKnownDir();

}  // namespace tarnpb

#endif
