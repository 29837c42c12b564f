// The list of checks over every state of what they look at, with real folders, git and servers.
#include "doctor/doctor.h"
#include "support/engine_fixture.h"
#include "support/git_repository.h"
#include "support/http_client_fixture.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using Status = DiagnosticStatus;
using Fleet = FleetHostStatus;

class ConnectionDoctorChecks : public HttpClientFixture {
 protected:
  DiagnosticReport run(DoctorInput input) {
    std::optional<DiagnosticReport> report;
    HttpClient http(loop_);
    const auto doctor =
        ConnectionDoctor::run({loop_, pool_, http}, std::move(input),
                              [&](DiagnosticReport found) { report = std::move(found); });
    runUntil([&] { return report.has_value(); });
    return report.value_or(DiagnosticReport{});
  }
  static DoctorInput healthy(std::string folder) {
    return {.workspacePath = std::move(folder),
            .providers = {{AgentProvider::codex, true},
                          {AgentProvider::kimi, false},
                          {AgentProvider::claude, true}},
            .remote = {true, "Available on port 43765", "Internet relay ready"},
            .fleet = {{.name = "tower", .status = Fleet::online},
                      {.name = "den", .status = Fleet::busy}}};
  }
  BackgroundPool pool_;
};

TEST_F(ConnectionDoctorChecks, EachFindingInTurn) {
  const GitRepository project;
  project.file("a", "");
  project.git({"add", "-A"});
  project.commit();
  const TemporaryFolder plain;
  const auto file = plain.file("a-file", "");
  const HttpServer server(HttpServer::answering([](auto& connection, const auto& request) {
    connection.answer(request.target == "/gone.xml"    ? 404
                      : request.target == "/moved.xml" ? 301
                                                       : 200,
                      std::string(100'000, 'x'));
  }));
  const auto feed = [&](const std::string& path) { return *Url::parse(server.url(path)); };
  const auto closed =
      *Url::parse("http://127.0.0.1:" + std::to_string(closedPort()) + "/appcast.xml");
  const auto with = [&](auto change) {
    auto input = healthy(project.path());
    change(input);
    return input;
  };
  const struct {
    DoctorInput input;
    std::string id;
    Status status;
    std::string detail;
    std::string remedy;  // its beginning; empty: none
  } cases[] = {
      {with([](auto&) {}), "workspace", Status::passed, project.path(), ""},
      {with([](auto&) {}), "git", Status::passed, "Repository ready on main.", ""},
      {with([](auto&) {}), "providers", Status::passed, "Codex, Claude ready.", ""},
      {with([](auto&) {}), "remote-host", Status::passed, "Available on port 43765", ""},
      {with([](auto&) {}), "relay", Status::passed, "Internet relay ready", "Use Reconnect"},
      {with([](auto&) {}), "fleet-tower", Status::passed, "online", ""},
      {with([](auto&) {}), "fleet-den", Status::passed, "busy", ""},
      {with([](auto& in) { in.workspacePath = "/no/such"; }), "workspace", Status::failed,
       "The selected project folder is missing.", "Re-open the project"},
      {with([&](auto& in) { in.workspacePath = file; }), "workspace", Status::failed,
       "The selected project folder is missing.", "Re-open the project"},
      {with([&](auto& in) { in.workspacePath = file; }), "git", Status::warning,
       "No Git repository was detected.", "Initialize Git"},
      {with([&](auto& in) { in.workspacePath = plain.path(); }), "workspace", Status::passed,
       plain.path(), ""},
      {with([&](auto& in) { in.workspacePath = plain.path(); }), "git", Status::warning,
       "No Git repository was detected.", "Initialize Git"},
      {with([](auto& in) { in.providers = {{AgentProvider::grok, false}}; }), "providers",
       Status::failed, "No subscription or local runtime is ready.", "Open Providers"},
      {with([](auto& in) { in.remote.isEnabled = false; }), "remote-host", Status::warning,
       "Remote access is disabled.", "Enable Remote Access"},
      {with([](auto& in) { in.remote.relayDetail = "Connecting…"; }), "relay", Status::warning,
       "Connecting…", "Use Reconnect"},
      {with([](auto& in) { in.remote.relayDetail = "Reconnecting…"; }), "relay", Status::warning,
       "Reconnecting…", "Use Reconnect"},
      {with([](auto& in) { in.remote.relayDetail = "Connected"; }), "relay", Status::passed,
       "Connected", "Use Reconnect"},
      {with([](auto& in) { in.remote.relayDetail = "Off"; }), "relay", Status::passed, "Off",
       "Use Reconnect"},
      {with([](auto& in) { in.fleet[0].status = Fleet::offline; }), "fleet-tower", Status::warning,
       "offline", "Verify that vantrell"},
      {with([](auto& in) { in.fleet[0].status = Fleet::needsAttention; }), "fleet-tower",
       Status::failed, "needsAttention", "Verify that vantrell"},
      {with([&](auto& in) { in.feeds = {feed("/appcast.xml")}; }), "feed-appcast.xml",
       Status::passed, "Reachable (HTTP 200).", ""},
      {with([&](auto& in) { in.feeds = {feed("/moved.xml")}; }), "feed-moved.xml", Status::passed,
       "Reachable (HTTP 301).", ""},
      {with([&](auto& in) { in.feeds = {feed("/gone.xml")}; }), "feed-gone.xml", Status::failed,
       "Returned HTTP 404", "Check the update URL"},
      {with([&](auto& in) { in.feeds = {closed}; }), "feed-appcast.xml", Status::failed,
       closed.hostAndPort(), "Check Internet access"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.id + " " + each.detail);
    const auto report = run(each.input);
    const auto found = std::ranges::find(report.checks, each.id, &DiagnosticCheck::id);
    ASSERT_NE(found, report.checks.end());
    EXPECT_EQ(found->status, each.status) << found->detail;
    EXPECT_TRUE(found->detail.contains(each.detail)) << found->detail;
    EXPECT_EQ(found->remediation.has_value(), !each.remedy.empty());
    EXPECT_TRUE(found->remediation.value_or("").starts_with(each.remedy));
    EXPECT_EQ(found->severity, each.id == "relay" || each.status == Status::warning
                                   ? DiagnosticSeverity::warning
                               : each.status == Status::failed ? DiagnosticSeverity::error
                                                               : DiagnosticSeverity::info);
    EXPECT_FALSE(each.status == Status::failed && report.isHealthy());
  }
}

TEST_F(ConnectionDoctorChecks, AHealthyMachinePassesThroughout) {
  const GitRepository project;
  project.commit();
  const auto report = run(healthy(project.path()));
  EXPECT_TRUE(report.isHealthy());
  for (const auto& check : report.checks) EXPECT_EQ(check.status, Status::passed) << check.id;
}

TEST_F(ConnectionDoctorChecks, TheOrderIsFixedAndABareMachineHasNoProject) {
  const auto ids = [](const DiagnosticReport& report) {
    std::vector<std::string> all;
    for (const auto& check : report.checks) all.push_back(check.id);
    return all;
  };
  EXPECT_EQ(ids(run({.remote = {.relayDetail = "Off"}})),
            (std::vector<std::string>{"providers", "remote-host", "relay"}));
  const TemporaryFolder folder;
  EXPECT_EQ(ids(run(healthy(folder.path()))),
            (std::vector<std::string>{"workspace", "git", "providers", "remote-host", "relay",
                                      "fleet-tower", "fleet-den"}));
}

class DoctorOfTheProgram : public EngineFixture {
 protected:
  void startDoctor() {
    start();
    http = std::make_unique<HttpClient>(main);
    auto& parts = app->parts();
    doctor = std::make_shared<Doctor>(
        Doctor::Dependencies{main, parts.changes, held, *http, *parts.runtimes, providers,
                             *parts.router, *parts.git, *parts.catalog},
        DoctorSources{.refreshSessions = [this] { done.push_back("sessions"); },
                      .refreshFleet = [this] { done.push_back("fleet"); },
                      .restartRemoteHost = [this] { done.push_back("host"); }});
  }
  std::string providersFound() const {
    for (const auto& check : doctor->diagnosticReport()->checks) {
      if (check.id == "providers") return check.detail;
    }
    return "";
  }
  ~DoctorOfTheProgram() override { doctor.reset(); }

  BackgroundPool held{1};
  std::unique_ptr<HttpClient> http;
  std::shared_ptr<Doctor> doctor;
  std::vector<std::string> done;
};

TEST_F(DoctorOfTheProgram, LeavesOutMeteredProvidersAndAsksWhatIsNotKnown) {
  others = {AgentProvider::codex};
  int asked = 0;
  providers.findOut = [&](AgentProvider, const std::function<void()>& then) {
    ++asked;
    then();
  };
  providers.connectors[AgentProvider::codex].billingMode = ProviderBillingMode::meteredAPI;
  startDoctor();
  doctor->runConnectionDoctor(std::nullopt);
  EXPECT_TRUE(doctor->diagnosticReport()->isRunning);
  main.runReady();
  EXPECT_FALSE(doctor->diagnosticReport()->isRunning);
  EXPECT_EQ(providersFound(), "Kimi ready.");
  EXPECT_EQ(asked, 2) << "the model server and the webhook";
  static_cast<void>(app->parts().settings.recordNoMeteredAPIs(false));
  doctor->runConnectionDoctor(std::nullopt);
  main.runReady();
  EXPECT_EQ(providersFound(), "Codex, Kimi ready.");
}

TEST_F(DoctorOfTheProgram, RepairsInOrderAndReportsTwoSecondsLater) {
  for (auto& [each, connector] : providers.connectors) {
    connector.modelOptions = [](const auto&) { return std::vector<ProviderModelOption>(); };
  }
  startDoctor();
  doctor->repairCommonIssues(std::nullopt, [&](const auto&) { done.push_back("report"); });
  EXPECT_GE(providers.localRefreshes, 1);
  EXPECT_EQ(done, (std::vector<std::string>{"sessions", "fleet", "host"}));
  main.advance(std::chrono::milliseconds(1999));
  EXPECT_FALSE(doctor->diagnosticReport());
  main.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(done.back(), "report");
}

}  // namespace
}  // namespace vantrell::tests
