// What a host needs before it can be reached: its pairing key, and the address to put into links.
//
// The key lies in an owner-only file, which counts, and in the secret store; in the user defaults
// only while the file cannot be written. It changes only by rotateSecret(). Called on the main
// queue; files and secrets are the work of the secret queue, and answers come on the main queue.
#pragma once

#include <functional>
#include <string>

namespace vantrell {

class SecretQueue;
class UserDefaults;

namespace RemoteHostConfiguration {

/// Where the key is kept. The defaults must outlive every answer.
struct Places {
  std::string supportFolder;
  SecretQueue& secrets;
  UserDefaults& defaults;
};
struct Key {
  std::string keyData;  // 32 bytes
  /// What the user must know and do about a key that could not be stored; mostly empty.
  std::string problem;
};
using Answer = std::move_only_function<void(Key)>;

/// The stored key; a new one where there is none. Moves the key of earlier versions into the file.
void loadOrCreateSecret(const Places& places, Answer answer);
/// A new key in place of the old one, whose links stop working.
void rotateSecret(const Places& places, Answer answer);

/// The address at which other machines most likely reach this one; a quick question.
std::string suggestedAddress();

inline constexpr const char* keyFile = "remote-pairing.key";  // in the support folder
inline constexpr const char* defaultsKey = "remoteHostSecret.v1";
inline constexpr const char* secretService = "com.local.Larkmoor.remote";
inline constexpr const char* secretAccount = "pairing-secret";

}  // namespace RemoteHostConfiguration

}  // namespace vantrell
