#include "remote/client/remote_pairing_store.h"

#include "platform/files/files.h"
#include "platform/secrets/secret_queue.h"
#include "remote/protocol/remote_pairing.h"

namespace vantrell {

namespace {

std::optional<std::string> ifLink(std::string text) {
  if (!MacRemotePairing::parse(text)) return std::nullopt;
  return text;
}

bool writeFile(const std::string& path, const std::string& link) {
  return files::createOwnerOnlyFolder(files::parent(path)) &&
         files::writeAtomically(path, link, 0600);
}

}  // namespace

MacRemotePairingStore::MacRemotePairingStore(const std::string& supportFolder, SecretQueue& secrets)
    : path_(supportFolder + "/Remote/host-pairing.link"), secrets_(secrets) {}

void MacRemotePairingStore::load(std::move_only_function<void(std::optional<std::string>)> answer) {
  secrets_.run(
      [path = path_](SecretStore& secrets) -> std::optional<std::string> {
        if (auto content = files::read(path, SecretStore::longestValue)) {
          if (auto link = ifLink(std::move(*content))) return link;
        }
        auto secret = secrets.read(secretService, secretAccount);
        auto link = secret && *secret ? ifLink(std::move(**secret)) : std::nullopt;
        if (link) writeFile(path, *link);
        return link;
      },
      std::move(answer));
}

void MacRemotePairingStore::save(std::string link, std::move_only_function<void(bool)> answer) {
  secrets_.run(
      [path = path_, link = std::move(link)](SecretStore& secrets) {
        if (!ifLink(link)) return false;
        const bool isInFile = writeFile(path, link);
        return secrets.write(secretService, secretAccount, link).has_value() || isInFile;
      },
      std::move(answer));
}

void MacRemotePairingStore::remove() {
  secrets_.run(
      [path = path_](SecretStore& secrets) {
        (void)files::remove(path);
        return secrets.remove(secretService, secretAccount);
      },
      [](const auto&) {});
}

}  // namespace vantrell
