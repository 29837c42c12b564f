// A folder for one test, removed with everything in it at the end.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace vantrell::tests {

class TemporaryFolder {
 public:
  TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}
  explicit TemporaryFolder(const std::filesystem::path& base) {
    // Canonical, so that a test can compare paths that the system resolved.
    std::string pattern = (std::filesystem::canonical(base) / "vantrell-XXXXXX").native();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder: " + pattern);
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

  /// Writes a file with plain streams, not with the code under test. Answers its path.
  std::string file(std::string_view name, std::string_view content) const {
    const std::string path = *this / name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  /// The same with a program.
  std::string program(std::string_view name, std::string_view content) const {
    const std::string path = file(name, content);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
  }
  std::string folder(std::string_view name) const {
    std::filesystem::create_directories(*this / name);
    return *this / name;
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  /// Zero where there is nothing.
  static mode_t modeOf(const std::string& path) {
    struct stat info{};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  }
  /// The names in a folder, by default in this one, hidden ones too.
  std::set<std::string> names(std::string_view folder = ".") const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(*this / folder)) {
      names.insert(entry.path().filename());
    }
    return names;
  }

 private:
  std::string path_;
};

}  // namespace vantrell::tests
