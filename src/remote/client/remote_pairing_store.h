// The link of the host that a client is paired with: in an owner-only file and in the secret store,
// so that it survives the loss of either. Main queue; answers come there too, and are dropped when
// the secret queue is gone.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace vantrell {

class SecretQueue;

class MacRemotePairingStore {
 public:
  MacRemotePairingStore(const std::string& supportFolder, SecretQueue& secrets);

  /// The stored link, which can be parsed.
  void load(std::move_only_function<void(std::optional<std::string>)> answer);
  /// Answers whether it is stored in at least one place. What is no link is not stored.
  void save(std::string link, std::move_only_function<void(bool)> answer);
  void remove();

  static constexpr const char* secretService = "com.local.Larkmoor.remote-client";
  static constexpr const char* secretAccount = "host-pairing";

 private:
  std::string path_;
  SecretQueue& secrets_;
};

}  // namespace vantrell
