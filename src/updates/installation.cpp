#include "updates/installation.h"

#include <cstdlib>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/crypto/crypto.h"
#include "platform/files/files.h"
#include "platform/values/json.h"

namespace vantrell {

namespace {

constexpr std::size_t longestFile = 64 << 10;

/// The top of the build that the program lies in, or nothing.
std::optional<std::string> buildFolderAbove(std::string folder) {
  for (; folder.size() > 1; folder = files::parent(folder)) {
    if (files::exists(folder + "/CMakeCache.txt")) return folder;
  }
  return std::nullopt;
}

/// Whether this user may replace it: it is theirs, and so is the folder that it lies in.
bool isOwn(const std::string& root) {
  struct stat info{};
  return ::stat(root.c_str(), &info) == 0 && info.st_uid == ::geteuid() &&
         ::access(root.c_str(), W_OK) == 0 && ::access(files::parent(root).c_str(), W_OK) == 0;
}

}  // namespace

std::expected<ReleaseInformation, std::string> ReleaseInformation::read(const std::string& root) {
  const auto path = root + "/" + fileName;
  const auto content = files::read(path, longestFile);
  if (!content) return std::unexpected(content.error().description);
  const auto object = json::parseObject(*content);
  if (!object) return std::unexpected(fmt::format("{} is not a JSON object.", path));
  ReleaseInformation release{.version = json::textOr(*object, "version", ""),
                             .feed = json::textOr(*object, "feed", "")};
  const auto key = crypto::fromBase64(json::textOr(*object, "publicKey", ""));
  if (release.version.empty() || !key || key->size() != 32) {
    return std::unexpected(fmt::format("{} lacks a version or a public key.", path));
  }
  release.publicKey = *key;
  return release;
}

std::expected<Installation, std::string> Installation::of(const std::string& programFolder) {
  const auto root = files::parent(programFolder);
  if (!files::exists(root + "/" + ReleaseInformation::fileName)) {
    if (const auto build = buildFolderAbove(programFolder)) {
      return std::unexpected(
          fmt::format("This vantrell was built from source, in {}. To update it, update the "
                      "sources there (git pull) and build again.",
                      *build));
    }
    return std::unexpected(fmt::format(
        "This vantrell, in {}, was not installed from a release archive. Update it in the way it "
        "was installed: with the system's package manager, or by replacing its image.",
        programFolder));
  }
  auto release = ReleaseInformation::read(root);
  if (!release) {
    return std::unexpected(release.error() +
                           " To update vantrell, install a release archive in its place.");
  }
  if (!isOwn(root)) {
    return std::unexpected(
        fmt::format("{} is not yours to replace. Update vantrell as the user that it belongs to, "
                    "or install a release archive in a folder of your own.",
                    root));
  }
  return Installation{.root = root, .release = std::move(*release)};
}

std::string Installation::workFolder() const {
  return fmt::format("{}/.{}.update", files::parent(root), files::lastComponent(root));
}

}  // namespace vantrell
