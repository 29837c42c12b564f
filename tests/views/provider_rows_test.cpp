#include "views/provider_rows.h"

#include <gmock/gmock.h>

namespace vantrell::views {
namespace {

using ::testing::ElementsAre;
using enum AgentProvider;
using Kind = NextStep::Kind;

RuntimeInstallStatus installed(std::optional<bool> signedIn, bool hasRunOut = false) {
  auto status = RuntimeInstallStatus::installed("/it's/here");
  status.signedIn = signedIn;
  status.hasRunOut = hasRunOut;
  return status;
}

ProviderFacts factsOf(AgentProvider provider, RuntimeInstallStatus status) {
  return {.provider = provider, .status = std::move(status), .glmModel = "zai-coding-plan/glm-4.7"};
}

TEST(ProviderRows, NextStepFollowsFromWhatIsKnownAndOnlyWhatCanBeUsedIsTicked) {
  struct Case {
    std::string name;
    AgentProvider provider;
    RuntimeInstallStatus status;
    Kind kind;
    std::string sign;
    std::string command;
  };
  const auto missing = RuntimeInstallStatus::missing();
  const std::string look = R"('/it'\''s/here' --version)";
  const Case cases[] = {
      {"signed in", codex, installed(true), Kind::nothing, "✓", ""},
      {"not signed in", codex, installed(false), Kind::logIn, "!", "vantrell login codex"},
      {"cannot tell", kimi, installed({}), Kind::logInPerhaps, "✓", "vantrell login kimi"},
      {"hangs", kimi, installed({}, true), Kind::tryIt, "?", look},
      {"no version, but signed in", claude, installed(true, true), Kind::tryIt, "?", look},
      {"no version, not signed in", claude, installed(false, true), Kind::logIn, "!",
       "vantrell login claude"},
      {"has no program", tasklet, missing, Kind::setUp, "○",
       "vantrell settings set tasklet-webhook"},
  };
  for (const auto& [name, provider, status, kind, expectedSign, command] : cases) {
    SCOPED_TRACE(name);
    const auto row = providerRow(factsOf(provider, status));
    EXPECT_EQ(row.step.kind, kind);
    EXPECT_EQ(row.step.command, command);
    EXPECT_EQ(sign(row.mark), expectedSign);
    EXPECT_NE(row.step.words, "");
  }
  const auto absent = providerRow(factsOf(grok, missing));
  EXPECT_EQ(absent.step.kind, Kind::install);
  EXPECT_EQ(absent.mark, ProviderMark::absent);
  EXPECT_EQ(absent.place, "not found");
}

TEST(ProviderRows, ProgramThatHangsOrFailsIsNeitherReadyNorUnknown) {
  auto failed = installed({});
  failed.hasFailed = true;
  for (const auto& [status, why, version] :
       {std::tuple(installed({}, true), "did not answer within 15 seconds", "no answer"),
        std::tuple(failed, "failed when it was asked", "failed")}) {
    const auto row = providerRow(factsOf(kimi, status));
    EXPECT_TRUE(row.step.words.contains(why)) << row.step.words;
    EXPECT_EQ(row.version, version);
    EXPECT_EQ(row.signIn, "not known");
    EXPECT_EQ(row.mark, ProviderMark::uncertain);
  }
}

TEST(ProviderRows, ModelOutsideThePlanIsToBeSetUp) {
  auto facts = factsOf(glm, installed({}));
  EXPECT_EQ(nextStep(facts).kind, Kind::logInPerhaps);
  facts.glmModel = "somebody/else";
  EXPECT_EQ(nextStep(facts).kind, Kind::setUp);
  EXPECT_EQ(providerRow(facts).mark, ProviderMark::toDo);
}

TEST(ProviderRows, ProvidersWithoutAProgramShowTheirService) {
  ProviderFacts facts{
      .provider = local,
      .status = RuntimeInstallStatus::missing(),
      .local = LocalRuntimeStatus::ready(
          {.name = "Ollama", .baseURL = *Url::parse("http://[::1]/v1"), .models = {}}),
      .localKind = LocalRuntimeKind::lmStudio,
      .localURL = "http://x"};
  auto row = providerRow(facts);
  EXPECT_EQ(row.step.kind, Kind::install) << "the harness";
  EXPECT_EQ(row.place, "http://[::1]/v1");
  EXPECT_EQ(row.remarks.front(), "set: LM Studio at http://x");
  EXPECT_FALSE(row.isThere);
  facts.hasHarness = true;
  row = providerRow(facts);
  EXPECT_TRUE(row.isThere);
  EXPECT_EQ(row.mark, ProviderMark::ready);
  row = providerRow({.provider = tasklet,
                     .status = RuntimeInstallStatus::missing(),
                     .hasWebhook = true,
                     .webhookProblem = "The keyring\nis locked."});
  EXPECT_THAT(row.remarks, ElementsAre("The keyring is locked.", "ready: a webhook is set"));
}

TEST(ProviderRows, UnusablePathAndHostileVersionAreShownOnOneLine) {
  auto facts = factsOf(codex, installed(true));
  facts.status.version = "1.2\x1b[2J\nand more";
  facts.unusableCustomPath = "/x";
  const auto row = providerRow(facts);
  EXPECT_EQ(row.version, "1.2␛[2J");
  EXPECT_EQ(row.remarks.front(), "the path that is set for it cannot be executed: /x");
}

TEST(ProviderRows, ProviderGoesByItsIdOrItsProgram) {
  EXPECT_EQ(providerNamed("opencode"), glm);
  EXPECT_EQ(providerNamed("glm"), glm);
  EXPECT_EQ(providerNamed("tasklet"), tasklet);
  EXPECT_FALSE(providerNamed("Grok"));
  EXPECT_FALSE(providerNamed(""));
}

}  // namespace
}  // namespace vantrell::views
