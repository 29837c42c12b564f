// What the user database says of this user. It may be asked over a network, so it can block.
#pragma once

#include <optional>
#include <string>

namespace vantrell {

struct UserEntry {
  std::string home;   // folder
  std::string shell;  // program
};

/// nullopt for a user whom the database does not know. Any thread.
std::optional<UserEntry> userEntry();

}  // namespace vantrell
