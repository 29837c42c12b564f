// Looks for a newer release in the feed, downloads its archive, and puts it in the place of this
// one. What was downloaded of an archive stays, so that the next attempt goes on there. Nothing of
// the archive is used before its signature was checked. Main queue; files are the pool's, and the
// download is written on the HTTP client's thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/files/files.h"
#include "platform/http/http_client.h"
#include "platform/process/program_runner.h"
#include "platform/queues/dispatch.h"
#include "updates/installation.h"
#include "updates/update_framework.h"
#include "updates/update_installer.h"

namespace vantrell {

class Updater final : public UpdateFramework, public std::enable_shared_from_this<Updater> {
 public:
  static constexpr std::size_t longestFeed = std::size_t{4} << 20;  // bytes
  /// Of one download that is lost on its way.
  static constexpr int mostAttempts = 4;
  static constexpr std::chrono::minutes shortDelay{1};
  static constexpr std::chrono::hours cycle{24};
  /// For the new program to say its version.
  static constexpr std::chrono::seconds answerLimit{30};
  /// From the exchange to the relaunch, so that those who watch can be told.
  static constexpr std::chrono::seconds farewell{1};

  struct Dependencies {
    MainQueue& main;
    BackgroundPool& pool;
    HttpClient& http;
    /// Where this program is, or why it cannot be updated there.
    std::expected<Installation, std::string> installation;
    /// The address of the feed at the moment; absent: none.
    std::function<std::optional<std::string>()> feedURL;
    /// The new version is in place and is to be started; may be unset.
    std::function<void()> relaunch;
  };
  /// The driver must outlive it or be weak: it is told nothing after the last reference went.
  Updater(Dependencies dependencies, std::weak_ptr<UpdateDriver> driver);

  std::expected<void, std::string> start() override;
  bool canCheckForUpdates() const override { return !isBusy_; }
  void checkForUpdates() override;
  void resetUpdateCycleAfterShortDelay() override;
  /// Ends a download that is under way, as failed. What came of it stays.
  void cancelDownload();

 private:
  struct Download;
  using Outcome = UpdateInstaller::Outcome;

  void take(const std::expected<HttpResponse, HttpError>& feed);
  void beginDownload();
  void openDownload();
  void request(const std::shared_ptr<Download>& download);
  void downloadEnded(const std::shared_ptr<Download>& download,
                     const std::expected<HttpResponse, HttpError>& answer);
  void extract();
  void askOpened();
  void install();
  void fail(const std::string& why);
  void rest();
  void scheduleCheck(Duration delay);
  /// Does `work` on the pool, then `then` here; a failure ends the update.
  void inBackground(std::function<Outcome(const UpdateInstaller&)> work,
                    std::function<void(Updater&)> then);
  template <typename Call>
  void tell(Call what) {
    if (const auto driver = driver_.lock()) what(*driver);
  }

  const Dependencies core_;
  const std::weak_ptr<UpdateDriver> driver_;
  const std::shared_ptr<ProgramRunner> runner_;
  bool isBusy_ = false;
  int attempts_ = 0;
  std::optional<AppcastItem> item_;
  std::shared_ptr<const UpdateInstaller> installer_;
  std::optional<files::LockFile> lock_;  // one update of an installation at a time
  std::shared_ptr<HttpTransfer> transfer_;
  Timer nextCheck_, relaunch_;
};

}  // namespace vantrell
