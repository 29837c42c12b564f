// What the Secret Service implementation needs besides its library: where the session's bus is, and
// the sentences for its failures. Pure but for the environment; any thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/secrets/secret_store.h"

namespace vantrell {

/// What is wrong and what to do, for people. `detail` is the service's own word.
std::string keyringSentence(SecretError::Kind kind, std::chrono::milliseconds limit,
                            std::string_view detail);

/// The address of the session's bus, or nullopt. GLib's own search would start a bus where there is
/// an X display and none is running.
std::optional<std::string> sessionBusAddress();

}  // namespace vantrell
