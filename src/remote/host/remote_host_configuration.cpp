#include "remote/host/remote_host_configuration.h"

#include <fmt/format.h>
#include <optional>

#include "platform/files/files.h"
#include "platform/secrets/secret_queue.h"
#include "platform/sockets/own_address.h"
#include "platform/storage/user_defaults.h"
#include "remote/protocol/remote_crypto.h"

namespace vantrell::RemoteHostConfiguration {

namespace {

std::optional<std::string> ifKey(std::string bytes) {
  if (bytes.size() != RemoteCrypto::keySize) return std::nullopt;
  return bytes;
}

// ---- on the secret queue
// -------------------------------------------------------------------------

std::optional<std::string> keyInFile(const std::string& path) {
  auto content = files::read(path, RemoteCrypto::keySize);
  return content ? ifKey(std::move(*content)) : std::nullopt;
}

std::optional<std::string> keyInSecrets(SecretStore& store) {
  auto read = store.read(secretService, secretAccount);
  return read && *read ? ifKey(std::move(**read)) : std::nullopt;
}

struct Stored {
  std::string keyData;
  bool isInFile = false;
  bool isInSecrets = false;
  /// Why the file was not written.
  std::string reason;
};

Stored store(SecretStore& secrets, const std::string& path, std::string keyData) {
  Stored stored{.keyData = std::move(keyData)};
  auto written = files::createOwnerOnlyFolder(files::parent(path));
  if (written) written = files::writeAtomically(path, stored.keyData, 0600);
  stored.isInFile = written.has_value();
  if (!written) {
    stored.reason = written.error().description;
    (void)files::remove(path);  // an old key there would count at the next start
  }
  stored.isInSecrets = secrets.write(secretService, secretAccount, stored.keyData).has_value();
  return stored;
}

// ---- on the main queue
// ---------------------------------------------------------------------------

Key recorded(UserDefaults& defaults, Stored stored, bool isRotation) {
  Key key{.keyData = std::move(stored.keyData)};
  if (stored.isInFile) {
    defaults.remove(defaultsKey);
    return key;
  }
  const bool isInDefaults = defaults.setData(defaultsKey, key.keyData);
  if (stored.isInSecrets) return key;
  if (isRotation) {
    // Where the secret store was out of reach it may hold the old key, which counts before the
    // defaults.
    key.problem = fmt::format(
        "The new access key could not be saved ({}), so the old one may return at the next start. "
        "Make the folder writable, and change the key again.",
        stored.reason);
  } else if (!isInDefaults) {
    key.problem = fmt::format(
        "The access key of remote control could not be saved ({}), so clients must pair again "
        "after "
        "the next start.",
        stored.reason);
  }
  return key;
}

std::string pathOf(const Places& places) {
  return places.supportFolder + "/" + keyFile;
}

}  // namespace

void loadOrCreateSecret(const Places& places, Answer answer) {
  auto inDefaults = places.defaults.data(defaultsKey);
  places.secrets.run(
      [path = pathOf(places), inDefaults](SecretStore& secrets) {
        // A key that is in its file is known at once; the secret store may take its time.
        if (auto key = keyInFile(path)) return Stored{.keyData = *key, .isInFile = true};
        auto key = keyInSecrets(secrets);
        if (!key && inDefaults) key = ifKey(*inDefaults);
        return store(secrets, path, key ? *key : RemoteCrypto::makeKey());
      },
      [path = pathOf(places), &secrets = places.secrets, &defaults = places.defaults,
       answer = std::move(answer)](Stored stored) mutable {
        if (stored.isInFile && !stored.isInSecrets) {
          // The key may have been changed since.
          const auto copy = [path](SecretStore& store) {
            const auto key = keyInFile(path);
            return key && store.write(secretService, secretAccount, *key);
          };
          secrets.run(copy, [](bool) {});
        }
        answer(recorded(defaults, std::move(stored), false));
      });
}

void rotateSecret(const Places& places, Answer answer) {
  places.secrets.run(
      [path = pathOf(places)](SecretStore& secrets) {
        return store(secrets, path, RemoteCrypto::makeKey());
      },
      [&defaults = places.defaults, answer = std::move(answer)](Stored stored) mutable {
        answer(recorded(defaults, std::move(stored), true));
      });
}

std::string suggestedAddress() {
  return ownAddress();
}

}  // namespace vantrell::RemoteHostConfiguration
