#include <gmock/gmock.h>

#include "engine/turns/handoff_capsule.h"
#include "engine/turns/prompt_assembly.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;

class AppModelStart : public EngineFixture {};

TEST_F(AppModelStart, RunsLeftOpenAreInterrupted) {
  start();
  for (const auto status : {RunRecordStatus::starting, RunRecordStatus::running,
                            RunRecordStatus::waitingApproval, RunRecordStatus::completed}) {
    const Uuid id = model->tree.beginRun("p", key);
    model->tree.updateRun(id, key, [&](RunRecord& each) { each.status = status; });
  }
  ChatEntry tool;
  tool.id = "tool";
  tool.kind = ChatEntryKind::tool;
  tool.status = "in_progress";
  model->tree.appendEntry(tool, key);
  stop();
  main.advance(std::chrono::hours(1));
  restart();
  const auto& runs = thread().runs;
  ASSERT_EQ(runs.size(), 4u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(runs[i].status, RunRecordStatus::interrupted);
    EXPECT_EQ(runs[i].statusMessage, "vantrell restarted before this run reported completion.");
    EXPECT_EQ(runs[i].completedAt, main.now());
  }
  EXPECT_EQ(runs[3].status, RunRecordStatus::completed);
  const auto stored = saved()[1].threads[0];
  EXPECT_EQ(stored.runs[0].status, RunRecordStatus::interrupted);
  EXPECT_EQ(stored.entries.back().status, "failed") << "nothing is under way any more";
}

TEST_F(AppModelStart, SelectionAndSettingsComeBack) {
  start();
  model->operations->newThread(key.workspaceID);
  const auto selected = model->selection.key();
  app->selected().setPermissionMode(GrokPermissionMode::auto_);
  restart();
  EXPECT_EQ(model->selection.key(), selected);
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::auto_);

  defaults->setText("selectedThread.v1", Uuid::random().text());
  defaults->setText("grokPermissionMode.v1", "reckless");
  restart();
  EXPECT_EQ(model->selection.key()->threadID, model->tree.workspaces()[1].threads[0].id);
  const auto& threads = model->tree.workspaces()[1].threads;
  model->tree.updateThread({model->tree.workspaces()[1].id, threads[0].id},
                           [](ChatThread& thread) { thread.isArchived = true; });
  main.runReady();
  defaults->setText("selectedThread.v1", Uuid::random().text());
  restart();
  EXPECT_EQ(model->selection.key()->threadID, model->tree.workspaces()[1].threads[1].id)
      << "a task that is visible";
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask);
}

TEST_F(AppModelStart, OpeningAFolderAgainSelectsIt) {
  start();
  model->navigation.selectWorkspace(model->tree.workspaces()[0].id);
  model->operations->addWorkspace(folder / "project/../project/");
  EXPECT_EQ(model->tree.workspaces().size(), 2u);
  EXPECT_EQ(model->selection.key(), key);
}

TEST_F(AppModelStart, FailureToSaveIsAnnouncedAndTheTurnGoesOn) {
  folder.folder("conversations.sqlite");  // in the place of the file
  restart();
  key = *model->selection.key();
  std::vector<std::string> told;
  const auto observation = model->changes.observe([&](const ChangeBatch& batch) {
    told.insert(told.end(), batch.saveFailures.begin(), batch.saveFailures.end());
  });
  work("Go");
  ASSERT_FALSE(told.empty());
  EXPECT_TRUE(told[0].contains(folder / "conversations.sqlite")) << told[0];
  EXPECT_EQ(run().status, RunRecordStatus::running);
}

TEST(Changes, AreAnnouncedOnceATurnByTopicAndConversation) {
  ManualMainQueue main;
  Changes changes(main);
  static constexpr ChangeTopic ownTopic{"a feature's own"};
  const ThreadExecutionKey one{Uuid::random(), Uuid::random()};
  const ThreadExecutionKey other{Uuid::random(), Uuid::random()};
  std::vector<ChangeBatch> batches;
  const auto observation =
      changes.observe([&](const ChangeBatch& batch) { batches.push_back(batch); });
  changes.entryAppended(one, "a");
  changes.entryChanged(one, "a");
  changes.entryChanged(one, "b");
  changes.entryChanged(one, "b");
  changes.stateChanged(other);
  changes.mark(ownTopic);
  EXPECT_TRUE(batches.empty()) << "not in the middle of a step";
  main.runReady();
  ASSERT_EQ(batches.size(), 1U);
  EXPECT_TRUE(batches[0].has(ownTopic));
  EXPECT_FALSE(batches[0].has(topics::settings));
  EXPECT_THAT(batches[0].of(one)->appendedEntries, ElementsAre("a"));
  EXPECT_THAT(batches[0].of(one)->changedEntries, ElementsAre("b"));
  EXPECT_TRUE(batches[0].of(other)->state);
  EXPECT_EQ(batches[0].of({one.workspaceID, other.threadID}), nullptr);

  changes.entryAppended(one, "c");
  changes.transcriptReset(one);
  changes.entryChanged(one, "d");
  changes.deliver();
  ASSERT_EQ(batches.size(), 2U);
  EXPECT_TRUE(batches[1].of(one)->transcriptReset);
  EXPECT_TRUE(batches[1].of(one)->appendedEntries.empty()) << "all of it is read again";
  EXPECT_TRUE(batches[1].of(one)->changedEntries.empty());
  main.runReady();
  EXPECT_EQ(batches.size(), 2U) << "nothing is announced twice";
}

TEST(Changes, ObserversComeAndGoDuringAnnouncements) {
  ManualMainQueue main;
  Changes changes(main);
  int first = 0, second = 0;
  Changes::Observation late;
  Changes::Observation observation;
  observation = changes.observe([&](const ChangeBatch&) {
    if (++first == 1) late = changes.observe([&](const ChangeBatch&) { ++second; });
    if (first == 2) observation = {};
    changes.mark(topics::usage);  // in the next turn
  });
  changes.mark(topics::settings);
  main.runReady();
  EXPECT_EQ(first, 2);
  EXPECT_EQ(second, 2);
}

TEST(PromptAssembly, AttachmentsFoldInAndOutAgain) {
  ChatAttachment a, b;
  a.path = "src/a.cpp";
  b.path = "/tmp/b c.png";
  EXPECT_EQ(ChatAttachmentPrompt::compose("Look", {}), "Look");
  const std::string composed = ChatAttachmentPrompt::compose("Look", {a, b});
  EXPECT_EQ(composed, "Look\n\nAttached context:\n- @src/a.cpp\n- @/tmp/b c.png");
  const auto parsed = ChatAttachmentPrompt::parse(composed);
  EXPECT_EQ(parsed.request, "Look");
  EXPECT_THAT(parsed.paths, ElementsAre("src/a.cpp", "/tmp/b c.png"));
  EXPECT_EQ(ChatAttachmentPrompt::parse(composed + "\nmore").request, composed + "\nmore");
  EXPECT_EQ(ChatAttachmentPrompt::parse("plain").request, "plain");
}

TEST(PromptAssembly, ModesPutTheirInstructionsInFront) {
  const struct {
    TaskWorkflowMode mode;
    std::string_view front;
  } cases[] = {{TaskWorkflowMode::build, "RESPONSE STYLE\n"},
               {TaskWorkflowMode::plan, "WORKFLOW MODE: PLAN\n"},
               {TaskWorkflowMode::review, "WORKFLOW MODE: REVIEW\n"}};
  for (const auto& each : cases) {
    const std::string prompt = preparedPrompt(each.mode, "X");
    EXPECT_TRUE(prompt.starts_with(each.front)) << prompt;
    EXPECT_TRUE(prompt.ends_with("wall of prose.\n\nUSER REQUEST:\nX")) << prompt;
  }
}

TEST(HandoffCapsule, BoundsTheConversation) {
  Transcript entries;
  for (int i = 0; i < 41; ++i) {
    for (const auto kind : {ChatEntryKind::thought, ChatEntryKind::user}) {
      ChatEntry entry;
      entry.id = std::to_string(i) + (kind == ChatEntryKind::user ? "u" : "t");
      entry.kind = kind;
      entry.text = "<" + std::to_string(i) + ">";
      entries.append(entry);
    }
  }
  ChatEntry forUser;
  forUser.id = "s";
  forUser.kind = ChatEntryKind::system;
  forUser.text = "No checkpoint was taken before this prompt. Git took too long.";
  entries.append(forUser);
  const std::vector<PlanEntry> plan{{"1", "Read", "completed", "high"},
                                    {"2", "Write", "pending", ""}};
  const HandoffCapsule::Contents contents{
      AgentProvider::codex, AgentProvider::claude, "P", entries, plan, "/w", "", "C"};
  const std::string capsule = HandoffCapsule::build(contents);
  EXPECT_EQ(capsule.find("USER: <0>"), std::string::npos);
  EXPECT_NE(capsule.find("RECENT VISIBLE CONVERSATION\nUSER: <1>\n\n"), std::string::npos);
  EXPECT_NE(capsule.find("USER: <40>\n\nWORKSPACE\n/w"), std::string::npos);
  EXPECT_NE(capsule.find("ACTIVE PLAN\n- [completed] Read\n- [pending] Write\n\n"),
            std::string::npos);
  EXPECT_NE(capsule.find("REPOSITORY SNAPSHOT\nNo Git snapshot is available"), std::string::npos);

  entries[81].text = std::string(30'000, 'x');
  const std::string longOne = HandoffCapsule::build(contents);
  EXPECT_NE(longOne.find("CONVERSATION\n" + std::string(24'000, 'x') + "\n\nWORKSPACE"),
            std::string::npos);
}

}  // namespace
}  // namespace vantrell::tests
