#include "doctor/connection_doctor.h"

#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "project/git_workspace_service.h"

namespace vantrell {

namespace {

DiagnosticCheck passed(std::string id, std::string title, std::string detail) {
  return {std::move(id), std::move(title), std::move(detail), DiagnosticStatus::passed,
          DiagnosticSeverity::info};
}

DiagnosticCheck warning(std::string id, std::string title, std::string detail, std::string remedy) {
  return {std::move(id),
          std::move(title),
          std::move(detail),
          DiagnosticStatus::warning,
          DiagnosticSeverity::warning,
          std::move(remedy)};
}

DiagnosticCheck failed(std::string id, std::string title, std::string detail, std::string remedy) {
  return {std::move(id),
          std::move(title),
          std::move(detail),
          DiagnosticStatus::failed,
          DiagnosticSeverity::error,
          std::move(remedy)};
}

DiagnosticCheck providerCheck(const DoctorInput& input) {
  std::vector<std::string> ready;
  for (const auto& [provider, isReady] : input.providers) {
    if (isReady) ready.emplace_back(shortLabel(provider));
  }
  if (ready.empty()) {
    return failed("providers", "Provider runtimes", "No subscription or local runtime is ready.",
                  "Open Providers and connect at least one runtime.");
  }
  return passed("providers", "Provider runtimes", text::joined(ready, ", ") + " ready.");
}

DiagnosticCheck hostCheck(const DoctorRemote& remote) {
  if (remote.isEnabled) return passed("remote-host", "Remote host", remote.hostDetail);
  return warning("remote-host", "Remote host", "Remote access is disabled.",
                 "Enable Remote Access if you want Android or another Mac to control this host.");
}

/// The relay's text is all there is to judge by: "Connecting…" and "Reconnecting…" pass by, unlike
/// "Connected".
DiagnosticCheck relayCheck(const std::string& detail) {
  auto check =
      warning("relay", "Internet relay", detail,
              "Use Reconnect in Remote Access. LAN fallback remains available while the relay "
              "recovers.");
  const bool isBetween = text::containsIgnoringCase(detail, "connect") &&
                         !text::containsIgnoringCase(detail, "connected");
  if (!isBetween) check.status = DiagnosticStatus::passed;
  return check;
}

DiagnosticCheck fleetCheck(const FleetHost& host) {
  auto id = "fleet-" + host.name;
  auto title = "Fleet host: " + host.name;
  std::string detail(rawText(host.status));
  constexpr const char* remedy =
      "Verify that vantrell is running on the host and refresh its pairing or HTTPS endpoint.";
  switch (host.status) {
    case FleetHostStatus::offline:
      return warning(std::move(id), std::move(title), std::move(detail), remedy);
    case FleetHostStatus::needsAttention:
      return failed(std::move(id), std::move(title), std::move(detail), remedy);
    default: return passed(std::move(id), std::move(title), std::move(detail));
  }
}

DiagnosticCheck feedCheck(const Url& feed, const std::expected<HttpResponse, HttpError>& answer) {
  const auto name = feed.lastPathComponent();
  auto id = "feed-" + name;
  auto title = "Update feed: " + name;
  if (!answer) {
    return failed(std::move(id), std::move(title), answer.error().description,
                  "Check Internet access and the configured update feed.");
  }
  if (answer->status >= 200 && answer->status <= 399) {
    return passed(std::move(id), std::move(title),
                  fmt::format("Reachable (HTTP {}).", answer->status));
  }
  return failed(std::move(id), std::move(title), fmt::format("Returned HTTP {}", answer->status),
                "Check the update URL and TLS certificate.");
}

}  // namespace

std::size_t DiagnosticReport::issueCount() const {
  return static_cast<std::size_t>(std::ranges::count_if(checks, [](const DiagnosticCheck& check) {
    return check.status == DiagnosticStatus::warning || check.status == DiagnosticStatus::failed;
  }));
}

bool DiagnosticReport::isHealthy() const {
  return std::ranges::none_of(checks, [](const DiagnosticCheck& check) {
    return check.status == DiagnosticStatus::failed;
  });
}

JsonObject asJson(const DiagnosticReport& report) {
  Json::Array checks;
  for (const auto& check : report.checks) {
    JsonObject object{{"id", check.id},
                      {"title", check.title},
                      {"detail", check.detail},
                      {"status", rawText(check.status)},
                      {"severity", rawText(check.severity)}};
    if (check.remediation) object.set("remediation", *check.remediation);
    checks.push_back(std::move(object));
  }
  return {{"generatedAt", report.generatedAt.secondsSinceReference()},
          {"isRunning", report.isRunning},
          {"checks", std::move(checks)}};
}

ConnectionDoctor::ConnectionDoctor(Dependencies dependencies, DoctorInput input, Done done)
    : core_(dependencies), input_(std::move(input)), done_(std::move(done)) {}

ConnectionDoctor::~ConnectionDoctor() {
  stop_.request_stop();
}

std::shared_ptr<ConnectionDoctor> ConnectionDoctor::run(Dependencies dependencies,
                                                        DoctorInput input, Done done) {
  auto doctor = std::make_shared<ConnectionDoctor>(dependencies, std::move(input), std::move(done));
  doctor->core_.main.post(
      weakly(doctor.get(), [](ConnectionDoctor& self) { self.checkWorkspace(); }));
  return doctor;
}

void ConnectionDoctor::checkWorkspace() {
  if (!input_.workspacePath) return checkTheRest();
  struct Seen {
    bool isFolder = false;
    GitWorkspaceSnapshot git;
  };
  auto tell = weakly(this, [](ConnectionDoctor& self, const Seen& seen) {
    self.checks_.push_back(
        seen.isFolder
            ? passed("workspace", "Project workspace", *self.input_.workspacePath)
            : failed("workspace", "Project workspace", "The selected project folder is missing.",
                     "Re-open the project from its current location."));
    self.checks_.push_back(
        seen.git.isRepository
            ? passed("git", "Git safety", fmt::format("Repository ready on {}.", seen.git.branch))
            : warning("git", "Git safety", "No Git repository was detected.",
                      "Initialize Git to enable checkpoints, worktrees, and rewind."));
    self.checkTheRest();
  });
  core_.background.post([&main = core_.main, path = *input_.workspacePath, stop = stop_.get_token(),
                         tell = std::move(tell)]() mutable {
    Seen seen{files::isFolder(path), GitWorkspaceService::read(path, stop)};
    main.post([tell = std::move(tell), seen = std::move(seen)]() mutable { tell(seen); });
  });
}

void ConnectionDoctor::checkTheRest() {
  checks_.push_back(providerCheck(input_));
  checks_.push_back(hostCheck(input_.remote));
  checks_.push_back(relayCheck(input_.remote.relayDetail));
  for (const auto& host : input_.fleet) checks_.push_back(fleetCheck(host));
  checkNextFeed();
}

void ConnectionDoctor::checkNextFeed() {
  if (nextFeed_ == input_.feeds.size()) {
    return done_({.generatedAt = core_.main.now(), .checks = std::move(checks_)});
  }
  HttpRequest request;
  request.url = input_.feeds[nextFeed_].text();
  request.requestTimeout = request.resourceTimeout = feedLimit;
  request.longestBody = 0;
  request.excess = HttpRequest::Excess::drop;
  core_.http.send(std::move(request), weakly(this, [](ConnectionDoctor& self, const auto& answer) {
                    self.checks_.push_back(feedCheck(self.input_.feeds[self.nextFeed_], answer));
                    ++self.nextFeed_;
                    self.checkNextFeed();
                  }));
}

}  // namespace vantrell
