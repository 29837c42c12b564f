#include "runtimes/local/local_runtime_detector.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"

namespace vantrell {

namespace {

using LocalRuntimeService::Probe;

/// Of one place, without a byte from it.
constexpr std::chrono::milliseconds probeTimeout{2'500};
/// Of one place in all, for a server that trickles.
constexpr std::chrono::milliseconds longestProbe{30'000};

/// The connection, or what to tell of the failure.
std::expected<LocalRuntimeConnection, std::string> judge(
    const Probe& probe, std::expected<HttpResponse, HttpError> result) {
  if (!result) return std::unexpected(std::move(result.error().description));
  if (result->isSuccess()) {
    auto models = LocalRuntimeService::parseModels(result->body, probe.kind);
    if (models && models->empty()) {
      return std::unexpected(std::string(description(LocalRuntimeError::noModels)));
    }
    if (models) {
      return LocalRuntimeConnection{probe.kind, probe.name, probe.apiBaseURL, std::move(*models)};
    }
  }
  return std::unexpected(fmt::format("{} returned HTTP {}.", probe.name, result->status));
}

/// One run through the places; keeps itself alive by the request under way.
class Detection : public std::enable_shared_from_this<Detection> {
 public:
  Detection(HttpClient& client, std::vector<Probe> probes,
            std::function<void(LocalRuntimeStatus)> completion)
      : client_(client), probes_(std::move(probes)), completion_(std::move(completion)) {}

  /// `message` is what became of the place before.
  void ask(std::size_t index, std::string message) {
    if (index == probes_.size()) {
      completion_(LocalRuntimeStatus::unavailable(std::move(message)));
      return;
    }
    HttpRequest request{.url = probes_[index].discoveryURL.text(),
                        .requestTimeout = probeTimeout,
                        .resourceTimeout = longestProbe,
                        // To where the rules for addresses might not let us go.
                        .redirects = HttpRequest::Redirects::refuse};
    client_.send(std::move(request), [self = shared_from_this(), index](auto result) {
      // Only the end of the client cancels: it must not be asked again.
      const bool isOver = !result && result.error().kind == HttpError::Kind::cancelled;
      auto found = judge(self->probes_[index], std::move(result));
      if (found) {
        self->completion_(LocalRuntimeStatus::ready(std::move(*found)));
      } else {
        self->ask(isOver ? self->probes_.size() : index + 1, std::move(found.error()));
      }
    });
  }

 private:
  HttpClient& client_;
  const std::vector<Probe> probes_;
  const std::function<void(LocalRuntimeStatus)> completion_;
};

}  // namespace

void detectLocalRuntime(HttpClient& client, std::vector<Probe> probes,
                        std::function<void(LocalRuntimeStatus)> completion) {
  std::make_shared<Detection>(client, std::move(probes), std::move(completion))->ask(0, {});
}

std::shared_ptr<LocalRuntimeDetector> LocalRuntimeDetector::make(const UserDefaults& defaults,
                                                                 HttpClient& client) {
  return std::shared_ptr<LocalRuntimeDetector>(new LocalRuntimeDetector(defaults, client));
}

void LocalRuntimeDetector::refresh() {
  become(LocalRuntimeStatus::checking());
  auto probes = LocalRuntimeService::candidateProbes(LocalRuntimeService::configuredKind(defaults_),
                                                     LocalRuntimeService::configuredURL(defaults_));
  if (!probes) {
    become(LocalRuntimeStatus::unavailable(std::string(description(probes.error()))));
    return;
  }
  detectLocalRuntime(client_, std::move(*probes),
                     weakly(this, [](LocalRuntimeDetector& self, LocalRuntimeStatus status) {
                       self.become(std::move(status));
                     }));
}

void LocalRuntimeDetector::become(LocalRuntimeStatus status) {
  status_ = std::move(status);
  if (onChange) onChange();
}

}  // namespace vantrell
