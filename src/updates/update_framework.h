// What fetches and installs updates, and what is told of it. The two are apart so that the rules of
// when an update may interrupt work know nothing of feeds and archives. Main queue.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <string>

#include "updates/appcast.h"

namespace vantrell {

enum class UpdateChoice { install, dismiss };
using UpdateReply = std::function<void(UpdateChoice)>;

/// Is told each step, and answers the questions. Errors are sentences.
class UpdateDriver {
 public:
  virtual ~UpdateDriver() = default;
  virtual void checkingStarted() = 0;
  virtual void updateFound(const AppcastItem& item, UpdateReply reply) = 0;
  /// Empty: there is nothing newer.
  virtual void noUpdateFound(const std::string& error) = 0;
  virtual void updaterFailed(const std::string& error) = 0;
  virtual void downloadStarted() = 0;
  /// Bytes of the whole archive, where they are known; what an earlier attempt got comes as
  /// received data.
  virtual void expectedDownload(std::uint64_t bytes) = 0;
  virtual void receivedDownloadData(std::uint64_t bytes) = 0;
  virtual void extractionStarted() = 0;
  virtual void extractionProgress(double part) = 0;
  virtual void readyToInstall(UpdateReply reply) = 0;
  /// Whether the program is ended already, or will start again now.
  virtual void installing(bool applicationTerminated) = 0;
  virtual void installationFinished() = 0;
};

class UpdateFramework {
 public:
  virtual ~UpdateFramework() = default;
  /// The error says why this program cannot update itself.
  virtual std::expected<void, std::string> start() = 0;
  virtual bool canCheckForUpdates() const = 0;
  virtual void checkForUpdates() = 0;
  /// The feed has changed: looks there soon, and then once a day.
  virtual void resetUpdateCycleAfterShortDelay() = 0;
};

}  // namespace vantrell
