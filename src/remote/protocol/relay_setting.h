// Which relay hosts and clients of this user go through. Main queue.
#pragma once

#include <optional>

#include "platform/values/url.h"

namespace vantrell {

class UserDefaults;

/// The user's, else the one that was set when the program was built; nullopt where there is
/// neither, and remote control works in the same network only.
std::optional<Url> remoteRelayURL(const UserDefaults& defaults);

}  // namespace vantrell
