// raw: a body read without any schema, as protoc --decode_raw shows it: field
// numbers, varints as unsigned numbers, fixed-width values in hex, and
// length-delimited values as a nested message when they read as one, as a
// string otherwise. It reads through the same wire rules as the module.
#include <fmt/format.h>

#include <cstdio>
#include <iterator>

#include "body_check.h"
#include "commands.h"
#include "input.h"
#include "modules/message_type/protobuf/wire_format.h"
#include "wire_walk.h"

namespace tarnpb {

namespace {

// "\303\251" for bytes outside printable ASCII, as protoc escapes them.
void appendEscaped(std::string& out_, const char* p_, size_t length_) {
  for (size_t i = 0; i < length_; ++i) {
    const unsigned char c = static_cast<unsigned char>(p_[i]);
    switch (c) {
      case '\n':
        out_ += "\\n";
        break;
      case '\r':
        out_ += "\\r";
        break;
      case '\t':
        out_ += "\\t";
        break;
      case '"':
        out_ += "\\\"";
        break;
      case '\'':
        out_ += "\\'";
        break;
      case '\\':
        out_ += "\\\\";
        break;
      default:
        if (c >= 0x20 && c < 0x7F) {
          out_ += static_cast<char>(c);
        } else {
          fmt::format_to(std::back_inserter(out_), "\\{:03o}", c);
        }
    }
  }
}

class RawPrinter {
 public:
  explicit RawPrinter(std::string& out_) : _out(out_) {}

  // Prints the fields from p_ up to pEnd_, or up to the end of the group they
  // belong to and past it. Returns where it stopped.
  const char* level(const char* p_, const char* pEnd_, size_t indent_) {
    WireField f;
    while (p_ < pEnd_ && nextField(p_, pEnd_, f)) {
      if (f.wireType == 4) return p_;
      _out.append(indent_, ' ');
      _out += std::to_string(f.number);
      switch (f.wireType) {
        case VARINT:
          _out += ": " + std::to_string(f.value) + "\n";
          break;
        case FIXED64:
        case FIXED32:
          fmt::format_to(std::back_inserter(_out), ": 0x{:0{}x}\n", f.value,
                         f.wireType == FIXED64 ? 16 : 8);
          break;
        case LENGTH_DELIMITED:
          if (f.length != 0 && mayNest(static_cast<unsigned>(indent_ / 2)) &&
              firstUnreadable(f.pPayload, f.length) == std::string::npos) {
            _out += " {\n";
            level(f.pPayload, f.pPayload + f.length, indent_ + 2);
            _out.append(indent_, ' ');
            _out += "}\n";
          } else {
            _out += ": \"";
            appendEscaped(_out, f.pPayload, f.length);
            _out += "\"\n";
          }
          break;
        default:  // a group
          _out += " {\n";
          p_ = level(p_, pEnd_, indent_ + 2);
          _out.append(indent_, ' ');
          _out += "}\n";
      }
    }
    return p_;
  }

 private:
  std::string& _out;
};

int runRaw(const Args& args_) {
  const std::string path = args_.positional().empty() ? "-" : args_.positional()[0];
  const std::string data = readInput(path);
  const size_t bad = firstUnreadable(data);
  if (bad != std::string::npos) {
    throw ToolError(exit_refused, (path == "-" ? std::string("<stdin>") : path) +
                                      " is not protobuf wire format: byte " + std::to_string(bad) +
                                      " of " + std::to_string(data.size()) + " starts no field");
  }
  std::string out;
  RawPrinter(out).level(data.data(), data.data() + data.size(), 0);
  std::fwrite(out.data(), 1, out.size(), stdout);
  return exit_ok;
}

}  // namespace

Command rawCommand() {
  return {{"raw",
           "[MESSAGE]",
           "Show a message's fields without a schema, as protoc --decode_raw.",
           "MESSAGE is a file, or - (the default) for the standard input. Field numbers\n"
           "stand for names; varints show as unsigned numbers, fixed-width values in hex,\n"
           "and a length-delimited value as a nested message when it reads as one.",
           {},
           0,
           1},
          runRaw};
}

}  // namespace tarnpb
