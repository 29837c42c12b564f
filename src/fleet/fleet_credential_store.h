// The secrets of fleet hosts, one for each: the pairing link of a paired host, or the address and
// key of an HTTP host. Main queue; answers come there, and are dropped when the secret queue is
// gone. Errors are sentences for the user.
#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <string>

#include "engine/core/refusal.h"
#include "platform/values/uuid.h"

namespace vantrell {

class SecretQueue;

struct FleetEndpointCredential {
  std::string endpoint;
  std::optional<std::string> bearerToken;

  bool operator==(const FleetEndpointCredential&) const = default;
};

class FleetCredentialStore {
 public:
  /// What is given must outlive it.
  explicit FleetCredentialStore(SecretQueue& secrets) : secrets_(secrets) {}

  /// The stored text; nullopt where there is none, or it cannot be read now.
  void load(const Uuid& hostID, std::move_only_function<void(std::optional<std::string>)> answer);
  /// The same as a credential; nullopt also for a text that is none, such as a link.
  void loadCredential(const Uuid& hostID,
                      std::move_only_function<void(std::optional<FleetEndpointCredential>)> answer);
  void save(std::string link, const Uuid& hostID, std::function<void(Result<>)> answer);
  void save(const FleetEndpointCredential& credential, const Uuid& hostID,
            std::function<void(Result<>)> answer);
  void remove(const Uuid& hostID);

  static constexpr const char* secretService = "com.local.vantrell.fleet";

 private:
  SecretQueue& secrets_;
};

}  // namespace vantrell
