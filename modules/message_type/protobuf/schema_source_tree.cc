#include "schema_source_tree.h"

#include <fcntl.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "schema_text.h"

namespace io = google::protobuf::io;

namespace {

// A stream over a file's checked contents, which it owns.
class owned_text_stream : public io::ZeroCopyInputStream {
 public:
  explicit owned_text_stream(std::string&& text_)
      : _text(std::move(text_)), _stream(_text.data(), static_cast<int>(_text.size())) {}

  bool Next(const void** ppData_, int* pSize_) override { return _stream.Next(ppData_, pSize_); }
  void BackUp(int count_) override { _stream.BackUp(count_); }
  bool Skip(int count_) override { return _stream.Skip(count_); }
  int64_t ByteCount() const override { return _stream.ByteCount(); }

 private:
  std::string _text;
  io::ArrayInputStream _stream;
};

bool startsWith(const std::string& text_, const std::string& prefix_) {
  return text_.compare(0, prefix_.size(), prefix_) == 0;
}

bool endsWith(const std::string& text_, const std::string& suffix_) {
  return text_.size() >= suffix_.size() &&
         text_.compare(text_.size() - suffix_.size(), suffix_.size(), suffix_) == 0;
}

// The path rules of libprotobuf's DiskSourceTree, kept identical so that a
// name resolves to the same disk file as it always did: "." parts and repeated
// slashes dropped, a leading and a trailing slash kept.
std::string canonicalPath(const std::string& path_) {
  std::string result;
  size_t start = 0;
  while (start <= path_.size()) {
    size_t end = path_.find('/', start);
    if (end == std::string::npos) end = path_.size();
    const std::string part = path_.substr(start, end - start);
    if (!part.empty() && part != ".") {
      if (!result.empty()) result += '/';
      result += part;
    }
    start = end + 1;
  }
  if (!path_.empty() && path_[0] == '/') result.insert(0, 1, '/');
  if (!path_.empty() && path_.back() == '/' && !result.empty() && result.back() != '/')
    result += '/';
  return result;
}

bool hasParentReference(const std::string& path_) {
  return path_ == ".." || startsWith(path_, "../") || endsWith(path_, "/..") ||
         path_.find("/../") != std::string::npos;
}

// Where a virtual name lies under one mapping, as DiskSourceTree applies it.
bool applyMapping(const std::string& name_, const std::string& virtual_, const std::string& disk_,
                  std::string& result_) {
  std::string rest;
  if (virtual_.empty()) {
    if (hasParentReference(name_) || startsWith(name_, "/")) return false;
    rest = name_;
  } else if (startsWith(name_, virtual_)) {
    if (name_.size() == virtual_.size()) {
      result_ = disk_;
      return true;
    }
    size_t after;
    if (name_[virtual_.size()] == '/')
      after = virtual_.size() + 1;
    else if (virtual_.back() == '/')
      after = virtual_.size();
    else
      return false;
    rest = name_.substr(after);
    if (hasParentReference(rest)) return false;
  } else {
    return false;
  }
  result_ = disk_;
  if (!result_.empty()) result_ += '/';
  result_ += rest;
  return true;
}

enum read_result { read_complete, read_too_large, read_binary, read_failed };

// The whole of an open regular file, stopping early at more than limit_ bytes
// or at a NUL byte, so that a wrong file costs little to refuse.
read_result readAll(int fd_, size_t expected_, size_t limit_, std::string& text_) {
  text_.reserve(std::min(expected_, limit_) + 1);
  text_.resize(std::min<size_t>(expected_, 64 * 1024) + 1);
  size_t filled = 0;
  for (;;) {
    if (filled == text_.size()) {
      if (text_.size() > limit_) return read_too_large;
      text_.resize(std::min(limit_ + 1, text_.size() * 2));
    }
    // In pieces, so that a binary file is known by its first one.
    const size_t piece = std::min<size_t>(text_.size() - filled, 64 * 1024);
    const ssize_t n = ::read(fd_, &text_[filled], piece);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return read_failed;
    if (n == 0) break;
    if (std::memchr(&text_[filled], '\0', static_cast<size_t>(n)) != nullptr) return read_binary;
    filled += static_cast<size_t>(n);
  }
  text_.resize(filled);
  return filled > limit_ ? read_too_large : read_complete;
}

}  // namespace

void schema_source_tree::MapPath(const std::string& virtual_path, const std::string& disk_path) {
  _mappings.push_back(mapping{virtual_path, canonicalPath(disk_path)});
  try {
    DiskSourceTree::MapPath(virtual_path, disk_path);
  } catch (...) {
    _mappings.pop_back();
    throw;
  }
}

void schema_source_tree::beginImport() { _stackLimit = schema_text::stackLimit(); }

std::string schema_source_tree::GetLastErrorMessage() { return _lastError; }

io::ZeroCopyInputStream* schema_source_tree::Open(const std::string& filename) {
  try {
    return _open(filename);
  } catch (const std::bad_alloc&) {
    // The importer reports this like any file it cannot open; its pool is
    // left as it was before the file was asked for.
    _lastError.clear();
    _lastError.shrink_to_fit();
    try {
      _lastError = "out of memory while reading the file";
    } catch (const std::bad_alloc&) {
    }
    return nullptr;
  }
}

io::ZeroCopyInputStream* schema_source_tree::_open(const std::string& filename_) {
  if (filename_ != canonicalPath(filename_) || hasParentReference(filename_)) {
    _lastError =
        "Backslashes, consecutive slashes, \".\", or \"..\" are not allowed in the virtual path";
    return nullptr;
  }
  std::string text;
  for (const mapping& m : _mappings) {
    std::string diskFile;
    if (!applyMapping(filename_, m.virtualPath, m.diskPath, diskFile)) continue;
    const outcome found = _openCandidate(diskFile, text);
    if (found == refused) return nullptr;
    if (found == opened) return new owned_text_stream(std::move(text));
  }
  _lastError = "File not found.";
  return nullptr;
}

// A candidate that does not exist, or is a directory, passes the search on to
// the next mapping, as in DiskSourceTree; any other refusal ends the search.
schema_source_tree::outcome schema_source_tree::_openCandidate(const std::string& diskFile_,
                                                               std::string& text_) {
  struct stat info;
  int status;
  do status = ::stat(diskFile_.c_str(), &info);
  while (status != 0 && errno == EINTR);
  if (status != 0 || S_ISDIR(info.st_mode)) {
    if (status != 0 && errno == EACCES) {
      _lastError = "Read access is denied for file: " + diskFile_;
      return refused;
    }
    return absent;
  }
  if (!S_ISREG(info.st_mode)) {
    _lastError = diskFile_ + " is not a regular file";
    return refused;
  }
  int fd;
  do fd = ::open(diskFile_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    if (errno != EACCES) return absent;
    _lastError = "Read access is denied for file: " + diskFile_;
    return refused;
  }
  // The name may have been replaced since stat: the open file decides.
  read_result result = read_failed;
  bool regular = false;
  try {
    regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    if (regular)
      result =
          static_cast<uint64_t>(info.st_size) > schema_text::max_file_bytes
              ? read_too_large
              : readAll(fd, static_cast<size_t>(info.st_size), schema_text::max_file_bytes, text_);
  } catch (...) {
    ::close(fd);
    throw;
  }
  ::close(fd);
  if (!regular)
    _lastError = diskFile_ + " is not a regular file";
  else if (result == read_too_large)
    _lastError =
        diskFile_ + " is larger than " + std::to_string(schema_text::max_file_bytes >> 20) + " MB";
  else if (result == read_binary)
    _lastError = diskFile_ + " holds binary content (a NUL byte), not .proto text";
  else if (result == read_failed)
    _lastError = diskFile_ + " cannot be read";
  if (result != read_complete) return refused;
  const size_t left = schema_text::stackLeft(_stackLimit);
  const unsigned allowed = schema_text::allowedNesting(left);
  if (left < schema_text::stack_per_file) {
    _lastError = diskFile_ + " is imported too deep for this thread's stack";
    return refused;
  }
  const schema_text::nesting n = schema_text::scanNesting(text_.data(), text_.size(), allowed);
  if (n.deepest > allowed) {
    _lastError = diskFile_ + " nests blocks " + std::to_string(n.deepest) + " deep, past the " +
                 std::to_string(allowed) + " levels allowed on this thread (line " +
                 std::to_string(n.line) + " column " + std::to_string(n.column) + ")";
    return refused;
  }
  return opened;
}
