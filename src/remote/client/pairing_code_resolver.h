// Finds the pairing link that a short code stands for, by asking the relay. Main queue, where the
// answers come too; one look-up at a time. What runs when it is destroyed is dropped.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/queues/dispatch.h"
#include "platform/values/url.h"

namespace vantrell {

struct RemotePairingCodeError {
  enum class Kind {
    invalidCode,
    invalidResponse,
    timedOut,
    relay,     // it refuses the code
    transport  // it cannot be reached, or speaks something else
  };
  Kind kind = Kind::transport;
  std::string description;  // for people

  explicit RemotePairingCodeError(Kind what);
  RemotePairingCodeError(Kind what, std::string text) : kind(what), description(std::move(text)) {}
};

class RemotePairingCodeResolver {
 public:
  using Answer = std::move_only_function<void(std::expected<std::string, RemotePairingCodeError>)>;

  /// The main queue must outlive the pool. `trustedCertificates` as for a WebSocket.
  RemotePairingCodeResolver(MainQueue& main, BackgroundPool& pool,
                            std::string trustedCertificates = {});
  ~RemotePairingCodeResolver();

  /// Answers the link, unread, or why there is none, within `limit`. Ends a look-up that runs,
  /// which then answers nothing.
  void resolve(std::string_view code, const Url& relayURL, Answer answer);
  void cancel();

  static constexpr std::chrono::seconds limit{15};

 private:
  struct Socket;
  struct Lookup;
  void finish(std::expected<std::string, RemotePairingCodeError> result);

  MainQueue& main_;
  SerialQueue queue_;
  std::string trustedCertificates_;
  std::shared_ptr<Lookup> lookup_;
};

}  // namespace vantrell
