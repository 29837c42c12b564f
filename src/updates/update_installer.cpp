#include "updates/update_installer.h"

#include <fmt/format.h>

#include "platform/archive/archive.h"
#include "platform/crypto/crypto.h"
#include "platform/crypto/ed25519.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/text/visible_text.h"

namespace vantrell {

namespace {

// In the work folder: the archive while it is opened; the release that is whole and is to take the
// place, and after the exchange the one that had it.
constexpr std::string_view opened = "opened", other = "other";

std::string hex(std::string_view text) {
  std::string digits;
  for (const auto byte : crypto::sha256(text)) digits += fmt::format("{:02x}", byte);
  return digits;
}

}  // namespace

UpdateInstaller::UpdateInstaller(Installation installation, AppcastItem item)
    : installation_(std::move(installation)), item_(std::move(item)) {}

std::string UpdateInstaller::folder(std::string_view name) const {
  return installation_.workFolder() + "/" + std::string(name);
}

// By the signature, so that what is left of one archive is never taken for part of another.
std::string UpdateInstaller::downloadPath() const {
  return folder(hex(item_.archiveURL + item_.signature).substr(0, 32) + ".part");
}

UpdateInstaller::Outcome UpdateInstaller::makeFolder() const {
  const auto made = files::createOwnerOnlyFolder(installation_.workFolder());
  return made ? Outcome() : std::unexpected(made.error().description);
}

UpdateInstaller::Outcome UpdateInstaller::open(const std::function<void(double)>& progress) const {
  const auto refuse = [&](std::string why) -> Outcome {
    static_cast<void>(files::remove(downloadPath()));
    return std::unexpected(std::move(why));
  };
  const auto archive = files::read(downloadPath(), largestArchive);
  if (!archive) return std::unexpected(archive.error().description);
  if (item_.length != 0 && archive->size() != item_.length) {
    return refuse(fmt::format("The archive has {} bytes and not the {} of the feed.",
                              archive->size(), item_.length));
  }
  if (!crypto::isSignedEd25519(*archive, item_.signature, installation_.release.publicKey)) {
    return refuse(
        "The update is refused: its archive is not signed with the key of this installation. It "
        "was changed on its way, or is not from the same publisher.");
  }
  for (const auto leftOver : {opened, other}) {
    const auto path = folder(leftOver);
    const auto removed = files::exists(path) ? files::removeTree(path) : files::Result<>();
    if (!removed) return std::unexpected(removed.error().description);
  }
  if (auto extracted = archive::extract(*archive, folder(opened), progress); !extracted) {
    static_cast<void>(files::removeTree(folder(opened)));
    return extracted;
  }
  const auto root = folder(opened) + "/vantrell";
  if (auto checked = checkRelease(root); !checked) {
    static_cast<void>(files::removeTree(folder(opened)));
    return refuse(checked.error());
  }
  return {};
}

std::string UpdateInstaller::openedProgram() const {
  return folder(opened) + "/vantrell/bin/vantrell";
}

UpdateInstaller::Outcome UpdateInstaller::take(int status, const std::string& answer) const {
  if (status != 0 || !answer.contains(item_.version)) {
    static_cast<void>(files::removeTree(folder(opened)));
    static_cast<void>(files::remove(downloadPath()));
    return std::unexpected(
        fmt::format("The update is refused: its program does not run on this machine (status {}, "
                    "\"{}\").",
                    status, text::onOneLine(text::firstCharacters(answer, 200))));
  }
  const auto moved = files::move(folder(opened) + "/vantrell", folder(other));
  return moved ? Outcome() : std::unexpected(moved.error().description);
}

/// A signature says who made the archive, not that it is the release of the feed: an old one, which
/// was signed as well, could stand under a new name.
UpdateInstaller::Outcome UpdateInstaller::checkRelease(const std::string& root) const {
  const auto release = ReleaseInformation::read(root);
  if (!release) return std::unexpected("The update is refused: " + release.error());
  if (release->version != item_.version ||
      compareVersions(release->version, installation_.release.version) <= 0) {
    return std::unexpected(
        fmt::format("The update is refused: the archive holds version {} and "
                    "not {}.",
                    text::onOneLine(release->version), text::onOneLine(item_.version)));
  }
  return {};
}

UpdateInstaller::Outcome UpdateInstaller::exchange() const {
  const auto done = files::exchange(installation_.root, folder(other));
  if (!done) return std::unexpected(done.error().description);
  static_cast<void>(files::remove(downloadPath()));
  return {};
}

bool UpdateInstaller::forgetPrevious(const Installation& installation) {
  if (files::LockFile::isHeld(installation.workFolder() + "/" + lockName)) return false;
  const auto previous =
      ReleaseInformation::read(installation.workFolder() + "/" + std::string(other));
  if (!previous || compareVersions(previous->version, installation.release.version) >= 0) {
    return false;
  }
  return files::removeTree(installation.workFolder()).has_value();
}

bool UpdateInstaller::goBack(const Installation& installation) {
  const auto previous = installation.workFolder() + "/" + std::string(other);
  return files::isFolder(previous + "/bin") &&
         files::exchange(installation.root, previous).has_value();
}

}  // namespace vantrell
