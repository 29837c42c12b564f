#include "platform/files/dated_name.h"

#include <fmt/format.h>
#include <sys/stat.h>

namespace vantrell::files {

namespace {

/// More copies of one second than this are a loop, not a user.
constexpr int namesToTry = 1000;

}  // namespace

std::string datedName(const std::string& folder, std::string_view what, Date date,
                      std::string_view extension) {
  // Colons are not for every file system.
  std::string day = iso8601(date);
  for (char& c : day) c = c == ':' ? '.' : c == 'T' ? ' ' : c;
  const std::string base = fmt::format("{}/{} {}", folder, what, day);
  std::string candidate = fmt::format("{}{}", base, extension);
  struct stat info{};
  for (int i = 2; i < namesToTry && lstat(candidate.c_str(), &info) == 0; ++i) {
    candidate = fmt::format("{} ({}){}", base, i, extension);
  }
  return candidate;
}

}  // namespace vantrell::files
