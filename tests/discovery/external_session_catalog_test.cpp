// Scans of programs that are scripts; time is virtual.
#include "discovery/external_session_catalog.h"

#include <gmock/gmock.h>

#include "platform/values/url.h"
#include "support/runtime_programs.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;
using enum AgentProvider;
using Kind = ExternalSessionDiscoveryState::Kind;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string timedOut = "The provider did not answer the session-list request in time.";

class ExternalSessionCatalogTest : public RuntimeProgramsFixture {
 protected:
  /// A server whose answers, one for each request with an id, are these lines; N is the id.
  std::string answering(const std::vector<std::string>& answers) {
    std::string script =
        "n=0\nwhile read -r line; do\n  case $line in *'\"id\"'*) n=$((n+1));; *) continue;; esac\n"
        "  printf '%s\\n' \"$line\" >> \"$0.log\"\n  case $n in\n";
    for (std::size_t index = 0; index < answers.size(); ++index) {
      script += fmt::format("    {}) cat <<EOF\n{}\nEOF\n;;\n", index + 1, answers[index]);
    }
    return script + "  esac\ndone";
  }
  static std::string result(int id, const std::string& result) {
    return fmt::format(R"({{"id":{},"result":{}}})", id, result);
  }
  std::string project(const std::string& name) { return home_.folder(name); }
  /// In seconds since 1970, so long before now.
  std::string ago(std::chrono::seconds age) {
    return fmt::format("{}", (main_.now() - Seconds(age)).secondsSinceUnixEpoch());
  }
  ExternalSessionScanResult scan(const std::vector<std::string>& folders = {}) {
    std::optional<ExternalSessionScanResult> found;
    catalog_.discover(folders, [&](ExternalSessionScanResult result) { found = result; });
    EXPECT_TRUE(main_.runUntil([&] { return found.has_value(); }));
    return found.value_or(ExternalSessionScanResult());
  }
  static std::vector<std::string> ids(const ExternalSessionScanResult& result) {
    std::vector<std::string> all;
    for (const auto& each : result.sessions) all.push_back(each.sessionID);
    return all;
  }
  std::string logOf(AgentProvider provider) {
    return TemporaryFolder::contentOf(custom_[provider] + ".log");
  }

  ExternalSessionCatalog catalog_{{.main = main_,
                                   .pool = pool_,
                                   .runner = runner_,
                                   .customExecutable = programs_.customExecutable}};
};

TEST_F(ExternalSessionCatalogTest, SaysWhatCannotBeScanned) {
  install(claude, "");
  const auto reports = scan().reports;
  EXPECT_EQ(reports.at(grok).state.reason, "Install Grok Build to discover its sessions.");
  EXPECT_EQ(reports.at(claude).state.kind, Kind::resumeOnly);
  EXPECT_EQ(reports.at(local).state.kind, Kind::unavailable);
  EXPECT_EQ(reports.size(), allAgentProviders.size());
}

TEST_F(ExternalSessionCatalogTest, KeepsWhatIsRecentAndHasItsFolder) {
  const auto here = project("p");
  const auto file = home_.file("file", "");
  const auto session = [&](const std::string& id, const std::string& folder,
                           std::chrono::seconds age, const std::string& more = "") {
    return fmt::format(R"({{"id":"{}","cwd":"{}","updatedAt":{}{}}})", id, folder, ago(age), more);
  };
  const auto list =
      session("new", here + "/", 1h) + "," + session("old", here, std::chrono::days(8)) + "," +
      session("oldButActive", "file://" + here, std::chrono::days(8), R"(,"active":true)") + "," +
      session("gone", here + "/gone", 1h, R"(,"active":true)") + "," + session("file", file, 1h) +
      "," + session("relative", "p", 1h) + "," + session("twice", here, 3h, R"(,"title":"older")") +
      "," + session("twice", here, 2h, R"(,"title":"newer")") + "," +
      session("twice", here, 2h, R"(,"title":"later, as old")");
  install(kimi, answering({R"({"method":"hello","id":1})"
                           "\nnoise\n" +
                               result(1, "{}"),
                           result(2, R"({"sessions":[)" + list + "]}")}));
  const auto found = scan();
  EXPECT_THAT(ids(found), ElementsAre("new", "twice", "oldButActive"));
  EXPECT_EQ(found.sessions[1].title, "newer");
  for (const auto& each : found.sessions) EXPECT_EQ(each.workspacePath, here);
  EXPECT_EQ(found.reports.at(kimi).state.count, 3u);
}

TEST_F(ExternalSessionCatalogTest, TurnsThePagesOfCodexUpToABound) {
  const auto here = project("p");
  std::string page;
  for (int each = 0; each < 100; ++each) {
    page += fmt::format(R"({}{{"id":"PAGE-{}","cwd":"{}","updatedAt":{}}})", each ? "," : "", each,
                        here, ago(1h));
  }
  const auto numbered = [&](int number) {
    auto text = page;
    for (auto at = text.find("PAGE"); at != std::string::npos; at = text.find("PAGE", at)) {
      text.replace(at, 4, std::to_string(number));
    }
    return R"({"nextCursor":"next )" + std::to_string(number) + R"(","data":[)" + text + "]}";
  };
  std::vector<std::string> answers{result(1, "{}"), result(2, R"({"data":["0-7"]})")};
  for (int number = 0; number < 9; ++number)
    answers.push_back(result(number + 3, numbered(number)));
  install(codex, answering(answers));
  const auto found = scan();
  EXPECT_EQ(found.sessions.size(), ExternalSessionCatalog::mostThreads);
  const auto idle = std::ranges::find(found.sessions, "0-7", &ExternalProviderSession::sessionID);
  EXPECT_EQ(idle->activity, ExternalSessionActivity::idle);
  EXPECT_THAT(logOf(codex), HasSubstr(R"("cursor":"next 3")"));
}

TEST_F(ExternalSessionCatalogTest, AsksGrokInEachOfItsProjects) {
  const auto one = project("one"), two = project("with space");
  const std::string id[] = {"01a20bee-66fc-7133-a8c2-996edacd9525",
                            "11a20bee-66fc-7133-a8c2-996edacd9525"};
  home_.folder("grok/sessions/x/" + id[0]);
  home_.file("grok/sessions/x/.cwd", one + "\n");
  home_.folder("grok/sessions/" + percentEncoded(two, ""));
  home_.folder("grok/sessions/gone");
  process_.set("GROK_HOME", "~/grok");
  install(grok, fmt::format("pwd >> \"$0.log\"; echo \"$*\" >> \"$0.log\"\n"
                            "case $(pwd) in *space) echo broken; exit 3;; esac\n"
                            "echo head; echo '{0} 2001-01-02 2001-01-03 idle A title'\n"
                            "echo '{1} 2001-01-02 2001-01-03 active B'",
                            id[0], id[1]));
  const auto found = scan();
  EXPECT_EQ(found.reports.at(grok).state.kind, Kind::available);
  // The folder of the first says when it was used; the second is old, and active.
  EXPECT_THAT(ids(found), ElementsAre(id[0], id[1]));
  EXPECT_EQ(found.sessions[0].title, "A title");
  EXPECT_EQ(found.sessions[1].workspacePath, one);
  EXPECT_THAT(logOf(grok), AllOf(HasSubstr(two), HasSubstr("sessions list --limit 100")));
}

TEST_F(ExternalSessionCatalogTest, AsksOpenCodeAtHomeAndInKnownProjects) {
  const auto one = project("one");
  install(glm,
          "echo 'a warning' >&2; [ \"$PWD\" = \"$HOME\" ] && set home || set there\n"
          "echo '[{\"id\":\"'$1'\",\"directory\":\"'$PWD'\",\"updated\":" +
              ago(1h) + "}]'");
  EXPECT_THAT(ids(scan({one, one + "/gone"})), testing::UnorderedElementsAre("home", "there"));
}

TEST_F(ExternalSessionCatalogTest, OneThatFailsHoldsUpNoOther) {
  install(grok, "exit 1");  // without a store there is nothing to list
  install(codex, answering({R"({"id":1,"error":{"message":"No."}})"}));
  install(kimi, "exit 0");
  install(glm, "echo 'not now'; exit 1");
  const auto reports = scan().reports;
  EXPECT_EQ(reports.at(grok).state.kind, Kind::available);
  EXPECT_EQ(reports.at(codex).state.reason, "No.");
  EXPECT_EQ(reports.at(kimi).state.kind, Kind::failed);
  EXPECT_EQ(reports.at(glm).state.reason, "not now");
}

TEST_F(ExternalSessionCatalogTest, OneThatNeverAnswersIsGivenUp) {
  install(codex, answering({result(1, "{}")}));
  install(kimi, "exec sleep 1000");
  install(glm, "exec yes");
  std::optional<ExternalSessionScanResult> found, second;
  catalog_.discover({}, [&](ExternalSessionScanResult result) { found = result; });
  catalog_.discover({}, [&](ExternalSessionScanResult result) { second = result; });
  EXPECT_TRUE(main_.runUntil([&] {
    main_.advance(1s);
    main_.post([] {});
    return found.has_value();
  }));
  ASSERT_TRUE(second) << "joins the scan that is under way";
  for (const auto provider : {codex, kimi, glm}) {
    EXPECT_EQ(found->reports.at(provider).state.reason, timedOut) << rawText(provider);
  }
}

}  // namespace
}  // namespace vantrell::tests
