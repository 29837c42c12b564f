#include "platform/secrets/secret_service_words.h"

#include <cstdlib>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/values/url.h"

namespace vantrell {

std::string keyringSentence(SecretError::Kind kind, std::chrono::milliseconds limit,
                            std::string_view detail) {
  using Kind = SecretError::Kind;
  switch (kind) {
    case Kind::missing:
      return fmt::format(
          "No keyring answers ({}). Log in to the desktop, or start a keyring service such as "
          "gnome-keyring, and try again.",
          detail);
    case Kind::locked:
      return "The keyring is locked. Unlock it, for example in the desktop's program for passwords "
             "and keys, and try again.";
    case Kind::timedOut:
      return fmt::format(
          "The keyring did not answer within {} seconds. Look whether it asks you something; "
          "otherwise end the keyring service or log in again, and try again.",
          std::chrono::duration<double>(limit).count());
    case Kind::denied:
      return fmt::format(
          "The keyring refuses access ({}). Allow it in the settings of the keyring, and try "
          "again.",
          detail);
    case Kind::failed: break;
  }
  return fmt::format("The keyring could not do it: {}.", detail);
}

std::optional<std::string> sessionBusAddress() {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address && *address && !std::string_view(address).starts_with("autolaunch:")) return address;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (!runtime || *runtime != '/') return std::nullopt;
  const std::string path = fmt::format("{}/bus", runtime);
  if (!files::exists(path)) return std::nullopt;
  return "unix:path=" + percentEncoded(path, "-_./");
}

}  // namespace vantrell
