#include "shell/terminal/change_feed.h"

#include "shell/terminal/json_printer.h"
#include "support/engine_fixture.h"

namespace vantrell::shell {
namespace {

/// The engine without any runtime, and what the feed reports of it, one word an event.
class ChangeFeedTest : public testing::Test {
 protected:
  ChangeFeedTest() {
    static_cast<void>(model.operations().addWorkspace(folder.path()));
    key = *model.selection().key();
    feed.emplace(model, key, printer);
    model.changes().deliver();
    observation =
        model.changes().observe([this](const ChangeBatch& batch) { feed->changed(batch); });
  }
  void add(const std::string& id, const ThreadExecutionKey& to) {
    ChatEntry entry;
    entry.id = id;
    entry.text = id;
    entry.kind = ChatEntryKind::assistant;
    model.parts().tree.appendEntry(std::move(entry), to);
  }
  void setReplaying(bool isReplaying) {
    model.parts().executions.execution(key).isReplaying = isReplaying;
    model.parts().executions.changed(key);
    model.changes().deliver();
  }
  /// The kinds of events since the last call, with the id of entries.
  std::string told() {
    model.changes().deliver();
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
  tests::FakeProviders providers;
  tests::FakeProjects projects;
  EngineEvents events;
  RuntimePrograms programs;
  AppModel model{AppModel::Dependencies{.main = main,
                                        .defaults = *defaults,
                                        .store = store,
                                        .providers = providers,
                                        .projects = projects,
                                        .events = events,
                                        .programs = programs,
                                        .supportFolder = folder.path()}};
  ThreadExecutionKey key;
  std::vector<std::string> lines;
  JsonPrinter printer{[this](std::string_view line) { lines.emplace_back(line); }};
  std::optional<ChangeFeed> feed;
  Changes::Observation observation;
};

TEST_F(ChangeFeedTest, ReportsEntriesAndChunksOfItsConversationOnly) {
  add("a", key);
  EXPECT_EQ(told(), "entry:a ");
  model.parts().tree.appendText("more", "a", key);
  static_cast<void>(model.operations().newThread(key.workspaceID));
  add("b", *model.selection().key());
  EXPECT_EQ(told(), "chunk:more ");
}

TEST_F(ChangeFeedTest, IsSilentDuringAPlaybackAndThenReportsTheWholeOnce) {
  add("old", key);
  told();
  setReplaying(true);
  add("played", key);
  model.parts().tree.appendText("more", "played", key);
  EXPECT_EQ(told(), "");
  setReplaying(false);
  EXPECT_EQ(told(), "transcript entry:old entry:played ");
  model.parts().tree.appendText("!", "played", key);
  EXPECT_EQ(told(), "chunk:! ");
}

}  // namespace
}  // namespace vantrell::shell
