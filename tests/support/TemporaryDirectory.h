#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tests {

/// A folder of its own for one test, removed with everything in it at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// A path below the folder.
  [[nodiscard]] std::string path(std::string_view below) const { return path_ + "/" + std::string(below); }
  /// Writes a file below the folder, making its parents; returns its path.
  std::string write(std::string_view below, std::string_view content) const {
    std::string file = path(below);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }
  std::string makeDirectory(std::string_view below) const {
    std::filesystem::create_directories(path(below));
    return path(below);
  }

 private:
  std::string path_;
};

}  // namespace tests
