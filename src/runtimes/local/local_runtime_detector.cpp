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

/// Asks the places from `index` on; `message` is what became of the one before.
void ask(HttpClient& client, std::shared_ptr<const std::vector<Probe>> probes, std::size_t index,
         std::string message, std::function<void(LocalRuntimeStatus)> completion) {
  if (index == probes->size()) {
    return completion(LocalRuntimeStatus::unavailable(std::move(message)));
  }
  HttpRequest request{.url = (*probes)[index].discoveryURL.text(),
                      .requestTimeout = probeTimeout,
                      .resourceTimeout = longestProbe,
                      // To where the rules for addresses might not let us go.
                      .redirects = HttpRequest::Redirects::refuse};
  client.send(std::move(request), [&client, probes, index, completion](auto result) {
    // Only the end of the client cancels: it must not be asked again.
    const bool isOver = !result && result.error().kind == HttpError::Kind::cancelled;
    auto found = judge((*probes)[index], std::move(result));
    if (found) return completion(LocalRuntimeStatus::ready(std::move(*found)));
    ask(client, probes, isOver ? probes->size() : index + 1, std::move(found.error()), completion);
  });
}

}  // namespace

void detectLocalRuntime(HttpClient& client, std::vector<Probe> probes,
                        std::function<void(LocalRuntimeStatus)> completion) {
  ask(client, std::make_shared<const std::vector<Probe>>(std::move(probes)), 0, {},
      std::move(completion));
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
