#include "records/values/chat_thread.h"

#include <fmt/format.h>
#include <set>

#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::size_t titleLength = 52;  // user-perceived characters

std::optional<std::string> lookUp(const std::optional<ChatThread::PerProvider>& values,
                                  AgentProvider provider) {
  if (!values) return std::nullopt;
  const auto found = values->find(rawText(provider));
  return found == values->end() ? std::nullopt : std::optional(found->second);
}

void store(std::optional<ChatThread::PerProvider>& values, std::optional<std::string> value,
           AgentProvider provider) {
  if (value && *value != "default") {
    if (!values) values.emplace();
    (*values)[std::string(rawText(provider))] = std::move(*value);
  } else if (values) {
    if (const auto found = values->find(rawText(provider)); found != values->end()) {
      values->erase(found);
    }
    if (values->empty()) values.reset();
  }
}

bool isRelative(const ChatAttachment& attachment) {
  return !attachment.path.starts_with('/');
}

void makeAbsolute(std::vector<ChatAttachment>& attachments, std::string_view folder) {
  for (auto& attachment : attachments) {
    if (isRelative(attachment)) attachment.path = files::standardized(attachment.path, folder);
  }
}

}  // namespace

ChatThread ChatThread::make(std::string title, Date now) {
  ChatThread thread;
  thread.id = Uuid::random();
  thread.title = std::move(title);
  thread.createdAt = now;
  thread.updatedAt = now;
  return thread;
}

std::optional<std::string> ChatThread::sessionID(AgentProvider provider) const {
  if (auto session = lookUp(providerSessionIDs, provider)) return session;
  return provider == AgentProvider::grok ? sessionId : std::nullopt;
}

void ChatThread::setSessionID(std::string session, AgentProvider provider) {
  if (!providerSessionIDs) providerSessionIDs.emplace();
  if (provider == AgentProvider::grok) sessionId = session;
  (*providerSessionIDs)[std::string(rawText(provider))] = std::move(session);
  lastProvider = provider;
}

void ChatThread::forgetSessionID(AgentProvider provider) {
  if (provider == AgentProvider::grok) sessionId.reset();
  if (providerSessionIDs) providerSessionIDs->erase(std::string(rawText(provider)));
}

void ChatThread::forgetSessions() {
  sessionId.reset();
  providerSessionIDs.reset();
}

std::optional<std::string> ChatThread::modelID(AgentProvider provider) const {
  return lookUp(providerModelIDs, provider);
}

std::optional<std::string> ChatThread::effort(AgentProvider provider) const {
  return lookUp(providerEfforts, provider);
}

void ChatThread::setModelID(std::optional<std::string> model, AgentProvider provider, Date now) {
  store(providerModelIDs, std::move(model), provider);
  updatedAt = now;
}

void ChatThread::setEffort(std::optional<std::string> effort, AgentProvider provider, Date now) {
  store(providerEfforts, std::move(effort), provider);
  updatedAt = now;
}

void ChatThread::nameAfterPrompt(std::string_view prompt) {
  if (title != newTaskTitle && title != newChatTitle) return;
  title = text::firstCharacters(text::lines(prompt).front(), titleLength);
}

void ChatThread::moveQueuedPromptToFront(const Uuid& promptID, Date now) {
  const auto found = std::ranges::find(queuedPrompts, promptID, &QueuedPrompt::id);
  if (found == queuedPrompts.end() || found == queuedPrompts.begin()) return;
  std::rotate(queuedPrompts.begin(), found, found + 1);
  updatedAt = now;
}

std::vector<std::size_t> ChatThread::resolveAttachments(std::string_view folder) {
  std::vector<std::size_t> changed;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!std::ranges::any_of(entries[i].attachments, isRelative)) continue;
    makeAbsolute(entries[i].attachments, folder);
    changed.push_back(i);
  }
  return changed;
}

std::vector<std::size_t> ChatThread::prepareForWorkspaceMove(std::string_view sourceFolder,
                                                             std::string_view sourceName,
                                                             std::string_view destinationName,
                                                             Date now) {
  std::vector<std::size_t> changed;
  if (entries.isRead()) changed = resolveAttachments(sourceFolder);
  for (auto& prompt : queuedPrompts) makeAbsolute(prompt.attachments, sourceFolder);
  makeAbsolute(draftAttachments, sourceFolder);

  sessionId.reset();
  providerSessionIDs.reset();
  importedSession.reset();
  isolatedWorkspacePath.reset();
  comparisonGroupID.reset();
  workspaceMode = TaskWorkspaceMode::shared;
  checkpoints.clear();

  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::system;
  entry.text = fmt::format(
      "Moved from {} to {}. Future turns start a fresh provider session in the new project folder.",
      sourceName, destinationName);
  entry.title = fmt::format("Moved to {}", destinationName);
  entry.createdAt = now;
  entries.append(std::move(entry));
  updatedAt = now;
  return changed;
}

Workspace Workspace::makeProject(std::string path, Date now) {
  Workspace workspace;
  workspace.id = Uuid::random();
  workspace.name = files::lastComponent(path);
  workspace.path = std::move(path);
  workspace.threads.push_back(ChatThread::make(std::string(newTaskTitle), now));
  return workspace;
}

Workspace Workspace::makeGeneral(std::string path, Date now) {
  Workspace workspace;
  workspace.id = Uuid::random();
  workspace.name = "General";
  workspace.path = std::move(path);
  workspace.threads.push_back(ChatThread::make(std::string(newChatTitle), now));
  return workspace;
}

const ChatThread* Workspace::thread(const Uuid& threadID) const {
  const auto found = std::ranges::find(threads, threadID, &ChatThread::id);
  return found == threads.end() ? nullptr : &*found;
}

ChatThread* Workspace::thread(const Uuid& threadID) {
  const auto found = std::ranges::find(threads, threadID, &ChatThread::id);
  return found == threads.end() ? nullptr : &*found;
}

std::string executionPath(const Workspace& workspace, const ChatThread& thread) {
  const bool isApart = thread.workspaceMode == TaskWorkspaceMode::isolated &&
                       thread.isolatedWorkspacePath &&
                       files::isFolder(*thread.isolatedWorkspacePath);
  return isApart ? *thread.isolatedWorkspacePath : workspace.path;
}

void makeIDsUnique(std::vector<Workspace>& workspaces) {
  std::set<Uuid> seen;
  for (auto& workspace : workspaces) {
    if (!seen.insert(workspace.id).second) workspace.id = Uuid::random();
  }
  seen.clear();
  for (auto& workspace : workspaces) {
    for (auto& thread : workspace.threads) {
      if (!seen.insert(thread.id).second) thread.id = Uuid::random();
    }
  }
}

}  // namespace vantrell
