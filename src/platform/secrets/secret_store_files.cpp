#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/secrets/secret_store.h"

namespace vantrell {
namespace {

/// One of the two parts of a file's name. What is not plain goes as %XX of its bytes: upper-case
/// letters too, for file systems that do not tell them from lower-case ones, and the dot in front,
/// which would hide the file or leave the folder.
std::string namePart(const std::string& text) {
  std::string part;
  for (const char c : text) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                         (c == '.' && !part.empty());
    part += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return part;
}

std::unexpected<SecretError> failure(const files::FileError& error) {
  const bool isDenied = error.code == std::errc::permission_denied ||
                        error.code == std::errc::operation_not_permitted ||
                        error.code == std::errc::read_only_file_system;
  return std::unexpected(
      SecretError{isDenied ? SecretError::Kind::denied : SecretError::Kind::failed,
                  fmt::format("{}.{}", error.description,
                              isDenied ? " Make the folder yours and writable, and try again."
                              : error.code == std::errc::no_space_on_device
                                  ? " Make room on the disk, and try again."
                                  : "")});
}

bool isAbsent(const files::FileError& error) {
  return error.code == std::errc::no_such_file_or_directory;
}

class FileSecrets final : public SecretStore {
 public:
  explicit FileSecrets(std::string folder) : folder_(std::move(folder)) {}

  Status status() override { return {.kind = Kind::files, .place = folder_, .problem = {}}; }

 protected:
  Result<std::optional<std::string>> readSecret(const std::string& service,
                                                const std::string& account) override {
    auto content = files::read(pathOf(service, account));
    if (content) return std::move(*content);
    if (isAbsent(content.error())) return std::nullopt;
    return failure(content.error());
  }

  Result<> writeSecret(const std::string& service, const std::string& account,
                       const std::string& value) override {
    if (auto made = files::createOwnerOnlyFolder(folder_); !made) return failure(made.error());
    const auto written = files::writeAtomically(pathOf(service, account), value, 0600);
    if (!written) return failure(written.error());
    return {};
  }

  Result<> removeSecret(const std::string& service, const std::string& account) override {
    const auto removed = files::remove(pathOf(service, account));
    if (!removed && !isAbsent(removed.error())) return failure(removed.error());
    return {};
  }

 private:
  std::string pathOf(const std::string& service, const std::string& account) const {
    return fmt::format("{}/{}@{}.secret", folder_, namePart(service), namePart(account));
  }

  std::string folder_;
};

}  // namespace

std::unique_ptr<SecretStore> SecretStore::files(std::string folder) {
  return std::make_unique<FileSecrets>(std::move(folder));
}

}  // namespace vantrell
