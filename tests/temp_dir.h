// A scratch directory for schema files, removed with the object.
#ifndef TARN_TESTS_TEMP_DIR_H
#define TARN_TESTS_TEMP_DIR_H

#include <string>

namespace tarn_test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return _path; }
  // Writes `text` to `relative` (parent directories are created).
  std::string write(const std::string& relative, const std::string& text) const;
  std::string mkdir(const std::string& relative) const;

 private:
  std::string _path;
};

// A name no earlier test of this process has used: the module's schema pool
// remembers every file name it was asked for, found or not.
std::string uniqueName(const std::string& stem);

}  // namespace tarn_test

#endif
