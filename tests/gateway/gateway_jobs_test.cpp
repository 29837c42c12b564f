// Jobs from the request to the end of their agents, which are real children.
#include "gateway/gateway_jobs.h"

#include <gmock/gmock.h>

#include "gateway/gateway_fixture.h"
#include "platform/http/http_client.h"
#include "platform/values/json_objects.h"
#include "runtimes/catalog/provider_connectors.h"
#include "support/acp_agent_script.h"
#include "support/environment.h"
#include "support/fake_agent_client.h"

namespace vantrell::tests {
namespace {

using enum AgentProvider;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* quit =
    "vantrell quit while this job was running. Submit it again if it is still needed.";

class GatewayJobsTest : public GatewayFixture {
 protected:
  /// A job whose agent is at work in the state, in front of all others.
  std::string jobIn(const Caller& caller, const std::string& state) {
    if (state == "starting") runScript(ACPAgentScript().hang());
    const auto path = job(caller, state == "waiting_for_approval" ? "ASK:go?" : "SAY:here\nHANG");
    if (state == "working") {
      EXPECT_TRUE(main.runUntil([&] { return jobs->find(idIn(path))->output == "here"; }));
    }
    await(caller, path, state);
    return path;
  }
  /// In the place of the practice agent.
  void runScript(const AgentScriptText& script) {
    program = AgentScriptText::program();
    argument = folder.file("script", script.text());
  }
  void runPracticeAgent() {
    program = practiceAgent;
    argument = "acp";
  }

  const Caller site = makeKey("site", {codex, grok});
  const Caller shop = makeKey("shop", {grok}, GrokPermissionMode::auto_, {"shop"});
};

TEST_F(GatewayJobsTest, TwoKeysShareTheQueueAndEachHasPlaceFor25) {
  const auto first = job(site, "ASK:go?");
  await(site, first, "waiting_for_approval");
  std::vector<std::string> paths;
  for (int i = 1; i < 25; ++i) paths.push_back(job(site, "SAY:" + std::to_string(i)));
  EXPECT_EQ(submit(site, "SAY:26").code(), "queue_full");
  const JsonObject forShop{{"project", projectID(1)}, {"provider", "grok"}};
  const auto others = job(shop, "SAY:shop", forShop);
  EXPECT_EQ(status(site, paths.front()), "queued") << "one runs at a time";
  EXPECT_EQ(contexts.size(), 1u);

  // Neither sees the other's, in whatever way it asks.
  const auto unknown = get(site, "/v1/jobs/" + Uuid::random().text());
  EXPECT_EQ(get(site, others).status, 404);
  EXPECT_EQ(get(site, others).body, unknown.body);
  EXPECT_EQ(get(site, others + "/events").body, unknown.body);
  EXPECT_EQ(post(site, others + "/cancel").code(), "job_not_found");
  EXPECT_EQ(post(shop, first + "/approval", {{"option_id", "allow_once"}}).code(), "job_not_found");

  EXPECT_EQ(post(site, first + "/approval", {{"option_id", "allow_once"}}).text("status"),
            "working");
  await(site, first, "completed");
  const auto last = submit(site, "SAY:last");
  EXPECT_EQ(last.status, 202) << "there is place again";
  const auto list = get(site, "/v1/jobs");
  ASSERT_EQ(list.body.asArray()->size(), 26u);
  EXPECT_EQ(json::textOr(*list.body.asArray()->front().asObject(), "id", ""), last.text("id"))
      << "the newest comes first";
  await(shop, others, "completed");
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EXPECT_EQ(get(site, paths[i]).text("output"), std::to_string(i + 1));
  }
  EXPECT_EQ(get(shop, "/v1/jobs").body.asArray()->size(), 1u);
  EXPECT_EQ(contexts[25].workspacePath, folder / "shop");
}

TEST_F(GatewayJobsTest, ApprovalIsGivenOrRefusedByItsOption) {
  const struct {
    const char* option;
    bool isWritten;
    const char* said;
  } cases[] = {{"allow_once", true, "Wrote"}, {"reject_once", false, "You said no"}};
  for (const auto& [option, isWritten, said] : cases) {
    SCOPED_TRACE(option);
    const auto path = job(site, "WRITE:notes.txt=hello");
    const auto waiting = await(site, path, "waiting_for_approval");
    const auto* approval = json::object(waiting.object(), "pending_approval");
    ASSERT_TRUE(approval);
    EXPECT_EQ(json::textOr(*approval, "title", ""), "Write notes.txt");
    EXPECT_EQ(json::array(*approval, "options")->size(), 3u);
    EXPECT_TRUE(json::integer(*approval, "request_id"));

    EXPECT_EQ(ask(site, "POST", path + "/approval", "{").code(), "invalid_approval");
    EXPECT_EQ(post(site, path + "/approval", {{"option_id", 1}}).code(), "invalid_approval");
    EXPECT_EQ(post(site, path + "/approval", {{"option_id", "no"}}).code(),
              "invalid_approval_option");
    const auto answered = post(site, path + "/approval", {{"option_id", option}});
    EXPECT_EQ(answered.status, 200);
    EXPECT_EQ(answered.text("status"), "working");
    EXPECT_FALSE(answered.object().find("pending_approval"));
    EXPECT_THAT(await(site, path, "completed").text("output"), HasSubstr(said));
    EXPECT_EQ(post(site, path + "/approval", {{"option_id", option}}).code(),
              "approval_not_pending");
    EXPECT_EQ(std::filesystem::exists(folder / "site/notes.txt"), isWritten);
    auto types = eventTypes(site, path);
    EXPECT_GE(std::erase(types, "tool"), 2u);
    EXPECT_THAT(types,
                ElementsAre("queued", "starting", "working", "attention", "approval", "completed"));
    std::filesystem::remove(folder / "site/notes.txt");
  }
}

TEST_F(GatewayJobsTest, CancellingEndsAJobInEachState) {
  for (const std::string state : {"queued", "starting", "working", "waiting_for_approval"}) {
    SCOPED_TRACE(state);
    const auto running = jobIn(site, state == "queued" ? "working" : state);
    runPracticeAgent();
    const auto queued = job(site, "SAY:next");
    const auto path = state == "queued" ? queued : running;
    const auto answer = post(site, path + "/cancel");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.text("status"), "cancelled");
    EXPECT_FALSE(answer.text("finished_at").empty());
    EXPECT_FALSE(answer.object().find("pending_approval"));
    EXPECT_EQ(post(site, path + "/cancel").code(), "job_finished");
    EXPECT_EQ(post(site, path + "/approval", {{"option_id", "allow_once"}}).code(),
              "approval_not_pending");
    if (state == "queued") {
      EXPECT_EQ(status(site, running), "working") << "the agent at work is not disturbed";
      post(site, running + "/cancel");
    } else {
      await(site, queued, "completed");
    }
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20))) << "no agent is left";
  }
}

TEST_F(GatewayJobsTest, ClientThatEndsWhileItIsCancelledTouchesNoOtherJob) {
  const std::pair<const char*, std::function<void(const Caller&, const std::string&)>> ways[] = {
      {"cancelled", [&](const auto& caller, const auto& path) { post(caller, path + "/cancel"); }},
      {"revoked",
       [&](const auto& caller, const auto&) { EXPECT_TRUE(jobs->revokeKey(caller.id)); }},
      {"barred", [&](const auto&, const auto&) {
         providers.connectors[grok].billingMode = ProviderBillingMode::meteredAPI;
         settings.recordNoMeteredAPIs(true);
         main.runReady();
       }}};
  for (const auto& [way, end] : ways) {
    SCOPED_TRACE(way);
    std::vector<std::shared_ptr<FakeAgentClient>> clients;
    for (const auto each : {codex, grok}) {
      providers.connectors[each].makeClient = [&, each](const auto&) {
        clients.push_back(std::make_shared<FakeAgentClient>(each));
        clients.back()->endsOnCancel = true;
        return clients.back();
      };
    }
    const auto caller = makeKey(way, {grok});
    const auto first = job(caller, "one", {{"provider", "grok"}});
    const auto next = job(site, "two");
    ASSERT_EQ(clients.size(), 1u);
    clients[0]->opens("s");
    end(caller, first);
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_EQ(clients[0]->cancels, 1);
    EXPECT_EQ(clients[1]->stops, 0);
    EXPECT_EQ(status(site, next), "starting");
    const auto ended = jobs->find(idIn(first));
    EXPECT_EQ(ended ? rawText(ended->status) : "revoked",
              way == std::string("barred") ? "failed" : way);
    clients[1]->opens("s");
    clients[1]->finishes();
    EXPECT_EQ(status(site, next), "completed");
  }
}

TEST_F(GatewayJobsTest, RestartFailsWhatWasAtWorkAndRunsWhatWaited) {
  for (const std::string state : {"starting", "working", "waiting_for_approval"}) {
    SCOPED_TRACE(state);
    const auto path = jobIn(site, state);
    runPracticeAgent();
    const auto queued = job(site, "SAY:later");
    restart();
    const auto failed = get(site, path);
    EXPECT_EQ(failed.text("status"), "failed");
    EXPECT_EQ(failed.text("error"), quit);
    EXPECT_FALSE(failed.object().find("pending_approval"));
    EXPECT_EQ(await(site, queued, "completed").text("output"), "later");
  }
  const auto path = jobIn(site, "working");
  jobs->endAllWork();
  EXPECT_EQ(get(site, path).text("error"), quit) << "an orderly end settles it at once";
}

TEST_F(GatewayJobsTest, RequestThatIsSentAgainMakesNoSecondJob) {
  gateway->jobRoutes.serveFleet();
  const auto projects = get(site, "/v1/projects").body;
  const auto folders = json::objects(*projects.asObject(), "data");
  ASSERT_EQ(folders.size(), 2u);
  EXPECT_EQ(json::textOr(*folders[0], "path", ""), folder / "site");
  const auto projectToWorkIn = json::textOr(*folders[1], "id", "");
  const auto send = [&](const Caller& caller, const std::string& prompt, const std::string& key) {
    return ask(caller, "POST", "/v1/jobs",
               json::write(JsonObject{
                   {"project_id", projectToWorkIn}, {"provider", "grok"}, {"prompt", prompt}}),
               {{"idempotency-key", key}});
  };
  const auto first = send(site, "SAY:once", "A");
  EXPECT_EQ(first.status, 202);
  EXPECT_EQ(first.text("project"), projectToWorkIn);
  restart();
  gateway->jobRoutes.serveFleet();
  const auto again = send(site, " SAY:once\n", "A");
  EXPECT_EQ(again.status, 202);
  EXPECT_EQ(again.text("id"), first.text("id"));
  EXPECT_EQ(send(site, "SAY:more", "A").code(), "idempotency_conflict");
  EXPECT_EQ(send(site, "SAY:more", std::string(256, 'k')).code(), "invalid_job");
  EXPECT_NE(send(site, "SAY:once", "B").text("id"), first.text("id"));
  EXPECT_NE(send(shop, "SAY:once", "A").text("id"), first.text("id"));
  EXPECT_EQ(jobs->jobs().size(), 3u);
}

TEST_F(GatewayJobsTest, RevokedKeyTakesItsUnfinishedJobsAlong) {
  const auto finished = job(site, "SAY:done");
  await(site, finished, "completed");
  jobIn(site, "waiting_for_approval");
  job(site, "SAY:never");
  const auto others = job(shop, "SAY:shop", {{"project", projectID(1)}, {"provider", "grok"}});
  EXPECT_TRUE(jobs->revokeKey(site.id));
  EXPECT_FALSE(jobs->revokeKey(site.id));
  EXPECT_EQ(get(site, finished).status, 401);
  await(shop, others, "completed");
  EXPECT_TRUE(store->flush());
  restart();
  EXPECT_EQ(jobs->jobs().size(), 2u) << "finished ones stay";
  EXPECT_EQ(get(site, finished).status, 401);
}

TEST_F(GatewayJobsTest, GatewayThatIsOffStartsNothing) {
  const auto running = jobIn(site, "waiting_for_approval");
  const auto queued = job(site, "SAY:later");
  keys->setEnabled(false);
  post(site, running + "/approval", {{"option_id", "reject_once"}});
  await(site, running, "completed");
  EXPECT_EQ(status(site, queued), "queued");
  keys->setEnabled(true);
  jobs->processNextJob();
  await(site, queued, "completed");
}

TEST_F(GatewayJobsTest, CommandThatDoesNotServeStartsNoJob) {
  const auto running = jobIn(site, "waiting_for_approval");
  const auto first = job(site, "SAY:one");
  const auto second = job(site, "SAY:two");
  restart(/*serves=*/false);
  const auto cancelled = jobs->cancel(idIn(first));
  ASSERT_TRUE(cancelled) << cancelled.error().message;
  main.runReady();
  EXPECT_EQ(status(site, second), "queued");
  jobs->begin();
  await(site, second, "completed");
}

TEST_F(GatewayJobsTest, RequestsAreCheckedInOrder) {
  providers.connectors[glm].billingMode = ProviderBillingMode::meteredAPI;
  missing.insert(claude);
  const auto caller = makeKey("checked", {codex, glm, claude}, GrokPermissionMode::auto_, {"site"});
  const std::string longest(GatewayJobs::longestPrompt, 'x');
  const auto with = [&](std::initializer_list<JsonGiven> more) { return JsonObject(more); };
  const struct {
    const char* code;
    int status;
    JsonObject request;
  } cases[] = {
      {"invalid_job", 400, with({{"prompt", 1}})},
      {"invalid_job", 400, with({{"prompt", nullptr}})},
      {"invalid_job", 400, with({{"project", "x"}})},
      {"invalid_job", 400, with({{"provider", "hal"}, {"prompt", " "}})},
      {"invalid_job", 400, with({{"permission_mode", "all"}})},
      {"invalid_job", 400, with({{"model", "--yolo"}})},
      {"empty_prompt", 422, with({{"prompt", " \n\t"}})},
      {"prompt_too_large", 413, with({{"prompt", longest + "x"}})},
      {"project_not_found", 404, with({{"project", Uuid::random().text()}, {"provider", "grok"}})},
      {"project_not_allowed", 403, with({{"project", projectID(1)}, {"provider", "grok"}})},
      {"provider_not_allowed", 403,
       with({{"provider", "grok"}, {"permission_mode", "full_access"}})},
      {"metered_provider_blocked", 403,
       with({{"provider", "glm"}, {"permission_mode", "full_access"}})},
      {"permission_mode_not_allowed", 403,
       with({{"provider", "claude"}, {"permission_mode", "full_access"}})},
      {"provider_unavailable", 409, with({{"provider", "claude"}})},
      {"", 202, with({{"prompt", "  " + longest + "\n"}, {"permission_mode", "auto"}})},
      {"", 202, with({{"model", " "}, {"effort", "high"}})},
  };
  int looks = 0;
  providers.known = [](AgentProvider) { return false; };
  providers.findOut = [&](AgentProvider, const auto& done) {
    ++looks;
    done();
  };
  for (const auto& [code, status, request] : cases) {
    looks = 0;
    const auto answer = submit(caller, "hello", request);
    EXPECT_EQ(answer.code(), code);
    EXPECT_EQ(answer.status, status) << code;
    EXPECT_EQ(looks > 0, status == 202 || status == 409) << "whether it is ready is asked last";
  }
  EXPECT_EQ(ask(caller, "POST", "/v1/jobs", "").code(), "invalid_job");
  EXPECT_TRUE(main.runUntil([&] { return jobs->unfinishedCount() == 0; }));
  ASSERT_EQ(contexts.size(), 2u) << "nothing that was refused has an agent";
  EXPECT_EQ(contexts[0].permissionMode, GrokPermissionMode::auto_);
  EXPECT_EQ(contexts[1].permissionMode, GrokPermissionMode::ask);
  EXPECT_EQ(contexts[1].selectedModel, std::nullopt);
  EXPECT_EQ(contexts[1].selectedEffort, "high");

  const auto reach = get(caller, "/v1/projects");
  EXPECT_EQ(json::array(reach.object(), "providers")->size(), 1u) << "that are ready and no bill";
  EXPECT_EQ(json::array(reach.object(), "projects")->size(), 1u);
}

TEST_F(GatewayJobsTest, ProjectsAreComparedByWhereTheirPathsLead) {
  const auto caller = makeKey("narrow", {codex}, {}, {"site"});
  const auto running = jobIn(caller, "waiting_for_approval");
  const auto queued = job(caller, "SAY:here");
  std::filesystem::rename(folder / "site", folder / "old");
  std::filesystem::create_directory_symlink(folder / "shop", folder / "site");
  EXPECT_EQ(submit(caller, "SAY:there").status, 202) << "both paths lead there";
  tree.addWorkspace(Workspace::makeProject(folder / "old", main.now()));
  EXPECT_EQ(submit(caller, "SAY:old", {{"project", projectID(2)}}).code(), "project_not_allowed");
  post(caller, running + "/cancel");
  await(caller, queued, "completed");
}

TEST_F(GatewayJobsTest, PathsAreRoutesWhateverTheirSlashes) {
  const auto path = job(site, "SAY:hello");
  await(site, path, "completed");
  for (const auto* good : {"/v1/jobs/", "//v1//jobs", "/v1/projects/"}) {
    EXPECT_EQ(get(site, good).status, 200) << good;
  }
  std::string lower = path;
  std::ranges::transform(lower, lower.begin(), [](char c) { return std::tolower(c); });
  EXPECT_EQ(get(site, lower + "/").status, 200);
  const std::pair<const char*, std::string> bad[] = {{"GET", "/"},
                                                     {"GET", "/v1"},
                                                     {"GET", "/v2/jobs"},
                                                     {"GET", "/v1/jobs/x"},
                                                     {"PUT", "/v1/jobs"},
                                                     {"POST", "/v1/projects"},
                                                     {"POST", path},
                                                     {"DELETE", path},
                                                     {"GET", path + "/cancel"},
                                                     {"POST", path + "/go"},
                                                     {"GET", path + "/events/1"}};
  for (const auto& [method, route] : bad) {
    const auto answer = ask(site, method, route, "{}");
    EXPECT_EQ(answer.status, 404) << method << " " << route;
    EXPECT_EQ(answer.code(), "not_found") << method << " " << route;
  }
}

TEST_F(GatewayJobsTest, FailureCarriesTheAgentsWordsAndTheNextJobRuns) {
  const auto broken =
      ACPAgentScript().openSession().expectPrompt().line("error out of paint\\n").line("exit 3");
  const auto noStart = ACPAgentScript().expect("initialize").error("not signed in");
  const struct {
    const char* what;
    std::function<void()> prepare;
    std::string prompt, error;
  } cases[] = {
      {"an error", [] {}, "FAIL:no credit", "no credit"},
      {"a death", [&] { runScript(broken); }, "x", "out of paint"},
      {"a refused start", [&] { runScript(noStart); }, "x", "not signed in"},
      {"no program", [&] { program = folder / "nothing"; }, "x", "Codex CLI is not installed"},
  };
  for (const auto& [what, prepare, prompt, error] : cases) {
    SCOPED_TRACE(what);
    prepare();
    const auto path = job(site, prompt);
    const auto failed = await(site, path, "failed");
    EXPECT_THAT(failed.text("error"), HasSubstr(error));
    EXPECT_EQ(eventTypes(site, path).back(), "failed");
    runPracticeAgent();
    await(site, job(site, "SAY:next"), "completed");
  }
}

TEST_F(GatewayJobsTest, AgentThatNeverStartsGivesWay) {
  const auto path = jobIn(site, "starting");
  runPracticeAgent();
  const auto next = job(site, "SAY:next");
  main.advance(GatewayJobs::startLimit);
  EXPECT_THAT(get(site, path).text("error"), HasSubstr("could not finish connecting"));
  await(site, next, "completed");
}

TEST_F(GatewayJobsTest, ProviderThatCannotBeUsedAnyMoreFailsTheJob) {
  const auto running = jobIn(site, "waiting_for_approval");
  const auto queued = job(site, "SAY:x");
  missing.insert(codex);
  post(site, running + "/cancel");
  EXPECT_EQ(await(site, queued, "failed").text("error"), "Install it.");
}

TEST_F(GatewayJobsTest, GuardAgainstMeteredBillingEndsWhatItBars) {
  settings.recordNoMeteredAPIs(false);
  providers.connectors[codex].billingMode = ProviderBillingMode::meteredAPI;
  const auto running = jobIn(site, "working");
  const auto queued = job(site, "SAY:x");
  settings.recordNoMeteredAPIs(true);
  for (const auto& path : {running, queued}) {
    EXPECT_EQ(await(site, path, "failed").text("error"), GatewayScope::meteredBlocked);
  }
  EXPECT_EQ(contexts.size(), 1u);
}

TEST_F(GatewayJobsTest, WaitsUntilItIsKnownWhetherAModelServerAnswers) {
  const auto caller = makeKey("local", {local});
  bool isKnown = true;
  std::vector<std::function<void()>> waiting;
  providers.known = [&](AgentProvider each) { return each != local || isKnown; };
  providers.findOut = [&](AgentProvider, const auto& done) { waiting.push_back(done); };
  keys->setEnabled(false);
  const auto path = job(caller, "SAY:hello", {{"provider", "local"}});
  isKnown = false;
  missing.insert(local);
  restart();  // which turns the gateway on
  main.runReady();
  EXPECT_EQ(status(caller, path), "queued");
  ASSERT_EQ(waiting.size(), 1u);
  isKnown = true;
  missing.clear();
  waiting.front()();
  await(caller, path, "completed");
  missing.insert(local);
  EXPECT_EQ(submit(caller, "hello", {{"provider", "local"}}).code(), "provider_unavailable");
  EXPECT_EQ(providers.localRefreshes, 1) << "it may have been started meanwhile";
}

TEST_F(GatewayJobsTest, OutputEndsAtItsLimitAndIsStoredOnceASecond) {
  const auto path = job(site, "FLOOD:stdout=2100000\nASK:go?");
  const auto full = await(site, path, "waiting_for_approval");
  EXPECT_EQ(full.text("output").size(), JobHistory::mostOutput);
  post(site, path + "/approval", {{"option_id", "allow_once"}});
  await(site, path, "completed");

  const auto quiet = jobIn(site, "working");
  EXPECT_TRUE(store->flush());
  const auto stored = [&] { return folder.contentOf(jobsFile); };
  EXPECT_FALSE(stored().contains(R"("output": "here")"));
  main.advance(GatewayJobs::saveInterval);
  EXPECT_TRUE(store->flush());
  EXPECT_TRUE(stored().contains(R"("output": "here")"));
  post(site, quiet + "/cancel");
}

TEST_F(GatewayJobsTest, GoesOnWhenNothingCanBeSaved) {
  std::vector<std::string> failures;
  const auto watch = changes.observe([&](const ChangeBatch& batch) {
    failures.insert(failures.end(), batch.saveFailures.begin(), batch.saveFailures.end());
  });
  EXPECT_TRUE(store->flush());
  std::filesystem::rename(folder / "data", folder / "gone");
  folder.file("data", "");
  const auto path = job(site, "SAY:hello");
  EXPECT_EQ(await(site, path, "completed").text("output"), "hello");
  EXPECT_TRUE(main.runUntil([&] { return !failures.empty(); }));
  EXPECT_THAT(failures, Contains(HasSubstr("The gateway's jobs could not be saved")));
  std::filesystem::remove(folder / "data");
  EXPECT_TRUE(store->flush());
  restart();
  EXPECT_EQ(status(site, path), "completed") << "written as soon as there is place again";
}

TEST_F(GatewayJobsTest, SubscriptionRuntimeOfAJobSeesNoKeys) {
  Environment process;
  process.set("OPENAI_API_KEY", "secret");
  process.set("CODEX_API_KEY", "secret");
  const auto witness = folder.program("codex", "#!/bin/sh\nenv > \"$0.seen\"\nexit 0\n");
  HttpClient http(main);
  const ProviderConnectorRegistry registry(
      {.main = main,
       .pool = pool,
       .defaults = *defaults,
       .http = http,
       .webhook = nullptr,
       .customExecutable = [&](AgentProvider) { return std::optional(witness); }});
  providers.connectors[codex] = registry.connector(codex);
  await(site, job(site, "hello"), "failed");
  const auto seen = folder.contentOf(witness + ".seen");
  EXPECT_THAT(seen, HasSubstr("PATH="));
  EXPECT_THAT(seen, ::testing::Not(HasSubstr("secret")));
}

}  // namespace
}  // namespace vantrell::tests
