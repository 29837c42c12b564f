#include <fmt/format.h>
#include <mutex>

#include "platform/files/files.h"
#include "platform/secrets/secret_store.h"

namespace vantrell {
namespace {

constexpr std::string_view serviceWord = "secret-service\n";
constexpr std::string_view filesWord = "files\n";

std::unexpected<SecretError> cannotTell(std::string_view reason, const std::string& path) {
  return std::unexpected(SecretError{
      SecretError::Kind::failed,
      fmt::format("Where the secrets are kept is unknown: {}. Nothing was stored. Put \"{}\" "
                  "or \"{}\" into {}, or remove that file when no secrets are kept yet.",
                  reason, serviceWord.substr(0, serviceWord.size() - 1),
                  filesWord.substr(0, filesWord.size() - 1), path)});
}

class ChosenSecrets final : public SecretStore {
 public:
  ChosenSecrets(std::string folder, SecretServiceOptions options)
      : folder_(std::move(folder)),
        memoPath_(folder_ + "/store"),
        service_(secretService(std::move(options))),
        files_(files(folder_)) {}

  Status status() override {
    const auto store = choose();
    if (store) return (*store)->status();
    return {.kind = Kind::files, .place = folder_, .problem = store.error()};
  }

  Result<> unlock() override {
    return withChoice([](SecretStore& store) { return store.unlock(); });
  }

 protected:
  Result<std::optional<std::string>> readSecret(const std::string& service,
                                                const std::string& account) override {
    return withChoice([&](SecretStore& store) { return store.read(service, account); });
  }

  Result<> writeSecret(const std::string& service, const std::string& account,
                       const std::string& value) override {
    return withChoice([&](SecretStore& store) {
      auto kept = remember(store);
      return kept ? store.write(service, account, value) : kept;
    });
  }

  Result<> removeSecret(const std::string& service, const std::string& account) override {
    return withChoice([&](SecretStore& store) { return store.remove(service, account); });
  }

 private:
  Result<SecretStore*> choose() {
    const std::lock_guard guard(mutex_);
    if (choice_) return choice_;
    const auto memo = files::read(memoPath_);
    if (memo) {
      if (*memo != serviceWord && *memo != filesWord) {
        return cannotTell("its note is unreadable", memoPath_);
      }
      choice_ = *memo == serviceWord ? service_.get() : files_.get();
      isRemembered_ = true;
      return choice_;
    }
    if (memo.error().code != std::errc::no_such_file_or_directory) {
      return cannotTell(memo.error().description, memoPath_);
    }
    const auto problem = service_->status().problem;
    const bool answers = !problem || problem->kind != SecretError::Kind::missing;
    choice_ = answers ? service_.get() : files_.get();
    return choice_;
  }

  template <typename Work>
  auto withChoice(Work work) -> std::invoke_result_t<Work, SecretStore&> {
    const auto store = choose();
    if (!store) return std::unexpected(store.error());
    return work(**store);
  }

  /// Before the first secret, so that a later start finds every secret.
  Result<> remember(const SecretStore& store) {
    const std::lock_guard guard(mutex_);
    if (isRemembered_) return {};
    auto kept = files::createOwnerOnlyFolder(folder_);
    if (kept) {
      kept = files::writeAtomically(memoPath_, &store == service_.get() ? serviceWord : filesWord,
                                    0600);
    }
    if (!kept) {
      return std::unexpected(SecretError{
          kept.error().code == std::errc::permission_denied ? SecretError::Kind::denied
                                                            : SecretError::Kind::failed,
          fmt::format("{}. Without this note no secret is stored. Make the folder writable or make "
                      "room on the disk, and try again.",
                      kept.error().description)});
    }
    isRemembered_ = true;
    return {};
  }

  std::string folder_;
  std::string memoPath_;
  std::unique_ptr<SecretStore> service_;
  std::unique_ptr<SecretStore> files_;
  std::mutex mutex_;
  SecretStore* choice_ = nullptr;
  bool isRemembered_ = false;
};

}  // namespace

std::unique_ptr<SecretStore> SecretStore::chosen(std::string folder, SecretServiceOptions options) {
  return std::make_unique<ChosenSecrets>(std::move(folder), std::move(options));
}

}  // namespace vantrell
