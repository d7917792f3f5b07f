// The importer's view of the disk: libprotobuf's DiskSourceTree, with the same
// mappings, search order and virtual names, that opens only what can be schema
// text. A match that is not a regular file (a FIFO, a device, a socket) is
// refused without being opened, so nothing blocks or streams forever; a file
// over schema_text::max_file_bytes is refused unread; a file holding a NUL byte
// is binary, not .proto text; a file nested deeper than the calling thread's
// stack allows is refused before the recursive parser sees it. Each refusal
// reaches the error collector as the one import error of that file, with the
// reason in its message.
//
// A file that passes is read whole into memory and handed to the parser as a
// stream over that copy, so the parser reads exactly the bytes checked here.
#ifndef TARN_PROTOBUF_SCHEMA_SOURCE_TREE_H
#define TARN_PROTOBUF_SCHEMA_SOURCE_TREE_H

#include <google/protobuf/compiler/importer.h>

#include <cstdint>
#include <string>
#include <vector>

class schema_source_tree : public google::protobuf::compiler::DiskSourceTree {
 public:
  // Adds a mapping behind every earlier one, here and in the base tree alike.
  // Either both hold it or, when memory runs out, neither does.
  void MapPath(const std::string& virtual_path, const std::string& disk_path);

  // Called on the thread that is about to import, before the import: the
  // nesting allowed to each file opened is measured from this thread's stack.
  void beginImport();

  // Returns a stream over the checked contents of the first mapped match, or
  // null with the reason kept for GetLastErrorMessage. Never throws: running
  // out of memory while reading is a refusal of that file like any other.
  google::protobuf::io::ZeroCopyInputStream* Open(const std::string& filename) override;
  std::string GetLastErrorMessage() override;

 private:
  struct mapping {
    std::string virtualPath;
    std::string diskPath;
  };

  // What became of one disk candidate.
  enum outcome { absent, refused, opened };
  outcome _openCandidate(const std::string& diskFile_, std::string& text_);
  google::protobuf::io::ZeroCopyInputStream* _open(const std::string& filename_);

  std::vector<mapping> _mappings;
  std::string _lastError;
  uintptr_t _stackLimit = 0;
};

#endif
