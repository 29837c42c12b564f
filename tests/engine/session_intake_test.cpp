#include <gmock/gmock.h>

#include "platform/files/files.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class SessionIntake : public EngineFixture {
 protected:
  JsonObject tool(std::string id) {
    return {{"sessionUpdate", "tool_call_update"}, {"toolCallId", std::move(id)}};
  }
  const ChatEntry& last() { return thread().entries.back(); }
};

TEST_F(SessionIntake, ChunksOfOneMessageJoin) {
  start();
  work("Go");
  client().says("Hel", "m1");
  client().says("lo", "m1");
  client().says("no ");
  client().says("id");
  client().chunk("agent_thought_chunk", "hm", std::nullopt);
  client().says("more", "m1");
  EXPECT_THAT(texts(), ElementsAre("Go", "Hellomore", "no id", "hm"));
  EXPECT_EQ(thread().entries[2].id, execution().fallbackMessageID);
  EXPECT_EQ(thread().entries[3].id, "thought-" + execution().fallbackMessageID);
  EXPECT_EQ(thread().entries[1].provider, AgentProvider::kimi);
  EXPECT_EQ(thread().entries[1].kind, ChatEntryKind::assistant);
}

TEST_F(SessionIntake, MalformedUpdatesLeaveNoTrace) {
  start();
  work("Go");
  const auto before = thread().entries;
  client().updates({});
  client().updates({{"sessionUpdate", 7}});
  client().updates({{"sessionUpdate", "agent_message_chunk"}});
  client().updates({{"sessionUpdate", "agent_message_chunk"}, {"content", "text"}});
  client().updates(
      {{"sessionUpdate", "agent_message_chunk"}, {"content", JsonObject{{"text", ""}}}});
  client().updates({{"sessionUpdate", "tool_call"}, {"toolCallId", 5}});
  execution().plan = std::make_shared<std::vector<PlanEntry>>(1);
  client().updates({{"sessionUpdate", "plan"}, {"entries", "none"}});
  EXPECT_EQ(thread().entries, before);
  EXPECT_EQ(execution().plan->size(), 1U);
}

TEST_F(SessionIntake, ToolUpdatesChangeOneEntry) {
  start();
  work("Go");
  auto first = tool("t1");
  client().updates(first);
  EXPECT_EQ(last().kind, ChatEntryKind::tool);
  EXPECT_EQ(last().title, "Using a tool");
  EXPECT_EQ(last().status, "pending");
  EXPECT_EQ(last().text, "");

  auto second = tool("t1");
  second.set("title", "ls");
  second.set("status", "in_progress");
  second.set("rawInput", JsonObject{{"z", 1}, {"a", JsonObject{}}});
  client().updates(second);
  auto words = tool("t1");
  words.set("title", "ls");
  words.set("rawInput", "ls");
  client().updates(words);
  auto third = tool("t1");
  third.set("title", "ls");
  third.set("status", "completed");
  client().updates(third);
  EXPECT_EQ(thread().entries.size(), 2u);
  EXPECT_EQ(last().status, "completed");
  EXPECT_EQ(last().text, "{\n  \"a\": {},\n  \"z\": 1\n}") << "input shown once stays shown";
}

TEST_F(SessionIntake, NoToolStaysOpenBehindTheEndOfItsTurnOrItsRuntime) {
  using Run = std::function<void()>;
  const std::pair<const char*, Run> ends[] = {
      {"the runtime ends a stopped turn",
       [&] { app->selected().stopWorking(), client().finishes(); }},
      {"the turn fails", [&] { client().fails(AgentError("no")); }},
      {"the runtime dies", [&] { client().onUnexpectedTermination("gone"); }},
      {"the connection is reset", [&] { app->selected().resetConnection(); }},
      {"the program ends", [&] { app->endAllWork(); }},
  };
  start();
  for (const auto& [name, end] : ends) {
    work("Go");
    for (const char* status : {"pending", "in_progress", "completed"}) {
      auto update = tool(std::string(name) + status);
      update.set("status", status);
      client().updates(update);
    }
    end();
    const auto& entries = thread().entries;
    const auto statusOf = [&](const char* id) {
      return entries.find(name + std::string(id))->status;
    };
    EXPECT_EQ(statusOf("pending"), "failed") << name;
    EXPECT_EQ(statusOf("in_progress"), "failed") << name;
    EXPECT_EQ(statusOf("completed"), "completed") << name;
    app->selected().resetConnection();
  }
}

TEST_F(SessionIntake, ToolOfTheBackgroundOutlivesItsTurn) {
  start();
  work("Go");
  auto task = tool("t1");
  task.set("status", "in_progress");
  client().updates(task);
  client().finishes();
  EXPECT_EQ(last().status, "in_progress");
  client().onUnexpectedTermination("gone");
  EXPECT_EQ(last().status, "failed");
}

TEST_F(SessionIntake, PlanIsReplacedWholeAndFilledWithDefaults) {
  start();
  work("Go");
  client().updates(
      {{"sessionUpdate", "plan"},
       {"entries", Json::Array{JsonObject{{"content", "One"}, {"status", "completed"}}, "no map",
                               JsonObject{{"id", "x"}, {"priority", "high"}}}}});
  EXPECT_THAT(*execution().plan, ElementsAre(PlanEntry{"plan-0", "One", "completed", "medium"},
                                             PlanEntry{"x", "Task", "pending", "high"}));
  EXPECT_EQ(*app->selected().plan(), *execution().plan);
  client().updates({{"sessionUpdate", "plan"}, {"entries", Json::Array{}}});
  EXPECT_TRUE(execution().plan->empty());
}

TEST_F(SessionIntake, OnlyHandledUpdatesAreSignsOfLife) {
  start();
  work("Go");
  const Date before = execution().lastActivityAt;
  execution().stallWarningSent = true;
  main.advance(std::chrono::seconds(5));
  client().chunk("user_message_chunk", "echo", "u1");
  client().updates({{"sessionUpdate", "available_commands_update"}});
  EXPECT_EQ(execution().lastActivityAt, before);
  EXPECT_TRUE(execution().stallWarningSent);
  EXPECT_THAT(texts(), ElementsAre("Go"));

  client().says("x");
  EXPECT_EQ(execution().lastActivityAt, main.now());
  EXPECT_FALSE(execution().stallWarningSent);
  EXPECT_EQ(run().statusMessage, "Kimi resumed activity.");
  EXPECT_EQ(run().lastActivityAt, main.now());
}

TEST_F(SessionIntake, StreamReachesTheDiskOnceInFifteenSeconds) {
  start();
  const auto stored = [&] { return saved()[1].threads[0]; };
  const auto savedText = [&] { return stored().entries.back().text; };
  const struct {
    const char* name;
    std::function<void()> begin;
  } cases[] = {
      {"in a run", [&] { work("Go"); }},
      {"after its end", [&] { client().finishes(); }},
      {"after a stop", [&] { work("Go"), app->selected().stopWorking(); }},
      {"begun by the runtime itself", [&] { client().finishes(), main.advance(1h); }},
  };
  for (const auto& [name, begin] : cases) {
    SCOPED_TRACE(name);
    begin();
    client().says("first ", name);
    main.advance(1s);
    const std::string before = savedText();
    for (int i = 0; i < 100; ++i) client().says("c", name);
    main.advance(13s);
    EXPECT_EQ(savedText(), before);
    main.advance(1s);
    EXPECT_EQ(savedText(), "first " + std::string(100, 'c'));
  }
  work("Again");
  main.advance(10s);
  client().says("x", "x");
  const Date said = main.now();
  main.advance(5s);
  EXPECT_EQ(stored().runs.back().lastActivityAt, said);
}

class Replay : public SessionIntake {
 public:
  /// A conversation with a stored session, at the point where its next turn has asked for a resume.
  void resume() {
    start();
    work("One");
    client().says("Answer one", "a1");
    client().finishes();
    client().onUnexpectedTermination("gone");
    send("Two");
    client().onReplayStarted();
  }
};

TEST_F(Replay, AddsWhatIsNotStoredBeforeTheTurnAtHand) {
  resume();
  const auto before = thread().entries;
  client().chunk("user_message_chunk", "One", "u1");
  client().chunk("agent_message_chunk", "Answer ", "b1");
  client().chunk("agent_message_chunk", "one", "b1");
  client().chunk("user_message_chunk", "Elsewhere", "u2");
  client().says("Yes", "b2");
  EXPECT_EQ(thread().entries, before) << "while it is played back, nothing changes";
  client().opens("session", true);
  EXPECT_THAT(texts(), ElementsAre("One", "Answer one", "Elsewhere", "Yes", "Two"));
  EXPECT_EQ(thread().entries[0], before[0]);
  EXPECT_EQ(thread().entries[1], before[1]);
  EXPECT_FALSE(execution().isReplaying);
  client().says("Answer two", "a2");
  client().finishes();
  EXPECT_EQ(texts().back(), "Answer two");
}

TEST_F(Replay, LeavesOutWhatTheUserNeverSaidAndEndsOldTools) {
  resume();
  client().chunk("user_message_chunk", "One", "u1");
  client().chunk("user_message_chunk", "<system-reminder>\nIt is Monday.\n</system-reminder>",
                 "u2");
  client().updates(tool("t1"));
  client().opens("session", true);
  EXPECT_THAT(texts(), ElementsAre("One", "Answer one", "", "Two"));
  EXPECT_EQ(thread().entries[2].status, "failed");
}

TEST_F(Replay, ShowsTheUsersWordsAndNotWhatStoodRoundThem) {
  start();
  ChatAttachment file;
  file.path = "a.txt";
  app->selected().send("Look", {file});
  main.runReady();
  client().opens("session");
  const Date asked = thread().entries[0].createdAt;
  const std::string prompt = client().prompts[0];
  client().finishes();
  client().onUnexpectedTermination("gone");
  main.advance(std::chrono::hours(1));
  send("Two");
  client().onReplayStarted();
  client().chunk("user_message_chunk", prompt.substr(0, 30), "u");
  client().chunk("user_message_chunk", prompt.substr(30), "u");
  client().opens("session", true);
  EXPECT_THAT(texts(), ElementsAre("Look", "Two"));
  EXPECT_THAT(thread().entries[0].attachments, ElementsAre(file));
  EXPECT_EQ(thread().entries[0].createdAt, asked);
}

TEST_F(Replay, KnowsTheUsersWordsOfATurnThatBeganWithASwitch) {
  start();
  work("One");
  client().finishes();
  provider = AgentProvider::glm;
  work("Two");
  const std::string capsule = client().prompts.at(0);
  client().finishes();
  client().onUnexpectedTermination("gone");
  const auto before = texts();
  send("Three");
  client().onReplayStarted();
  client().chunk("user_message_chunk", capsule, "u");
  client().says("Done", "a");
  client().opens("session", true);
  auto expected = before;
  expected.insert(expected.end(), {"Done", "Three"});
  EXPECT_EQ(texts(), expected);
}

TEST_F(Replay, FailureBringsTheTranscriptBack) {
  const struct {
    const char* name;
    std::function<void(Replay&)> end;
  } cases[] = {
      {"told by the client", [](Replay& t) { t.client().onReplayFailed(); }},
      {"start fails", [](Replay& t) { t.client().failsToOpen("no"); }},
      {"client dies", [](Replay& t) { t.client().onUnexpectedTermination("gone"); }},
      {"never answers", [](Replay& t) { t.main.advance(std::chrono::seconds(30)); }},
      {"stopped by the user", [](Replay& t) { t.app->selected().stopWorking(); }},
      {"connection reset", [](Replay& t) { t.app->selected().resetConnection(); }},
      {"another turn begins",
       [](Replay& t) {
         t.app->selected().sendNow("Three", {});
         t.main.runReady();
       }},
      {"program ends", [](Replay& t) { t.app->endAllWork(); }},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    clients.clear();
    stop();
    (void)files::remove(folder / "conversations.sqlite");
    resume();
    client().chunk("user_message_chunk", "On", "u1");
    each.end(*this);
    ASSERT_GE(thread().entries.size(), 3u);
    EXPECT_EQ(thread().entries[0].text, "One");
    EXPECT_EQ(thread().entries[1].text, "Answer one");
    EXPECT_EQ(thread().entries[2].text, "Two");
    EXPECT_FALSE(app->selected().isReplaying());
  }
}

TEST_F(Replay, HoldsUpTheSavingOfNoConversation) {
  resume();
  client().chunk("user_message_chunk", "One", "u1");
  const Uuid other = model->tree.workspaces()[0].id;
  model->tree.appendSystemEntry("elsewhere", {other, model->tree.workspaces()[0].threads[0].id});
  EXPECT_EQ(saved()[0].threads[0].entries.size(), 1u);
  EXPECT_EQ(saved()[1].threads[0].entries.size(), 3u) << "its own is stored as it was";
}

}  // namespace
}  // namespace vantrell::tests
