#include "input.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "modules/message_type/protobuf/wire_format.h"

namespace tarnpb {

namespace {

bool endsWith(const std::string& text_, const std::string& tail_) {
  return text_.size() >= tail_.size() &&
         text_.compare(text_.size() - tail_.size(), tail_.size(), tail_) == 0;
}

std::string readAll(std::FILE* pFile_, const std::string& shown_) {
  std::string data;
  char chunk[1 << 16];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, pFile_)) != 0) data.append(chunk, n);
  if (std::ferror(pFile_)) throw ToolError(exit_usage, "cannot read " + shown_ + ": read error");
  return data;
}

}  // namespace

std::string readInput(const std::string& path_) {
  if (path_ == "-") return readAll(stdin, "the standard input");
  std::FILE* pFile = std::fopen(path_.c_str(), "rb");
  if (pFile == nullptr)
    throw ToolError(exit_usage, "cannot read " + path_ + ": " + std::strerror(errno));
  try {
    std::string data = readAll(pFile, path_);
    std::fclose(pFile);
    return data;
  } catch (...) {
    // A directory opens but does not read.
    std::fclose(pFile);
    throw;
  }
}

bool looksLikeText(const std::string& path_) {
  return endsWith(path_, ".txtpb") || endsWith(path_, ".textproto") || endsWith(path_, ".pbtxt");
}

Delimited splitDelimited(const std::string& data_) {
  Delimited out;
  const wire_body body = {data_.data(), data_.data() + data_.size()};
  wire_cursor in(body);
  while (in.more()) {
    const size_t start = static_cast<size_t>(in.position() - body.pStart);
    uint64_t length = 0;
    if (!in.readVarint(length)) {
      out.error = "length prefix at byte " + std::to_string(start) + " is cut off";
      return out;
    }
    if (length > in.left()) {
      out.error = "message " + std::to_string(out.messages.size() + 1) + " at byte " +
                  std::to_string(start) + " claims " + std::to_string(length) + " bytes, " +
                  std::to_string(in.left()) + " remain";
      return out;
    }
    out.messages.emplace_back(static_cast<size_t>(in.position() - body.pStart),
                              static_cast<size_t>(length));
    in.skip(static_cast<size_t>(length));
  }
  return out;
}

void appendVarint(std::string& out_, uint64_t value_) {
  char bytes[max_varint_bytes];
  char* pEnd = bytes;
  writeVarint(pEnd, value_);
  out_.append(bytes, static_cast<size_t>(pEnd - bytes));
}

void writeOutput(const std::string& path_, const std::string& body_) {
  if (path_.empty() || path_ == "-") {
    std::fwrite(body_.data(), 1, body_.size(), stdout);
    std::fflush(stdout);
    return;
  }
  std::FILE* pFile = std::fopen(path_.c_str(), "wb");
  if (pFile == nullptr)
    throw ToolError(exit_usage, "cannot write " + path_ + ": " + std::strerror(errno));
  const bool ok = std::fwrite(body_.data(), 1, body_.size(), pFile) == body_.size();
  if (std::fclose(pFile) != 0 || !ok)
    throw ToolError(exit_usage, "cannot write " + path_ + ": " + std::strerror(errno));
}

bool stdoutIsTerminal() { return ::isatty(STDOUT_FILENO) == 1; }

}  // namespace tarnpb
