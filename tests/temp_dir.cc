#include "temp_dir.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tarn_test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  _path = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

std::string TempDir::write(const std::string& relative, const std::string& text) const {
  std::filesystem::path file = std::filesystem::path(_path) / relative;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
  return file.string();
}

std::string TempDir::mkdir(const std::string& relative) const {
  std::filesystem::path dir = std::filesystem::path(_path) / relative;
  std::filesystem::create_directories(dir);
  return dir.string();
}

std::string uniqueName(const std::string& stem) {
  static std::atomic<int> counter{0};
  return stem + "_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
}

}  // namespace tarn_test
