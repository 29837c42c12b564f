// The fleet against real hosts on this machine: an HTTP server and a paired host, both scripted.
// Secrets lie in real files; time is virtual.
#include "fleet/fleet.h"

#include <gmock/gmock.h>

#include "platform/secrets/secret_queue.h"
#include "platform/text/text.h"
#include "records/stores/orchestration_store.h"
#include "remote/scripted_remote.h"
#include "support/http_server.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using enum FleetHostStatus;
using Type = RemoteMessageType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string key(32, 'k');

RemoteWorkspace project(const std::string& id, const std::string& path,
                        const std::vector<std::string>& threads) {
  RemoteWorkspace made{.id = id, .name = id, .path = path};
  for (const auto& each : threads) made.threads.push_back({.id = each});
  return made;
}

/// Answers with what the test says, and keeps what was asked.
class LinuxHost {
 public:
  struct Answer {
    int status = 200;
    std::string body = "{}";
  };
  std::map<std::string, Answer> answers;  // by target; set while no request is under way
  std::vector<ReceivedRequest> asked() const {
    const std::lock_guard lock(mutex_);
    return asked_;
  }
  std::string url() const { return "http://" + server_.hostAndPort(); }

 private:
  mutable std::mutex mutex_;
  std::vector<ReceivedRequest> asked_;
  const HttpServer server_{HttpServer::answering([this](auto& connection, const auto& request) {
    {
      const std::lock_guard lock(mutex_);
      asked_.push_back(request);
    }
    const auto& answer = answers[request.target];
    connection.answer(answer.status, answer.body, "Location: /elsewhere\r\n");
  })};
};

class FleetTest : public ::testing::Test {
 protected:
  std::shared_ptr<Fleet> make() {
    return std::make_shared<Fleet>(Fleet::Dependencies{main_, pool_, changes_, secrets_, store_});
  }
  /// What the call has answered: the refusal, or nothing.
  std::string answerOf(const std::function<void(Fleet::Done)>& call) {
    std::optional<std::string> answer;
    call([&](const Result<>& result) { answer = result ? "" : result.error().sentence; });
    EXPECT_TRUE(main_.runUntil([&] { return answer.has_value(); }));
    return answer.value_or("none");
  }
  std::string add(const std::string& endpoint, const std::string& name = "box",
                  const std::optional<std::string>& token = {}) {
    return answerOf([&](auto done) {
      fleet_->addFleetHost(name, FleetPlatform::linux_, endpoint, token, std::move(done));
    });
  }
  std::string dispatch(const FleetTask& task) {
    return answerOf([&](auto done) { fleet_->dispatchTask(host().id, task, std::move(done)); });
  }
  void untilChecked() {
    EXPECT_TRUE(main_.runUntil([&] { return !fleet_->isChecking(); }));
  }
  const FleetHost& host() const { return fleet_->fleetHosts().back(); }
  std::string stored() {
    EXPECT_TRUE(fleet_->flush());
    return TemporaryFolder::contentOf(folder_ / "Orchestration/fleet.json");
  }

  const TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  Changes changes_{main_};
  SecretQueue secrets_{SecretStore::files(folder_ / "secrets"), main_, pool_};
  OrchestrationStore store_{folder_.path(), [this] { return main_.now(); },
                            [](const std::string&) {}};
  std::shared_ptr<Fleet> fleet_ = make();
};

TEST_F(FleetTest, RefusesWhatIsNoEndpoint) {
  for (const auto* endpoint : {"", " \n", "box", "ftp://box", "http://", "local://this-mac",
                               "vantrell://pair?host=box", "larkmoor://pair"}) {
    EXPECT_NE(add(endpoint), "") << endpoint;
  }
  EXPECT_THAT(fleet_->fleetHosts(), IsEmpty());
}

TEST_F(FleetTest, KeepsNoSecretInItsFile) {
  LinuxHost linux;
  const auto link = makePairingLink({.host = "127.0.0.1", .port = 1, .keyData = key, .name = "A"});
  EXPECT_EQ(add("  " + link + "\n"), "");
  const auto id = text::lowercased(host().id.text());
  EXPECT_EQ(host().endpoint, "keychain://" + id);
  EXPECT_EQ(add(linux.url(), "one", "first-key"), "");
  untilChecked();
  EXPECT_EQ(add(linux.url(), "two", "second-key"), "");
  untilChecked();
  ASSERT_EQ(fleet_->fleetHosts().size(), 2u);
  EXPECT_EQ(host().name, "two");
  EXPECT_EQ(linux.asked().back().headers.at("authorization"), "Bearer second-key");
  EXPECT_THAT(stored(), AllOf(HasSubstr("keychain://" + id), Not(HasSubstr("-key")),
                              Not(HasSubstr("vantrell://"))));

  const auto hosts = fleet_->fleetHosts();
  fleet_ = make();
  EXPECT_EQ(fleet_->fleetHosts(), hosts);
  fleet_->removeFleetHost(hosts[0].id);
  fleet_->removeFleetHost(hosts[1].id);
  fleet_->removeFleetHost(hosts[1].id);
  std::optional<std::string> secret = "unread";
  FleetCredentialStore(secrets_).load(hosts[0].id, [&](auto found) { secret = found; });
  EXPECT_TRUE(main_.runUntil([&] { return secret != "unread"; }));
  EXPECT_EQ(secret, std::nullopt);
  EXPECT_EQ(stored(), "[]");
}

TEST_F(FleetTest, ReadsWhatAnHttpHostSaysOfItself) {
  const std::string status = R"({"name":"build","capabilities":["Codex",3,"Grok"]})";
  const std::string projects =
      R"({"data":[{"id":"1","path":"/a|b"},{"id":2,"path":"/c"},7,{"id":"3"},{"id":"4","path":"/d"}]})";
  const struct {
    std::string token;
    LinuxHost::Answer status, projects;
    FleetHostStatus expected;
    std::string name;
    std::vector<std::string> paths;
  } cases[] = {
      {"k", {200, status}, {200, projects}, online, "build", {"1|/a|b", "4|/d"}},
      {"", {200, status}, {200, projects}, online, "build", {}},
      {"k", {399, "[]"}, {401, projects}, online, "box", {}},
      {"k", {302, status}, {200, "no"}, online, "build", {}},
      {"k", {404, status}, {200, projects}, needsAttention, "box", {}},
      {"k", {500, ""}, {200, projects}, needsAttention, "box", {}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << each.status.status << each.token);
    LinuxHost linux;
    linux.answers = {{"/v1/fleet/status", each.status}, {"/v1/projects", each.projects}};
    EXPECT_EQ(add(linux.url() + "/below?x=1", "box", each.token), "");
    untilChecked();
    EXPECT_EQ(host().status, each.expected);
    EXPECT_EQ(host().name, each.name);
    EXPECT_EQ(host().workspacePaths, each.paths);
    EXPECT_EQ(host().lastSeenAt.has_value(), each.expected == online);
    EXPECT_FALSE(linux.asked().front().headers.contains("authorization"));
    fleet_->removeFleetHost(host().id);
  }
}

TEST_F(FleetTest, HostThatCannotBeReachedIsOffline) {
  auto linux = std::make_unique<LinuxHost>();
  EXPECT_EQ(add(linux->url()), "");
  untilChecked();
  EXPECT_EQ(host().status, online);
  linux.reset();
  fleet_->refreshFleet();
  EXPECT_TRUE(fleet_->isChecking(host().id));
  untilChecked();
  EXPECT_EQ(host().status, offline);
  fleet_->refreshFleet();
  fleet_->removeFleetHost(host().id);  // with a request under way
  EXPECT_FALSE(fleet_->isChecking());
}

TEST_F(FleetTest, HandsATaskToAnHttpHost) {
  const std::string noKey =
      "This Linux host needs an authenticated jobs key. Edit or re-add it in Fleet & Automations.";
  const std::string noProject =
      "No allowed project was returned by the Linux host. Check the key's project scope and "
      "refresh the fleet.";
  const std::string projects = R"({"data":[{"id":"1","path":"/a"},{"id":"2","path":"/b"}]})";
  const struct {
    std::string token, projects, path;
    LinuxHost::Answer answer;
    std::string expected, project;
  } cases[] = {
      {"", projects, "/b", {202}, noKey, ""},
      {"k", R"({"data":[]})", "/b", {202}, noProject, ""},
      {"k", projects, "/b", {202}, "", "2"},
      {"k", projects, "/elsewhere", {202}, "", "1"},
      {"k", projects, "/b", {200, "done"}, "Linux host rejected the task: done", "2"},
      {"k", projects, "/b", {503, "\xff"}, "Linux host rejected the task: HTTP 503", "2"},
      {"k", projects, "/b", {307, ""}, "Linux host rejected the task: HTTP 307", "2"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.expected + each.path);
    LinuxHost linux;
    linux.answers = {{"/v1/projects", {200, each.projects}}, {"/v1/jobs", each.answer}};
    EXPECT_EQ(add(linux.url(), "box", each.token), "");
    // While the check is under way.
    EXPECT_EQ(
        dispatch({" mend it\n", each.path, AgentProvider::claude, GrokPermissionMode::fullAccess}),
        each.expected);
    EXPECT_EQ(host().status, each.expected.empty() ? busy : online);
    const auto last = linux.asked().back();
    EXPECT_EQ(last.target == "/v1/jobs", !each.project.empty());
    if (!each.project.empty()) {
      EXPECT_EQ(last.body, R"({"project_id":")" + each.project +
                               R"(","provider":"claude","prompt":"mend it",)"
                               R"("permission_mode":"full_access"})");
      EXPECT_EQ(last.headers.at("authorization"), "Bearer k");
      EXPECT_EQ(last.headers.at("idempotency-key").size(), 36u);
    }
    fleet_->removeFleetHost(host().id);
  }
  EXPECT_EQ(answerOf([&](auto done) { fleet_->dispatchTask(Uuid::random(), {"x"}, done); }),
            "Choose a registered host and enter a task first.");
  LinuxHost linux;
  EXPECT_EQ(add(linux.url()), "");
  EXPECT_EQ(dispatch({" \n"}), "Choose a registered host and enter a task first.");
}

class PairedFleetTest : public FleetTest {
 protected:
  PairedFleetTest() {
    mac_.listen();
    EXPECT_EQ(add(makePairingLink(
                  {.host = "127.0.0.1", .port = mac_.port(), .keyData = key, .name = "Studio"})),
              "");
    EXPECT_TRUE(untilReceived(Type::hello));
  }
  /// The client's end of the connection goes on threads of its own.
  ~PairedFleetTest() override {
    fleet_.reset();
    main_.runUntil([&] { return mac_.ends == mac_.connections; }, std::chrono::milliseconds(200));
  }
  bool untilReceived(Type type) {
    return main_.runUntil(
        [&] { return !mac_.received.empty() && mac_.received.back().knownType() == type; });
  }
  /// Shows the projects, of which the first is selected.
  void show(std::vector<RemoteWorkspace> projects, const std::string& thread = {},
            const std::string& status = "ready") {
    auto message = RemoteEnvelope::make(Type::snapshot);
    message.snapshot = RemoteSnapshot{.hostName = "Studio " + std::to_string(++shown_),
                                      .connectionStatus = status,
                                      .workspaces = std::move(projects)};
    if (!message.snapshot->workspaces.empty()) {
      message.snapshot->selectedWorkspaceID = message.snapshot->workspaces.front().id;
    }
    if (!thread.empty()) message.snapshot->selectedThreadID = thread;
    message.snapshot->providers = {{.shortLabel = "Codex", .available = true},
                                   {.shortLabel = "Kimi"}};
    mac_.send(message);
    EXPECT_TRUE(main_.runUntil([&] { return host().name == "Studio " + std::to_string(shown_); }));
  }
  void answer(Type type, const std::string& text) {
    auto message = RemoteEnvelope::make(type);
    (type == Type::ack ? message.acknowledgesID : message.text) = text;
    mac_.send(message);
  }
  /// Begins a task; what it answers is outcome().
  void begin(const std::string& prompt) {
    outcome_ = std::make_shared<std::optional<std::string>>();
    fleet_->dispatchTask(host().id, {prompt, "/b"}, [own = outcome_](const Result<>& result) {
      *own = result ? "" : result.error().sentence;
    });
  }
  const std::optional<std::string>& outcome() const { return *outcome_; }

  ScriptedHost mac_{main_, key};
  std::shared_ptr<std::optional<std::string>> outcome_;
  int shown_ = 0;
};

TEST_F(PairedFleetTest, FollowsTheHostsSnapshots) {
  const std::pair<std::string, FleetHostStatus> cases[] = {
      {"ready", online}, {"working", busy}, {"failed", needsAttention}, {"idle", online}};
  for (const auto& [status, expected] : cases) {
    show({project("p", "/p", {}), project("q", "/q", {})}, "", status);
    EXPECT_EQ(host().status, expected) << status;
  }
  EXPECT_THAT(host().capabilities, ElementsAre("Codex"));
  EXPECT_THAT(host().workspacePaths, ElementsAre("/p", "/q"));
  fleet_->refreshFleet();
  mac_.close();
  EXPECT_TRUE(main_.runUntil([&] { return host().status == offline; }));
  EXPECT_EQ(mac_.connections, 1);
}

TEST_F(PairedFleetTest, GivesThePromptToTheConversationThatWasMadeForIt) {
  show({project("a", "/a", {"old"}), project("b", "/b", {"other"})}, "old");
  begin("first");
  const auto first = outcome_;
  begin("mend it");
  EXPECT_EQ(*first, "A later task for this host took its place.");
  ASSERT_TRUE(untilReceived(Type::newThread));
  EXPECT_EQ(mac_.received.back().workspaceID, "b");
  // From before the command.
  show({project("b", "/b", {"other"}), project("a", "/a", {"old"})}, "other");
  EXPECT_EQ(mac_.received.back().knownType(), Type::newThread);
  show({project("b", "/b", {"made", "other"}), project("a", "/a", {"old"})}, "made");
  ASSERT_TRUE(untilReceived(Type::prompt));
  const auto prompt = mac_.received.back();
  EXPECT_EQ(prompt.workspaceID, "b");
  EXPECT_EQ(prompt.threadID, "made");
  EXPECT_EQ(prompt.text, "mend it");
  show({project("b", "/b", {"later", "made", "other"})}, "later");  // is no second prompt's place
  answer(Type::ack, "of something else");
  answer(Type::ack, prompt.id);
  EXPECT_TRUE(main_.runUntil([&] { return outcome() == ""; }));
  EXPECT_EQ(mac_.received.back().id, prompt.id);
}

TEST_F(PairedFleetTest, SaysWhyATaskWasNotTaken) {
  show({});
  begin("x");
  EXPECT_EQ(outcome(), "The remote host has no project workspace available.");
  show({project("a", "/a", {})});
  begin("x");
  main_.advance(Fleet::confirmationLimit);
  EXPECT_EQ(outcome(), host().name + " has not confirmed the task.");
  begin("x");
  ASSERT_TRUE(untilReceived(Type::newThread));
  show({project("a", "/a", {"made"})}, "made");
  ASSERT_TRUE(untilReceived(Type::prompt));
  answer(Type::error, "Metered APIs are blocked.");
  answer(Type::ack, mac_.received.back().id);
  EXPECT_TRUE(main_.runUntil([&] { return outcome().has_value(); }));
  EXPECT_EQ(outcome(), "Metered APIs are blocked.");
  begin("x");
  fleet_->removeFleetHost(host().id);
  EXPECT_EQ(outcome(), "The host was removed.");
}

TEST_F(PairedFleetTest, HostThatIsAwayIsNamed) {
  mac_.close();
  EXPECT_TRUE(main_.runUntil([&] { return host().status == offline && !fleet_->isChecking(); }));
  begin("x");
  EXPECT_EQ(outcome(), "box is not connected. Vantrell keeps trying.");
}

}  // namespace
}  // namespace vantrell::tests
