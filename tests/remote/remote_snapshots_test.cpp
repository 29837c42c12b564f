#include "remote/host/remote_snapshots.h"

#include <gmock/gmock.h>

#include "remote/protocol/remote_envelope.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {

namespace {

using std::chrono::milliseconds;

class RemoteSnapshotsTest : public EngineFixture {
 protected:
  ~RemoteSnapshotsTest() override {
    if (snapshots) snapshots->stop();
  }

  void host(std::size_t limit = RemoteSnapshots::limit) {
    if (!app) start();
    for (auto& each : providers.connectors) {
      each.second.modelOptions = [](const ProviderConnectorContext&) {
        return std::vector{ProviderModelOption::defaultOption({})};
      };
    }
    RemoteSnapshotSources sources{
        main,
        model->tree,
        model->settings,
        model->selection,
        model->executions,
        model->usage,
        model->controls,
        *model->router,
        *model->imagine,
        *model->context,
        [this](const Uuid& id) { return model->navigation.isGeneral(id); },
        "workshop"};
    snapshots = std::make_shared<RemoteSnapshots>(RemoteSnapshots::Dependencies{
        sources, model->changes, pool, writer,
        [this](RemoteSnapshotText text) {
          auto json = text.joined();
          EXPECT_EQ(json.size(), text.size);
          EXPECT_LE(json.size(), limitOfTest);
          const auto envelope = decodeEnvelope(encodeSnapshotEnvelope("1", json));
          ASSERT_TRUE(envelope) << envelope.error().text();
          sent.push_back(*envelope->snapshot);
        },
        [this](const std::string& line) { log.push_back(line); }, limit});
    limitOfTest = limit;
    snapshots->start();
    awaitSnapshots(1);
  }
  void awaitSnapshots(std::size_t count) {
    ASSERT_TRUE(main.runUntil([&] { return sent.size() >= count; })) << sent.size();
  }
  /// After all that is marked has been sent.
  const RemoteSnapshot& latest() {
    const auto before = sent.size();
    main.runReady();
    main.advance(RemoteSnapshots::quietTime);
    awaitSnapshots(before + 1);
    return sent.back();
  }
  void say(const std::string& id, std::string text, const ThreadExecutionKey& at) {
    model->tree.appendEntry({.id = id,
                             .kind = ChatEntryKind::assistant,
                             .text = std::move(text),
                             .provider = AgentProvider::kimi,
                             .createdAt = main.now()},
                            at);
  }
  static const RemoteThread* find(const RemoteSnapshot& in, const ThreadExecutionKey& key) {
    for (const auto& workspace : in.workspaces) {
      for (const auto& thread : workspace.threads) {
        if (thread.id == key.threadID.text()) return &thread;
      }
    }
    return nullptr;
  }
  std::vector<std::string> idsOf(const RemoteSnapshot& in, const ThreadExecutionKey& at) {
    std::vector<std::string> ids;
    for (const auto& entry : find(in, at)->entries) ids.push_back(entry.id);
    return ids;
  }
  ThreadExecutionKey task(const std::string& title, int entries, std::size_t length) {
    auto made = ChatThread::make(title, main.now());
    const ThreadExecutionKey at{key.workspaceID, made.id};
    model->tree.addThread(std::move(made), key.workspaceID);
    for (int i = 0; i < entries; ++i) {
      main.advance(milliseconds(1));
      say(title + std::to_string(i), std::string(length, 'x'), at);
    }
    return at;
  }

  BackgroundPool pool{1};
  std::size_t limitOfTest = 0;
  std::vector<RemoteSnapshot> sent;
  std::vector<std::string> log;
  std::shared_ptr<RemoteSnapshots> snapshots;
};

TEST_F(RemoteSnapshotsTest, tellsWhatTheHostShows) {
  host();
  model->settings.recordWorkflowMode(TaskWorkflowMode::plan);
  model->operations->renameThread(key.threadID, key.workspaceID, "Say \"entries\":[]");
  model->context->setProjectInstructions("Use tabs.", key.workspaceID);
  model->usage.reported({.provider = AgentProvider::kimi, .primaryUsedPercent = 42});
  model->usage.reported({.provider = AgentProvider::codex, .exhausted = true});
  work("Fix \"text\":\"\" and Ünïcode \x01");
  client().onPermissionRequest(
      {7, "Run it?", "", {{"a", "Always", "allow_always"}, {"o", "Once", "allow_once"}}});

  const auto& s = latest();
  EXPECT_EQ(s.hostName, "workshop");
  EXPECT_EQ(s.connectionStatus, "working");
  EXPECT_EQ(s.connectionLabel, "Agent is working");
  EXPECT_EQ(s.selectedThreadID, key.threadID.text());
  EXPECT_EQ(s.workflowMode, "plan");
  EXPECT_EQ(s.permissionModeLabel, "Ask");
  EXPECT_EQ(s.sessionModelID, "default");
  EXPECT_EQ(s.imagineLabel, "Not connected");
  EXPECT_EQ(s.providers->size(), 7u);
  EXPECT_TRUE(s.providers->at(2).available);
  EXPECT_FALSE(s.providers->at(0).available);
  EXPECT_EQ(s.routingOptions->size(), 9u);
  EXPECT_TRUE(s.routingOptions->at(0).available);
  ASSERT_EQ(s.providerUsages.size(), 2u);
  EXPECT_EQ(s.providerUsages[0].provider, "codex");
  ASSERT_TRUE(s.permission);
  EXPECT_EQ(s.permission->requestID, 7);
  ASSERT_EQ(s.permission->options.size(), 1u);
  EXPECT_EQ(s.permission->options[0].id, "o");
  ASSERT_EQ(s.activities->size(), 1u);
  EXPECT_EQ(s.activities->front().statusLabel, "Needs approval");

  ASSERT_EQ(s.workspaces.size(), 2u);
  EXPECT_EQ(s.workspaces[0].isGeneral, true);
  EXPECT_FALSE(s.workspaces[0].projectInstructions);
  EXPECT_FALSE(s.workspaces[0].projectContextSummary);
  EXPECT_EQ(s.workspaces[1].projectInstructions, "Use tabs.");
  const auto* thread = find(s, key);
  EXPECT_EQ(thread->title, "Say \"entries\":[]");
  ASSERT_FALSE(thread->entries.empty());
  EXPECT_EQ(thread->entries.front().kind, "user");
  EXPECT_EQ(thread->entries.front().text, "Fix \"text\":\"\" and Ünïcode \x01");
  EXPECT_FALSE(thread->entries.front().attachments);
}

TEST_F(RemoteSnapshotsTest, followsEveryChangeOfAConversation) {
  host();
  say("a", "one", key);
  say("b", "two", key);
  EXPECT_THAT(idsOf(latest(), key), ::testing::ElementsAre("a", "b"));
  model->tree.appendText(" more", "a", key);
  EXPECT_EQ(find(latest(), key)->entries[0].text, "one more");
  model->tree.truncateTranscript(1, key);
  EXPECT_THAT(idsOf(latest(), key), ::testing::ElementsAre("a"));
  const auto other = task("other", 1, 3);
  EXPECT_THAT(idsOf(latest(), other), ::testing::ElementsAre("other0"));
  model->operations->deleteThread(other.threadID, other.workspaceID);
  EXPECT_EQ(find(latest(), other), nullptr);
}

TEST_F(RemoteSnapshotsTest, waitsForQuietButNotLongerThanASecond) {
  host();
  say("a", "", key);
  main.runReady();
  main.advance(milliseconds(79));
  EXPECT_EQ(sent.size(), 1u);
  latest();
  EXPECT_EQ(sent.size(), 2u);

  Duration longest{}, last = main.uptime();
  std::size_t count = sent.size();
  for (int i = 0; i < 60; ++i) {  // three seconds of a stream
    model->tree.appendText("x", "a", key);
    main.runReady();
    main.advance(milliseconds(50));
    if (main.runUntil([&] { return sent.size() > count; }, milliseconds(20))) {
      count = sent.size();
      longest = std::max(longest, main.uptime() - last);
      last = main.uptime();
    }
  }
  EXPECT_GE(count, 4u);
  EXPECT_LE(count, 6u);
  EXPECT_LE(longest, std::chrono::milliseconds(1050));

  main.advance(RemoteSnapshots::longestWait);
  main.runUntil([&] { return sent.size() > count; }, milliseconds(100));
  count = sent.size();
  snapshots->sendNow();
  snapshots->sendNow();
  awaitSnapshots(count + 2);
  snapshots->stop();
  model->tree.appendText("y", "a", key);
  main.runReady();
  main.advance(std::chrono::seconds(2));
  EXPECT_FALSE(main.runUntil([&] { return sent.size() > count + 2; }, milliseconds(30)));
}

TEST_F(RemoteSnapshotsTest, leavesOutTheOldestFirstWhereTheWholeDoesNotFit) {
  start();
  const auto old = task("old", 40, 1000);
  const auto recent = task("recent", 40, 1000);
  for (int i = 0; i < 30; ++i) say("s" + std::to_string(i), std::string(1000, 'y'), key);
  host(100'000);
  EXPECT_EQ(find(sent.back(), key)->entries.size(), 30u);
  const auto ofOld = idsOf(sent.back(), old), ofRecent = idsOf(sent.back(), recent);
  EXPECT_LT(ofOld.size(), 20u);
  EXPECT_GT(ofOld.size(), 3u);
  EXPECT_EQ(ofOld.back(), "old39");
  EXPECT_GT(ofRecent.size(), ofOld.size());
  EXPECT_EQ(ofRecent.back(), "recent39");
  ASSERT_EQ(log.size(), 1u);

  // What is selected has all of its entries.
  model->navigation.selectThread(old.threadID, old.workspaceID);
  EXPECT_EQ(find(latest(), old)->entries.size(), 40u);
  EXPECT_EQ(log.size(), 1u);
}

TEST_F(RemoteSnapshotsTest, cutsLongTextsOfWhatIsSelectedAtLast) {
  start();
  std::string text;
  while (text.size() < 60'000) text += "\"ü\\\n";
  say("e", text, key);
  host(60'000);
  const auto& entries = find(sent.back(), key)->entries;
  ASSERT_EQ(entries.size(), 1u);
  for (const auto& entry : entries) {
    EXPECT_THAT(entry.text, ::testing::EndsWith("[Cut here. The whole text is on the host.]"));
    EXPECT_TRUE(text.starts_with(entry.text.substr(0, entry.text.rfind("\n\n[Cut"))));
  }
}

TEST_F(RemoteSnapshotsTest, readsStoredTranscriptsWithoutKeepingThemInMemory) {
  start();
  const auto stored = task("stored", 120, 50);
  BackgroundPool thread{1};
  writer = &thread;
  restart();
  ASSERT_FALSE(model->tree.thread(stored)->entries.isRead());
  host();
  EXPECT_EQ(find(sent.back(), stored)->entries.size(), 120u);
  EXPECT_EQ(idsOf(sent.back(), stored).front(), "stored0");
  EXPECT_FALSE(model->tree.thread(stored)->entries.isRead());
  snapshots->stop();
  stop();
}

}  // namespace

}  // namespace vantrell::tests
