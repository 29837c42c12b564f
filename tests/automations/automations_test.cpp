#include "automations/automations.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "automations/automations_module.h"
#include "support/engine_fixture.h"
#include "support/git_repository.h"
#include "support/held_executor.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Trigger = AutomationTrigger;

struct FakeFleet final : FleetDispatch {
  std::optional<Uuid> host;
  std::vector<std::string> prompts;
  int refreshes = 0;
  Result<> answer;

  bool hasHost(const Uuid& id) const override { return host == id; }
  void dispatchTask(const Uuid&, std::string prompt, std::string projectPath,
                    std::function<void(Result<>)> done) override {
    prompts.push_back(prompt + " in " + projectPath);
    done(answer);
  }
  void refreshFleet() override { ++refreshes; }
};

class AutomationTest : public EngineFixture {
 public:
  ~AutomationTest() override { end(); }

  /// The engine with automations on what is stored; the scheduler does not run yet.
  void begin() {
    if (key == ThreadExecutionKey()) {
      start();
    } else {
      restart();
    }
    recipeStore =
        std::make_unique<AutomationStore>(main, model->changes, model->orchestration, disk);
    automations = std::make_shared<Automations>(
        Automations::Dependencies{main, model->changes, model->tree, *model->operations,
                                  *model->composer, model->executions, *recipeStore,
                                  [this](const std::string& path, const std::stop_token&,
                                         const std::function<void(GitWorkspaceSnapshot)>& reply) {
                                    paths.push_back(path);
                                    replies.push_back(reply);
                                    if (answersGit) reply(snapshot);
                                  }},
        AutomationStore::load(model->orchestration));
    automations->setFleet(&fleet);
  }
  void end() {
    automations.reset();
    recipeStore.reset();
    stop();
  }
  void schedule() {
    automations->configureAutomationScheduler();
    main.runReady();
  }
  Uuid create(Trigger trigger, std::optional<Uuid> host = std::nullopt) {
    const auto id = automations->createAutomation({.name = " Nightly\n",
                                                   .prompt = "\tdo it ",
                                                   .workspaceID = key.workspaceID,
                                                   .trigger = trigger,
                                                   .preferredHostID = host});
    EXPECT_TRUE(id) << (id ? "" : id.error().sentence);
    main.runReady();
    return id.value_or(Uuid());
  }
  AutomationRecipe recipe(std::size_t place = 0) { return automations->automations().at(place); }
  /// Those that recipes have begun, newest first.
  std::vector<const ChatThread*> begun() {
    std::vector<const ChatThread*> all;
    for (const auto& each : model->tree.workspace(key.workspaceID)->threads) {
      if (each.title == "Automation \u00B7 Nightly") all.push_back(&each);
    }
    return all;
  }
  std::size_t runsDuring(Duration time) {
    const auto before = begun().size();
    main.advance(time);
    main.runReady();
    return begun().size() - before;
  }
  /// What another process has left on the disk.
  void storeFile(std::string_view members) {
    folder.file("Orchestration/automations.json",
                fmt::format(R"([{{"id":"00000000-0000-4000-8000-000000000001","name":"Nightly",)"
                            R"("prompt":"do it","workspaceID":"{}","enabled":true,)"
                            R"("requiresApproval":true,{}}}])",
                            key.workspaceID.text(), members));
  }
  std::string file() {
    return TemporaryFolder::contentOf(folder / "Orchestration/automations.json");
  }

  HeldExecutor disk;
  FakeFleet fleet;
  GitWorkspaceSnapshot snapshot{.isRepository = true, .branch = "main"};
  bool answersGit = true;
  std::vector<std::string> paths;
  std::vector<std::function<void(GitWorkspaceSnapshot)>> replies;
  std::unique_ptr<AutomationStore> recipeStore;
  std::shared_ptr<Automations> automations;
};

TEST_F(AutomationTest, ANewRecipeAsksFirstAndWaitsOneInterval) {
  begin();
  const struct {
    Trigger trigger;
    std::optional<Seconds> wait;
  } cases[] = {{Trigger::manual, {}},
               {Trigger::hourly, Seconds(3600)},
               {Trigger::daily, Seconds(86400)},
               {Trigger::weekly, Seconds(604800)},
               {Trigger::projectChange, Seconds(300)}};
  for (const auto& each : cases) {
    create(each.trigger);
    const auto made = automations->automations().back();
    EXPECT_EQ(made.name, "Nightly");
    EXPECT_EQ(made.prompt, "do it");
    EXPECT_TRUE(made.enabled && made.requiresApproval && !made.lastRunAt);
    EXPECT_EQ(made.nextRunAt, each.wait ? std::optional(main.now() + *each.wait) : std::nullopt);
  }
  const Automations::NewRecipe good{.name = "n", .prompt = "p", .workspaceID = key.workspaceID};
  for (auto change : {+[](Automations::NewRecipe& bad) { bad.name = " \n"; },
                      +[](Automations::NewRecipe& bad) { bad.prompt = "\t"; },
                      +[](Automations::NewRecipe& bad) { bad.workspaceID = Uuid::random(); },
                      +[](Automations::NewRecipe& bad) { bad.preferredHostID = Uuid::random(); }}) {
    auto bad = good;
    change(bad);
    EXPECT_FALSE(automations->createAutomation(bad));
  }
  const auto all = automations->automations();
  EXPECT_EQ(all.size(), 5u);
  end();
  begin();
  EXPECT_EQ(automations->automations().size(), 5u) << "stored";
  EXPECT_EQ(recipe(1), all[1]);
}

TEST_F(AutomationTest, WeeksOfEveryTrigger) {
  begin();
  for (const auto trigger : {Trigger::manual, Trigger::hourly, Trigger::daily, Trigger::weekly,
                             Trigger::projectChange}) {
    create(trigger);
  }
  schedule();
  std::map<Uuid, int> runs;
  std::map<Uuid, std::optional<Date>> last;
  for (int minute = 0; minute < 14 * 24 * 60; ++minute) {
    if (minute % (24 * 60) == 60)
      snapshot.files.push_back({fmt::format("f{}", minute), "??", 1, 0});
    main.advance(1min);
    for (const auto& each : automations->automations()) {
      if (std::exchange(last[each.id], each.lastRunAt) != each.lastRunAt) ++runs[each.id];
    }
  }
  std::vector<int> counts;
  for (const auto& each : automations->automations()) counts.push_back(runs[each.id]);
  EXPECT_THAT(counts, ElementsAre(0, 14 * 24, 14, 2, 14));
  EXPECT_EQ(begun().size(), 14u * 24 + 14 + 2 + 14) << "each run in a conversation of its own";
  EXPECT_EQ(fleet.refreshes, 14 * 24 * 60);
}

TEST_F(AutomationTest, ARunBeginsAConversationInFrontWithThePreamble) {
  begin();
  const auto id = create(Trigger::daily);
  ASSERT_TRUE(automations->setEnabled(id, false));
  std::optional<Automations::Begun> answer;
  automations->runAutomation(id, [&](auto given) { answer = given; });
  main.runReady();
  ASSERT_TRUE(answer && *answer && **answer) << "also when it is disabled";
  const auto& first = model->tree.workspace(key.workspaceID)->threads.front();
  EXPECT_EQ(first.id, (**answer)->threadID);
  EXPECT_EQ(first.title, "Automation \u00B7 Nightly");
  EXPECT_EQ(first.entries[0].text,
            "AUTOMATION SAFETY: This scheduled task must ask before destructive or privileged "
            "actions.\n\ndo it");
  EXPECT_EQ(model->selection.key(), key) << "the user's place stays";
  EXPECT_EQ(recipe().lastRunAt, main.now());
  EXPECT_EQ(recipe().nextRunAt, main.now() + 24h);
  EXPECT_EQ(recipe().pendingThreadID, std::nullopt) << "its run is stored";
  schedule();
  EXPECT_EQ(runsDuring(72h), 0u) << "disabled";
}

TEST_F(AutomationTest, WhatIsDueFollowsTheClock) {
  start();
  const auto at = [&](double offset) { return iso8601(main.now() + Seconds(offset)); };
  const struct {
    const char* what;
    std::string members;
    std::size_t atOnce, inTwoHours;
  } cases[] = {
      {"without a time", R"("trigger":"hourly")", 1, 3},
      {"slept over several times", fmt::format(R"("trigger":"hourly","nextRunAt":"{}")", at(-9e5)),
       1, 3},
      {"a manual one never", fmt::format(R"("trigger":"manual","nextRunAt":"{}")", at(-9e5)), 0, 0},
      {"the clock was set back by weeks",
       fmt::format(R"("trigger":"hourly","nextRunAt":"{}","lastRunAt":"{}")", at(2e6), at(19e5)), 0,
       2},
      {"a time far ahead that the user has set",
       fmt::format(R"("trigger":"hourly","nextRunAt":"{}")", at(2e6)), 0, 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    end();
    storeFile(each.members);
    begin();
    const auto before = begun().size();
    schedule();
    EXPECT_EQ(begun().size() - before, each.atOnce);
    EXPECT_EQ(runsDuring(2h + 2min) + each.atOnce, each.inTwoHours);
  }
}

TEST_F(AutomationTest, AChangeOfTheProjectRunsOnlyAfterAFirstLook) {
  begin();
  const auto id = create(Trigger::projectChange);
  create(Trigger::projectChange);
  schedule();
  EXPECT_EQ(runsDuring(6min), 0u) << "the first look only records";
  EXPECT_EQ(paths.size(), 1u) << "one look for two recipes of a project";
  EXPECT_EQ(recipe().lastProjectFingerprint, "main");
  EXPECT_EQ(recipe(1).lastProjectFingerprint, "main");
  const Date next = *recipe().nextRunAt;
  EXPECT_EQ(runsDuring(6min), 0u) << "nothing has changed";
  EXPECT_EQ(*recipe().nextRunAt, next + 300s);

  const GitChangedFile one{"a b", " M", 2, 1}, other{"c", " M", 2, 1}, binary{"d", "??", {}, {}};
  for (const auto& files : {std::vector{one}, {other}, {other, binary}, {}}) {
    snapshot.files = files;
    EXPECT_EQ(runsDuring(5min), 2u);
  }
  snapshot.files = {other, binary};
  EXPECT_EQ(projectFingerprint(snapshot), "main|c: M:2:1|d:??:0:0");
  snapshot.files = {};
  snapshot.error = "Git status could not be read.";
  snapshot.branch = "";
  EXPECT_EQ(runsDuring(10min), 0u) << "a failed reading is no change";
  snapshot = GitWorkspaceSnapshot::unavailable();
  EXPECT_EQ(runsDuring(5min), 2u) << "a folder outside git looks like any other";

  answersGit = false;  // a reading that takes long
  const auto looks = paths.size();
  main.advance(20min);
  EXPECT_EQ(paths.size(), looks + 1) << "is not started a second time";
  ASSERT_TRUE(automations->removeAutomation(id));
  snapshot.branch = "other";
  replies.back()(snapshot);
  main.runReady();
  EXPECT_EQ(automations->automations().size(), 1u);
  EXPECT_EQ(recipe().lastProjectFingerprint, "other");
}

TEST_F(AutomationTest, AHostGetsThePlainPrompt) {
  begin();
  fleet.host = Uuid::random();
  const auto id = create(Trigger::hourly, fleet.host);
  schedule();
  const auto where = "do it in " + model->tree.workspace(key.workspaceID)->path;
  EXPECT_EQ(runsDuring(2h), 0u) << "no conversation here";
  EXPECT_THAT(fleet.prompts, ElementsAre(where, where));
  EXPECT_EQ(recipe().lastRunAt, main.now());

  fleet.answer = refuse("The host is asleep.");
  main.advance(1h);
  EXPECT_EQ(model->executions.errorMessage(), "The host is asleep.");
  EXPECT_EQ(recipe().lastRunAt, main.now()) << "it counts as a run all the same";
  std::string told;
  automations->runAutomation(id, [&](auto given) { told = given ? "" : given.error().sentence; });
  main.runReady();
  EXPECT_EQ(told, "The host is asleep.");

  fleet.host = std::nullopt;  // removed
  EXPECT_EQ(runsDuring(1h), 1u);
  EXPECT_EQ(fleet.prompts.size(), 4u);
}

TEST_F(AutomationTest, ARecipeWithoutItsProjectStaysAndIsSkipped) {
  begin();
  const auto id = create(Trigger::hourly);
  const auto next = recipe().nextRunAt;
  ASSERT_TRUE(model->operations->removeWorkspace(key.workspaceID));
  schedule();
  main.advance(5h);
  EXPECT_EQ(recipe().nextRunAt, next);
  EXPECT_FALSE(recipe().lastRunAt);
  std::string told;
  automations->runAutomation(id, [&](auto given) { told = given ? "" : given.error().sentence; });
  EXPECT_NE(told, "");
}

TEST_F(AutomationTest, ARunIsOnTheDiskBeforeItsPromptGoesOut) {
  begin();
  const auto id = create(Trigger::daily);
  disk.isHeld = true;
  automations->runAutomation(id);
  main.advance(1h);
  EXPECT_TRUE(begun().empty());
  disk.release();
  main.post([&] {
    EXPECT_THAT(file(), ::testing::HasSubstr("pendingThreadID"));
    EXPECT_TRUE(begun().empty());
  });
  main.runReady();
  EXPECT_EQ(begun().size(), 1u);
}

/// What a process that was killed leaves: the record of a run, and more or less of its
/// conversation.
TEST_F(AutomationTest, ARunThatAKilledProcessHasLostIsMadeUpForOnce) {
  start();
  const auto thread = ChatThread::make("Automation \u00B7 Nightly", main.now());
  const auto members =
      fmt::format(R"("trigger":"daily","nextRunAt":"{}","lastRunAt":"{}","pendingThreadID":"{}")",
                  iso8601(main.now() + 24h), iso8601(main.now()), thread.id.text());
  const auto prompts = [&] {
    const auto* found = model->tree.thread({key.workspaceID, thread.id});
    return found ? std::ranges::count(found->entries, ChatEntryKind::user, &ChatEntry::kind) : 0;
  };
  const auto startAgain = [&] {
    end();
    storeFile(members);
    begin();
    schedule();
    EXPECT_EQ(recipe().pendingThreadID, std::nullopt);
    return prompts();
  };
  EXPECT_EQ(startAgain(), 1) << "no conversation yet";
  EXPECT_EQ(startAgain(), 1) << "it has begun";
  EXPECT_EQ(begun().size(), 1u);
  ASSERT_TRUE(model->operations->deleteThread(thread.id, key.workspaceID));
  ASSERT_TRUE(model->operations->addThread(thread, key.workspaceID));
  main.runReady();
  EXPECT_EQ(startAgain(), 1) << "a conversation without a run";
  EXPECT_EQ(begun().size(), 1u);
}

TEST_F(AutomationTest, WhatCannotBeReadOrWrittenLosesNothing) {
  start();
  folder.file("Orchestration/automations.json", "[{\"id\":\"half");
  begin();
  EXPECT_TRUE(automations->automations().empty());
  EXPECT_EQ(file(), "[{\"id\":\"half");
  create(Trigger::daily);
  EXPECT_EQ(folder.names("Orchestration").size(), 2u) << "the unreadable one is kept";
  std::filesystem::remove_all(folder / "Orchestration");
  folder.file("Orchestration", "in the way of the folder");
  create(Trigger::daily);
  EXPECT_FALSE(automations->flush());
  std::filesystem::remove(folder / "Orchestration");
  EXPECT_TRUE(automations->flush());
  end();
  begin();
  EXPECT_EQ(automations->automations().size(), 2u);
}

/// A real repository, read as the program does.
TEST_F(AutomationTest, AChangeOfARealRepositoryRunsARecipe) {
  GitRepository repository;
  repository.file("a.txt", "one\n");
  repository.commit();
  start();
  ASSERT_TRUE(model->operations->addWorkspace(repository.path()));
  key = *model->selection.key();
  BackgroundPool pool{1};
  AutomationsModule module({main, model->changes, model->tree, *model->operations, *model->composer,
                            model->executions, model->orchestration, main, pool});
  automations = module.automations;
  create(Trigger::projectChange);
  schedule();
  const auto look = [&] {
    const auto next = recipe().nextRunAt;
    main.advance(5min);
    EXPECT_TRUE(main.runUntil([&] { return recipe().nextRunAt != next; }));
    main.runReady();
    return begun().size();
  };
  EXPECT_EQ(look(), 0u);
  EXPECT_EQ(recipe().lastProjectFingerprint, "main");
  EXPECT_EQ(look(), 0u);
  repository.file("a.txt", "one\ntwo\n");
  EXPECT_EQ(look(), 1u);
  EXPECT_EQ(recipe().lastProjectFingerprint, "main|a.txt: M:1:0");
  EXPECT_EQ(look(), 1u);
  repository.commit();
  EXPECT_EQ(look(), 2u);
  automations.reset();  // the module's store goes now
}

}  // namespace
}  // namespace vantrell::tests
