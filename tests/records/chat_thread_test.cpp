#include "records/values/chat_thread.h"

#include <gtest/gtest.h>

#include "records/stores/conversation_json.h"

namespace vantrell {
namespace {

constexpr Date before(100);
constexpr Date now(200);

ChatThread thread() {
  return ChatThread::make(std::string(newTaskTitle), before);
}

std::string jsonOf(const ChatThread& thread) {
  std::string out;
  JsonWriter writer(out);
  writeJson(writer, thread, conversationJson);
  return out;
}

ChatAttachment attachmentAt(std::string path) {
  ChatAttachment attachment;
  attachment.id = Uuid::random();
  attachment.path = std::move(path);
  return attachment;
}

QueuedPrompt promptWith(std::vector<ChatAttachment> attachments = {}) {
  QueuedPrompt prompt;
  prompt.id = Uuid::random();
  prompt.attachments = std::move(attachments);
  return prompt;
}

TEST(ChatThread, OldDocumentKeepsItsSessionForGrokAlone) {
  ChatThread old = thread();
  old.sessionId = "g1";
  EXPECT_EQ(old.sessionID(AgentProvider::grok), "g1");
  for (const auto provider : allAgentProviders) {
    if (provider == AgentProvider::grok) continue;
    EXPECT_EQ(old.sessionID(provider), std::nullopt);
  }
  old.providerSessionIDs = ChatThread::PerProvider{{"grok", "g2"}};
  EXPECT_EQ(old.sessionID(AgentProvider::grok), "g2") << "the entry goes before the old field";
}

TEST(ChatThread, StoresOneSessionPerProvider) {
  ChatThread made = thread();
  made.sessionId = "old";
  made.setSessionID("c1", AgentProvider::codex);
  EXPECT_EQ(made.sessionID(AgentProvider::codex), "c1");
  EXPECT_EQ(made.sessionId, "old");
  EXPECT_EQ(made.sessionID(AgentProvider::grok), "old");
  EXPECT_EQ(made.lastProvider, AgentProvider::codex);
  made.setSessionID("g1", AgentProvider::grok);
  EXPECT_EQ(made.sessionId, "g1");
  EXPECT_EQ(made.sessionID(AgentProvider::grok), "g1");
  EXPECT_EQ(made.sessionID(AgentProvider::codex), "c1");
  EXPECT_EQ(made.lastProvider, AgentProvider::grok);
  EXPECT_EQ(made.updatedAt, before) << "opening a session is no change for people";
}

TEST(ChatThread, ModelAndEffortAreRemovedByAbsenceAndByTheWordDefault) {
  using Setter = void (ChatThread::*)(std::optional<std::string>, AgentProvider, Date);
  using Getter = std::optional<std::string> (ChatThread::*)(AgentProvider) const;
  const std::tuple<Setter, Getter, std::string> choices[] = {
      {&ChatThread::setModelID, &ChatThread::modelID, "providerModelIDs"},
      {&ChatThread::setEffort, &ChatThread::effort, "providerEfforts"}};
  for (const auto& [set, get, key] : choices) {
    for (const auto& nothing :
         {std::optional<std::string>(), std::optional<std::string>("default")}) {
      SCOPED_TRACE(key);
      ChatThread made = thread();
      (made.*set)("one", AgentProvider::codex, now);
      (made.*set)("two", AgentProvider::claude, now);
      EXPECT_EQ((made.*get)(AgentProvider::codex), "one");
      EXPECT_EQ((made.*get)(AgentProvider::grok), std::nullopt);
      EXPECT_EQ(made.updatedAt, now);
      (made.*set)(nothing, AgentProvider::codex, now);
      EXPECT_EQ((made.*get)(AgentProvider::codex), std::nullopt);
      EXPECT_EQ((made.*get)(AgentProvider::claude), "two");
      EXPECT_TRUE(jsonOf(made).contains(key));
      (made.*set)(nothing, AgentProvider::claude, now);
      EXPECT_FALSE(jsonOf(made).contains(key)) << "absent rather than empty";
    }
  }
}

TEST(ChatThread, IsNamedAfterTheFirstLineOfItsFirstPrompt) {
  const std::string sixty(60, 'x');
  // A family is one character for people, though it is 25 bytes long.
  const std::string family =
      "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";
  std::string families;
  for (int i = 0; i < 60; ++i) families += family;
  std::string fiftyTwo;
  for (int i = 0; i < 52; ++i) fiftyTwo += family;

  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"New task", "Fix it\nand more", "Fix it"},
      {"New chat", "Hello", "Hello"},
      {"New task", "Fix\r\nit", "Fix"},
      {"New task", "Fix\xE2\x80\xA8it", "Fix"},
      {"New task", "  kept  ", "  kept  "},
      {"New task", sixty, sixty.substr(0, 52)},
      {"New task", families, fiftyTwo},
      {"New task", "\nsecond", ""},
      {"New task", "", ""},
      {"New Task", "x", "New Task"},
      {"Mine", "x", "Mine"},
      {"", "x", ""},
  };
  for (const auto& [title, prompt, expected] : cases) {
    ChatThread made = ChatThread::make(title, before);
    made.nameAfterPrompt(prompt);
    EXPECT_EQ(made.title, expected) << title << " / " << prompt;
  }
}

TEST(ChatThread, MoveLeavesNothingBoundToTheOldFolder) {
  ChatThread made = thread();
  made.setSessionID("g", AgentProvider::grok);
  made.setModelID("m", AgentProvider::grok, before);
  made.importedSession.emplace();
  made.isolatedWorkspacePath = "/w";
  made.workspaceMode = TaskWorkspaceMode::isolated;
  made.comparisonGroupID = Uuid::random();
  made.checkpoints.emplace_back();
  made.draftText = "draft";
  made.draftAttachments = {attachmentAt("docs/./a.md")};
  made.queuedPrompts = {promptWith({attachmentAt("../b.md"), attachmentAt("/abs/../kept")})};
  ChatEntry entry;
  entry.id = "e1";
  entry.attachments = {attachmentAt("c.md")};
  made.entries.append(entry);

  made.prepareForWorkspaceMove("/old/folder", "Old", "New", now);

  EXPECT_EQ(made.draftAttachments[0].path, "/old/folder/docs/a.md");
  EXPECT_EQ(made.queuedPrompts[0].attachments[0].path, "/old/b.md");
  EXPECT_EQ(made.queuedPrompts[0].attachments[1].path, "/abs/../kept") << "absolute paths stay";
  EXPECT_EQ(made.entries[0].attachments[0].path, "/old/folder/c.md");
  EXPECT_EQ(made.sessionID(AgentProvider::grok), std::nullopt);
  EXPECT_EQ(made.providerSessionIDs, std::nullopt);
  EXPECT_EQ(made.importedSession, std::nullopt);
  EXPECT_EQ(made.isolatedWorkspacePath, std::nullopt);
  EXPECT_EQ(made.comparisonGroupID, std::nullopt);
  EXPECT_EQ(made.workspaceMode, TaskWorkspaceMode::shared);
  EXPECT_TRUE(made.checkpoints.empty());
  EXPECT_EQ(made.modelID(AgentProvider::grok), "m") << "a choice is bound to no folder";
  EXPECT_EQ(made.draftText, "draft");
  EXPECT_EQ(made.updatedAt, now);

  ASSERT_EQ(made.entries.size(), 2U);
  const ChatEntry& told = made.entries.back();
  EXPECT_TRUE(Uuid::parse(told.id));
  EXPECT_EQ(told.kind, ChatEntryKind::system);
  EXPECT_EQ(told.title, "Moved to New");
  EXPECT_EQ(told.text,
            "Moved from Old to New. Future turns start a fresh provider session in the new project "
            "folder.");
  EXPECT_EQ(told.createdAt, now);
  EXPECT_EQ(told.provider, std::nullopt);
}

TEST(Workspace, StartsWithOneEmptyConversation) {
  const Workspace project = Workspace::makeProject("/home/me/My Project", now);
  EXPECT_EQ(project.name, "My Project");
  EXPECT_EQ(project.path, "/home/me/My Project");
  ASSERT_EQ(project.threads.size(), 1U);
  EXPECT_EQ(project.threads[0].title, "New task");
  EXPECT_FALSE(project.isPinned);

  Workspace general = Workspace::makeGeneral("/data/General Chats", now);
  EXPECT_EQ(general.name, "General");
  ASSERT_EQ(general.threads.size(), 1U);
  EXPECT_EQ(general.threads[0].title, "New chat");
  EXPECT_EQ(general.thread(general.threads[0].id), &general.threads[0]);
  EXPECT_EQ(general.thread(project.threads[0].id), nullptr);
}

}  // namespace
}  // namespace vantrell
