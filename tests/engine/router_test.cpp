#include "engine/providers/router.h"

#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using enum AgentProvider;
using Mode = ProviderRoutingMode;
using Scope = ProviderHandoffScope;

TEST(RoutingOrder, ActiveProviderComesFirstWhereItIsListed) {
  using Order = std::vector<AgentProvider>;
  const Order subscriptions{grok, codex, kimi, glm, claude};
  const struct {
    Mode mode;
    std::optional<AgentProvider> active;
    Order order;
  } cases[] = {
      {Mode::automatic, std::nullopt, {grok, codex, kimi, glm, claude, local}},
      {Mode::automatic, kimi, {kimi, grok, codex, glm, claude, local}},
      {Mode::automatic, local, {local, grok, codex, kimi, glm, claude}},
      {Mode::automatic, tasklet, {grok, codex, kimi, glm, claude, local}},
      {Mode::localFirst, std::nullopt, {local, grok, codex, kimi, glm, claude}},
      {Mode::localFirst, claude, {claude, local, grok, codex, kimi, glm}},
      {Mode::codex, kimi, {codex}},
      {Mode::tasklet, std::nullopt, {tasklet}},
  };
  for (const auto& [mode, active, order] : cases) {
    EXPECT_EQ(ProviderRegistry::routingOrder(mode, active), order) << rawText(mode);
  }
}

class Router : public EngineFixture {
 public:
  void start() {
    EngineFixture::start();
    router = model->router;
  }
  void exhaust(AgentProvider each, std::optional<Seconds> resetsIn = std::nullopt) {
    ProviderUsage usage{.provider = each, .exhausted = true};
    if (resetsIn) usage.resetsAt = main.now() + *resetsIn;
    model->usage.discovered(usage);
  }
  std::optional<AgentProvider> next(const vantrell::Router::Providers& excluded = {}) {
    return router->providerForNextTurn(excluded, key);
  }
  std::vector<std::string> reasons(const RoutingPreview& preview) {
    std::vector<std::string> all;
    for (const auto& each : preview.candidates) all.push_back(each.reason);
    return all;
  }
  void limit() { client().fails(AgentError("Usage limit reached")); }

  std::shared_ptr<vantrell::Router> router;
};

TEST_F(Router, TurnGoesToTheFirstWhoIsReady) {
  const struct {
    const char* about;
    Mode mode;
    std::set<AgentProvider> installed;
    std::vector<AgentProvider> exhausted;
    std::set<AgentProvider> excluded;
    std::optional<AgentProvider> expected;
  } cases[] = {
      {"the first of the list", Mode::automatic, {codex, kimi}, {}, {}, codex},
      {"past the exhausted", Mode::automatic, {codex, kimi}, {codex}, {}, kimi},
      {"past the attempted", Mode::automatic, {codex, kimi}, {}, {codex}, kimi},
      {"all exhausted", Mode::automatic, {codex, kimi}, {codex, kimi}, {}, std::nullopt},
      {"local at the end", Mode::automatic, {local}, {}, {}, local},
      {"local at the front", Mode::localFirst, {codex, local}, {}, {}, local},
      {"all exhausted, local first", Mode::localFirst, {local}, {local}, {}, std::nullopt},
      {"never Tasklet by itself", Mode::automatic, {tasklet}, {}, {}, std::nullopt},
      {"a fixed route", Mode::kimi, {codex, kimi}, {}, {}, kimi},
      {"a mark may be out of date", Mode::codex, {codex, kimi}, {codex}, {}, codex},
      {"a fixed route that is not there", Mode::codex, {kimi}, {}, {}, std::nullopt},
      {"an attempted one is no second try", Mode::codex, {codex}, {codex}, {codex}, std::nullopt},
  };
  provider.reset();
  start();
  for (const auto& each : cases) {
    others = each.installed;
    router->setRoutingMode(each.mode, key);
    for (const auto exhausted : allAgentProviders) model->usage.discovered({.provider = exhausted});
    for (const auto exhausted : each.exhausted) exhaust(exhausted);
    EXPECT_EQ(next(each.excluded), each.expected) << each.about;
  }
}

TEST_F(Router, ChoiceForTheTaskBeatsTheRouteAndOneForAMessageIsUsedUp) {
  others = {codex, kimi, glm};
  start();
  router->setRoutingMode(Mode::glm, key);
  router->handoff(codex, Scope::continueTask, key);
  router->handoff(kimi, Scope::nextMessage, key);
  EXPECT_EQ(router->expectedProvider({}, key), kimi);
  EXPECT_EQ(next({kimi}), glm) << "one choice counts, and then the route";
  EXPECT_EQ(thread().nextMessageProvider, kimi);
  EXPECT_EQ(next(), kimi);
  EXPECT_EQ(next(), codex);
  EXPECT_EQ(saved()[1].threads[0].nextMessageProvider, std::nullopt);
  EXPECT_THAT(texts(), ElementsAre("Next turn will continue with Codex · Continue this task.",
                                   "Next turn will continue with Kimi · Next message only."));

  router->handoff(claude, Scope::continueTask, key);
  EXPECT_EQ(thread().preferredProvider, codex) << "Claude is not there";
  EXPECT_EQ(texts().size(), 2U);
  model->executions.choose(key, {.provider = glm});
  EXPECT_EQ(next(), glm) << "what a front end chooses is stronger";
}

TEST_F(Router, AllowanceComesBackAtItsResetTime) {
  others = {codex};
  start();
  exhaust(codex, Seconds(60));
  EXPECT_EQ(router->nextAutomaticProvider(grok, {}, key), kimi);
  EXPECT_EQ(next(), kimi);
  main.advance(std::chrono::seconds(60));
  EXPECT_EQ(next(), codex);
  EXPECT_EQ(model->usage.usage(codex), nullptr);
  EXPECT_EQ(router->nextAutomaticProvider(kimi, {}, key), codex);
  EXPECT_EQ(router->nextAutomaticProvider(kimi, {codex}, key), std::nullopt);
}

TEST_F(Router, WhoIsBilledPerUseIsKeptOutUntilTheUserAllowsIt) {
  providers.connectors[kimi].billingMode = ProviderBillingMode::meteredAPI;
  start();
  EXPECT_FALSE(router->providerAllowed(kimi));
  EXPECT_FALSE(router->hasRunnableProvider(key));
  EXPECT_EQ(next(), std::nullopt);
  EXPECT_EQ(router->nextAutomaticProvider(codex, {}, key), std::nullopt);
  router->setNoMeteredAPIs(false);
  EXPECT_TRUE(router->hasRunnableProvider(key));
  work("Go");
  client().finishes();
  router->setNoMeteredAPIs(true);
  EXPECT_EQ(clients[0]->stops, 1) << "its session ends with the permission";
}

TEST_F(Router, PreviewsSayWhy) {
  others = {codex, glm};
  start();
  EXPECT_THAT(reasons(router->routingPreviewFor(key)),
              ElementsAre("Runtime unavailable", "Ready fallback", "Ready fallback",
                          "Ready fallback", "Runtime unavailable", "Runtime unavailable"));
  work("Go");  // Codex, the first that is ready
  EXPECT_EQ(run().routingReason, "Ready fallback");
  exhaust(glm, Seconds(3600));
  exhaust(kimi);
  model->usage.discovered({.provider = codex, .primaryUsedPercent = 41.6});
  auto preview = router->routingPreview(key);
  EXPECT_THAT(reasons(preview),
              ElementsAre("Continue the active session", "Runtime unavailable", "Allowance reached",
                          StartsWith("Allowance reached · resets "), "Runtime unavailable",
                          "Runtime unavailable"));
  EXPECT_EQ(preview.provider, codex);
  EXPECT_EQ(preview.reason, "Continue the active session");
  EXPECT_EQ(preview.find(codex)->usageLabel, "42% used");
  preview = router->routingPreviewFor(key);
  EXPECT_EQ(preview.reason, "Selected for this turn");
  EXPECT_EQ(preview.find(kimi)->reason, "Allowance reached");

  client().finishes();
  router->setRoutingMode(Mode::kimi, key);
  preview = router->routingPreview(key);
  EXPECT_EQ(preview.provider, kimi) << "nobody else is on the route";
  EXPECT_EQ(preview.reason, "Allowance reached");
  EXPECT_EQ(router->routingPreviewFor(key).reason, "No provider is ready");
  router->setRoutingMode(Mode::codex, key);
  EXPECT_EQ(router->routingPreview(key).reason, "Preferred by this route");
  router->handoff(glm, Scope::continueTask, key);
  EXPECT_EQ(router->routingPreview(key).provider, glm) << "a choice, whatever its allowance";
  router->setRoutingMode(Mode::claude, key);
  model->executions.choose(key, {.provider = claude});
  EXPECT_EQ(router->routingPreview(key).reason, "No provider is currently ready");
}

TEST_F(Router, HandsOnFromLimitToLimitUntilNobodyIsLeft) {
  others = {codex, claude};
  start();
  work("Go");
  limit();
  client().opens("k");
  limit();
  client().opens("c");
  EXPECT_THAT(client().prompts.at(0), HasSubstr("handoff from Kimi to Claude"));
  EXPECT_THAT(client().prompts.at(0), HasSubstr("ORIGINAL USER REQUEST\nRESPONSE STYLE"));
  EXPECT_EQ(run().routingReason, "Kimi allowance reached; continued with Claude.");
  limit();
  EXPECT_EQ(run().status, RunRecordStatus::failed);
  EXPECT_EQ(run().statusMessage, "Usage limit reached");
  EXPECT_THAT(texts(),
              ElementsAre("Go", "Codex allowance reached. Automatically handed this task to Kimi.",
                          "Kimi allowance reached. Automatically handed this task to Claude.",
                          "Error from Claude: Usage limit reached"));
  EXPECT_EQ(clients[2]->stops, 0) << "the last one stays attached";

  send("Again");
  EXPECT_THAT(run().statusMessage.value(), StartsWith("No allowed runtime is ready."));
}

TEST_F(Router, OnlyAnExhaustedAllowanceHandsOnAndOnlyOnAnAutomaticRoute) {
  const struct {
    const char* failure;
    Mode mode;
    bool isFixed;
    bool handsOn;
  } cases[] = {
      {"Usage limit reached", Mode::automatic, false, true},
      {"Usage limit reached", Mode::localFirst, false, true},
      {"Usage limit reached", Mode::kimi, false, false},
      {"Usage limit reached", Mode::automatic, true, false},
      {"Please log in", Mode::automatic, false, false},
      {"The model runtime disconnected.", Mode::automatic, false, false},
      {"Network is unreachable", Mode::automatic, false, false},
  };
  others = {claude};
  for (const auto& each : cases) {
    stop();
    clients.clear();
    start();
    router->setRoutingMode(each.mode, key);
    if (each.isFixed) model->executions.choose(key, {.provider = kimi});
    work("Go");
    client().fails(AgentError(each.failure));
    main.runReady();
    EXPECT_EQ(clients.size(), each.handsOn ? 2U : 1U) << each.failure << " " << rawText(each.mode);
    EXPECT_EQ(run().status, each.handsOn ? RunRecordStatus::starting : RunRecordStatus::failed);
    model->operations->newThread(key.workspaceID);
  }
}

TEST_F(Router, EachProviderResumesItsOwnSessionWhenItReturns) {
  others = {codex};
  start();
  work("One");
  client().finishes();
  router->handoff(kimi, Scope::nextMessage, key);
  send("Two");
  EXPECT_EQ(client().existingSession, std::nullopt) << "never another provider's session";
  client().opens("kimi session");
  EXPECT_THAT(client().prompts.at(0), HasSubstr("handoff from Codex to Kimi"));
  EXPECT_EQ(texts().back(), "Switched this task from Codex to Kimi with visible context attached.");
  client().finishes();
  router->handoff(codex, Scope::nextMessage, key);
  send("Three");
  EXPECT_EQ(client().existingSession, "session");
  client().opens("session");
  EXPECT_THAT(client().prompts.at(0), HasSubstr("handoff from Kimi to Codex"));
}

TEST_F(Router, WhatTheRouteDependsOnIsFoundOutFirst) {
  std::vector<AgentProvider> asked;
  std::set<AgentProvider> known;
  std::function<void()> answer;
  providers.known = [&](AgentProvider each) { return known.contains(each); };
  providers.findOut = [&](AgentProvider each, std::function<void()> done) {
    asked.push_back(each);
    answer = [&, each, done] {
      known.insert(each);
      done();
    };
  };
  provider = codex;
  start();
  work("Go");
  EXPECT_THAT(asked, ElementsAre()) << "Codex is ready, and comes before";
  others = {local};
  limit();
  EXPECT_THAT(asked, ElementsAre(local));
  EXPECT_EQ(run().status, RunRecordStatus::running);
  answer();
  EXPECT_EQ(run().provider, local);

  client().opens("l");
  client().finishes();
  known.clear();
  provider.reset();
  others = {tasklet};
  router->setRoutingMode(Mode::tasklet, key);
  send("Later");
  app->selected().stopWorking();
  answer();
  EXPECT_EQ(run().status, RunRecordStatus::cancelled) << "stopped while the answer was awaited";
  EXPECT_EQ(clients.size(), 2U);
}

TEST_F(Router, RouteIsStoredAndNotChangedDuringATurn) {
  start();
  work("Go");
  router->setRoutingMode(Mode::kimi, key);
  EXPECT_EQ(model->settings.routingMode(), Mode::automatic);
  client().finishes();
  router->setRoutingMode(Mode::kimi, key);
  EXPECT_EQ(client().stops, 1);
  EXPECT_EQ(defaults->text("providerRoutingMode.v1"), "kimi");
}

}  // namespace
}  // namespace vantrell::tests
