// The subcommands of tarnpb and what they share: a session with the module and
// the tool's own schema, message loading, and showing a parse.
#ifndef TARN_TOOLS_TARNPB_COMMANDS_H
#define TARN_TOOLS_TARNPB_COMMANDS_H

#include <cstdio>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "body_check.h"
#include "cli.h"
#include "module_session.h"
#include "printers.h"
#include "schema.h"

namespace tarnpb {

struct Command {
  CommandSpec spec;
  int (*run)(const Args& args_);
};

// Every subcommand, in the order the help lists them.
const std::vector<Command>& commands();

Command parseCommand();
Command traceCommand();
Command mergeCommand();
Command serializeCommand();
Command encodeCommand();
Command decodeCommand();
Command rawCommand();
Command demoCommand();
Command checkCommand();

// The module with a context for the schema, and the tool's own view of the
// same schema. The module is asked first when the type is named, so that an
// unknown type is reported with the module's reason.
struct Workbench {
  SchemaConfig config;
  std::unique_ptr<Schema> schema;
  std::unique_ptr<ModuleSession> module;
  const google::protobuf::Descriptor* pRoot = nullptr;

  // withModule_ false: the tool's schema only (encode, decode).
  static std::unique_ptr<Workbench> open(const Args& args_, bool withModule_ = true);
  static std::unique_ptr<Workbench> open(const SchemaConfig& config_,
                                         const std::string& modulePath_, bool quiet_,
                                         bool withModule_ = true);

  // A message from a file or "-": wire format, or text format (encoded here
  // with libprotobuf) when forceText_ is set or the name says so.
  std::string loadMessage(const std::string& path_, bool forceText_) const;
};

// A body parsed by the module into a value set of its own.
struct Parsed {
  std::string body;
  std::unique_ptr<tarn_host::ValueSet> set;
  int status = 0;
  bool partial = false;
  bool wide = false;  // show values the tree cuts whole, too
  std::map<uint32_t, std::string> knownPaths;

  ParseView view(const Workbench& bench_, const std::string& title_) const;
};

// set_, when given, is cleared and filled again: its storage is already
// allocated and touched, which a large message makes worth keeping.
Parsed parseWith(const Workbench& bench_, std::string body_,
                 const tarn::tarn_xpath_hash_set* pFind_ = nullptr,
                 std::unique_ptr<tarn_host::ValueSet> set_ = nullptr);
// The same into parsed_, with the tool's check of the body against its
// schema (startFitCheck) running beside the module's parse. Both read the body
// where parsed_ holds it, so a large message is held once; parsed_ must
// outlive the result.
std::future<BodyFit> parseChecked(const Workbench& bench_, Parsed& parsed_, std::string body_,
                                  const tarn::tarn_xpath_hash_set* pFind_ = nullptr);

// The module's delta-publish merge of two parsed messages, into an output
// segment the host sized for it. update_ is empty afterwards. Throws ToolError
// (refused) when the sets cannot be merged or the module overran its room.
std::string mergeBodies(const ModuleSession& module_, tarn_host::ValueSet& update_,
                        tarn_host::ValueSet& stored_);

// Shows a parse as a tree.
void showParse(std::FILE* pOut_, const Workbench& bench_, const Parsed& parsed_,
               const std::string& title_);

// What the tool's own walk over body_ finds wrong, for the end of a line that
// reports the module's refusal: "; at byte 7, ...".
std::string refusalDetail(const Workbench& bench_, const std::string& body_);

// The schema-guided check of an accepted body (body_check.h), started on a
// thread of its own beside the module's work; body_ must outlive the result.
std::future<BodyFit> startFitCheck(const Workbench& bench_, const std::string& body_,
                                   size_t budget_ = 0);
// "tarnpb COMMAND: warning: LINE" on standard error.
void warn(const char* command_, const std::string& line_);
// Warns of the fields of an accepted body whose wire type their declared type
// never has: the module stores them all the same, so a body of another type
// passes unnoticed.
void warnMisfits(const char* command_, const BodyFit& fit_);
// The same warnings without the command's name, one a line.
std::vector<std::string> misfitLines(const BodyFit& fit_);

// "parsed 12 messages ..." for --delimited runs.
// extra_ (e.g. "812 entries") follows the byte count.
std::string throughputLine(const char* verb_, size_t messages_, size_t refused_, size_t bytes_,
                           const std::string& extra_, double seconds_);

}  // namespace tarnpb

#endif
