#include "shell/terminal/change_feed.h"

#include <gtest/gtest.h>

#include "app/ports.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/transcript_printer.h"
#include "support/temporary_folder.h"

namespace vantrell::shell {
namespace {

/// The engine without any runtime, and what the feed tells of it, one word an event.
class ChangeFeedTest : public testing::Test {
 protected:
  ChangeFeedTest() {
    model.operations.addWorkspace(folder.path());
    key = *model.selection.key();
    feed.emplace(model, key, printer);
    observation = model.changes.observe([this](const Change& change) {
      if (change.conversation == key) feed->changed(change);
    });
  }
  void add(const std::string& id) {
    ChatEntry entry;
    entry.id = id;
    entry.text = id;
    model.tree.appendEntry(std::move(entry), key);
  }
  /// The kinds of events since the last call, with the id of entries.
  std::string told() {
    std::string words;
    for (const auto& line : lines) {
      const auto event = json::parseObject(line);
      words += *json::text(*event, "event");
      if (const auto* entry = json::object(*event, "entry"))
        words += ":" + *json::text(*entry, "id");
      if (const auto* text = json::text(*event, "text")) words += ":" + *text;
      words += " ";
    }
    lines.clear();
    return words;
  }

  tests::TemporaryFolder folder;
  ManualMainQueue main;
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  WorkspaceStore store{*defaults, folder.path()};
  AppModel model{main, *defaults, store, neutralPorts()};
  ThreadExecutionKey key;
  std::vector<std::string> lines;
  JsonPrinter printer{[this](std::string_view line) { lines.emplace_back(line); }};
  std::optional<ChangeFeed> feed;
  Changes::Observation observation;
};

TEST_F(ChangeFeedTest, TellsEntriesAndChunksOfItsConversationOnly) {
  add("a");
  model.tree.appendText("more", "a", key);
  model.operations.newThread(key.workspaceID);
  ChatEntry elsewhere;
  elsewhere.id = "b";
  model.tree.appendEntry(elsewhere, *model.selection.key());
  EXPECT_EQ(told(), "entry:a chunk:more ");
}

TEST_F(ChangeFeedTest, IsSilentDuringAPlaybackAndThenTellsTheWholeOnce) {
  add("old");
  add("prompt");
  told();
  auto& execution = model.executions.execution(key);
  execution.turnEntryID = "prompt";
  model.intake.replayStarted(key);
  add("played");
  model.tree.appendText("more", "played", key);
  EXPECT_EQ(told(), "");
  model.intake.startSucceeded(key);
  model.executions.publishExecution(key);
  add("answer");
  EXPECT_EQ(told(), "transcript entry:played entry:prompt entry:answer ");
}

TEST_F(ChangeFeedTest, TellsSilenceAndItsEndOnceEach) {
  std::string page;
  TranscriptPrinter person([&](std::string_view bytes) { page += bytes; }, TerminalStyle::plain());
  feed.emplace(model, key, person);
  const auto said = [&] { return std::exchange(page, ""); };
  const auto update = [&] {
    model.intake.handle({{"sessionUpdate", "plan"}, {"entries", Json::Array{}}}, key);
  };
  auto& execution = model.executions.execution(key);
  execution.activeRunID = model.tree.beginRun("Go", key);
  execution.connectionState = ConnectionState::working();
  model.tree.updateRun(execution.activeRunID, key,
                       [](RunRecord& run) { run.status = RunRecordStatus::running; });
  main.advance(std::chrono::minutes(11));
  EXPECT_EQ(said(),
            "• The agent has produced no new activity for 10m 0s. It may still be working; you can "
            "keep waiting or stop the task.\n");
  update();
  EXPECT_EQ(said(), "\n• The agent resumed activity.\n");
  main.advance(std::chrono::seconds(20));
  update();
  EXPECT_EQ(said(), "");
  main.advance(std::chrono::minutes(11));
  said();
  model.approvals.requestArrived({7, "Run it", "", {}}, key);
  EXPECT_FALSE(said().contains("•")) << "the question itself ends the silence";
}

TEST_F(ChangeFeedTest, FailedPlaybackTellsTheEntriesThatCameBack) {
  add("old");
  told();
  model.executions.execution(key);
  model.intake.replayStarted(key);
  add("half");
  model.intake.replayFailed(key);
  EXPECT_EQ(told(), "transcript entry:old ");
}

}  // namespace
}  // namespace vantrell::shell
