// A folder for one benchmark, removed at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdlib.h>
#include <string>

namespace vantrell::bench {

class Folder {
 public:
  Folder() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vantrell-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace vantrell::bench
