#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "platform/files/files.h"
#include "platform/files/user_entry.h"

namespace vantrell::files {
namespace {

std::string environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// The folder of an XDG variable, or its default below the home folder.
std::string baseFolder(const char* variable, std::string_view belowHome) {
  const std::string value = environmentValue(variable);
  return value.starts_with('/') ? standardized(value) : standardized(belowHome, homeFolder());
}

/// Without the slashes at the end; the root stays as it is.
std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

}  // namespace

std::string homeFolder() {
  const std::string home = environmentValue("HOME");
  if (home.starts_with('/')) return standardized(home);
  const auto entry = userEntry();
  // A user whom the database does not know has no home; the root is where the system starts them.
  return entry && entry->home.starts_with('/') ? standardized(entry->home) : "/";
}

std::string dataFolder() {
  return baseFolder("XDG_DATA_HOME", ".local/share");
}
std::string configFolder() {
  return baseFolder("XDG_CONFIG_HOME", ".config");
}
std::string stateFolder() {
  return baseFolder("XDG_STATE_HOME", ".local/state");
}

std::string temporaryFolder() {
  const std::string value = environmentValue("TMPDIR");
  return value.starts_with('/') ? standardized(value) : "/tmp";
}

std::string standardized(std::string_view path, std::string_view base) {
  std::string result;
  const auto append = [&result](std::string_view part) {
    while (!part.empty()) {
      const std::string_view component = part.substr(0, part.find('/'));
      part.remove_prefix(std::min(part.size(), component.size() + 1));
      if (component == "..") {
        const std::size_t slash = result.rfind('/');
        result.resize(slash == std::string::npos ? 0 : slash);
      } else if (!component.empty() && component != ".") {
        result += '/';
        result += component;
      }
    }
  };
  if (!path.starts_with('/')) {
    if (!base.starts_with('/')) {
      std::error_code failure;
      auto folder = std::filesystem::current_path(failure);
      // Of a working folder that was deleted the system still knows the name, with a mark at its
      // end: nothing is there, and above all it is not the root.
      if (failure) folder = std::filesystem::read_symlink("/proc/self/cwd", failure);
      append(failure ? "(deleted)" : folder.native());
    }
    append(base);
  }
  append(path);
  return result.empty() ? "/" : result;
}

std::string expandingTilde(std::string_view path) {
  if (path == "~") return homeFolder();
  if (!path.starts_with("~/")) return std::string(path);
  const std::string home = homeFolder();
  return (home == "/" ? "" : home) + std::string(path.substr(1));
}

std::string lastComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string parent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == path.npos) return "";
  if (slash == 0) return "/";
  return std::string(withoutTrailingSlashes(path.substr(0, slash)));
}

}  // namespace vantrell::files
