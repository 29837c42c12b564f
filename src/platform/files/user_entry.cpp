#include "platform/files/user_entry.h"

#include <cerrno>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace vantrell {

std::optional<UserEntry> userEntry() {
  std::vector<char> buffer(std::size_t{16} * 1024);
  passwd entry{};
  passwd* found = nullptr;
  while (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (!found) return std::nullopt;
  const auto textOf = [](const char* field) { return std::string(field ? field : ""); };
  return UserEntry{.home = textOf(found->pw_dir), .shell = textOf(found->pw_shell)};
}

}  // namespace vantrell
