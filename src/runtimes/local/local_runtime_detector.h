// Keeps the status of the local runtime current: each refresh asks the places where a server may
// be, one after the other. Main queue; the defaults and the client must outlive it.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/http/http_client.h"
#include "runtimes/local/local_runtime_service.h"

namespace vantrell {

class UserDefaults;

/// Asks the places in order and ends with the first that has models, or with the message of the
/// last. The completion comes once, on the client's main queue.
void detectLocalRuntime(HttpClient& client, std::vector<LocalRuntimeService::Probe> probes,
                        std::function<void(LocalRuntimeStatus)> completion);

class LocalRuntimeDetector : public std::enable_shared_from_this<LocalRuntimeDetector> {
 public:
  static std::shared_ptr<LocalRuntimeDetector> make(const UserDefaults& defaults,
                                                    HttpClient& client);

  /// The status has changed.
  std::function<void()> onChange;

  /// Starts a detection with the settings as they are now. Two may overlap: the one that ends last
  /// sets the status.
  void refresh();
  const LocalRuntimeStatus& status() const { return status_; }

 private:
  LocalRuntimeDetector(const UserDefaults& defaults, HttpClient& client)
      : defaults_(defaults), client_(client) {}
  void become(LocalRuntimeStatus status);

  const UserDefaults& defaults_;
  HttpClient& client_;
  LocalRuntimeStatus status_ = LocalRuntimeStatus::checking();
};

}  // namespace vantrell
