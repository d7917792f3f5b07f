// Message input and output: files or the standard streams, wire format or
// text format, single messages or varint-length-delimited streams.
#ifndef TARN_TOOLS_TARNPB_INPUT_H
#define TARN_TOOLS_TARNPB_INPUT_H

#include <cstdint>
#include <string>
#include <vector>

namespace tarnpb {

// The whole file, or the standard input for "-". Throws ToolError (usage)
// with the system's reason when it cannot be read.
std::string readInput(const std::string& path_);

// Whether a file name says text format: .txtpb, .textproto, .pbtxt.
bool looksLikeText(const std::string& path_);

// A stream of messages, each behind its length as a varint.
struct Delimited {
  std::vector<std::pair<size_t, size_t>> messages;  // offset and length of each
  std::string error;  // why the stream ended early; empty when it was whole
};
Delimited splitDelimited(const std::string& data_);
void appendVarint(std::string& out_, uint64_t value_);

// Writes a binary body to path_, or to the standard output for "" or "-".
// Throws ToolError (usage) when the file cannot be written.
void writeOutput(const std::string& path_, const std::string& body_);
bool stdoutIsTerminal();

}  // namespace tarnpb

#endif
