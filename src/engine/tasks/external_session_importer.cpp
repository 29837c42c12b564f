#include "engine/tasks/external_session_importer.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <utility>

#include "engine/core/workspace_tree.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

namespace {

using Known = std::map<std::pair<AgentProvider, std::string>, ThreadExecutionKey>;

/// The conversations by the sessions that they stand for; of several the first.
Known conversationsBySession(const WorkspaceTree& tree) {
  Known known;
  for (const auto& workspace : tree.workspaces()) {
    for (const auto& thread : workspace.threads) {
      for (const auto provider : allAgentProviders) {
        auto id = thread.sessionID(provider);
        if (id) known.try_emplace({provider, *std::move(id)}, workspace.id, thread.id);
      }
    }
  }
  return known;
}

ImportedSessionReference referenceTo(const ExternalProviderSession& session, Date importedAt,
                                     Date now) {
  return {session.provider, session.sessionID, session.sourceLabel,
          session.activity, importedAt,        now};
}

std::string importMessage(const ExternalProviderSession& session) {
  return fmt::format(
      "Imported from {}. Open this task to continue the provider's existing session; vantrell will "
      "attach only when you use it.{}",
      session.sourceLabel,
      session.activity == ExternalSessionActivity::active
          ? " It may still be active in another app, so avoid sending from both apps at the same "
            "time."
          : "");
}

/// Whether that was news.
bool note(const ExternalProviderSession& session, const ThreadExecutionKey& key,
          WorkspaceTree& tree, Date now) {
  const ChatThread& thread = *tree.thread(key);
  const auto& old = thread.importedSession;
  const bool isLater = session.updatedAt > thread.updatedAt;
  if (old && old->activity == session.activity && old->sourceLabel == session.sourceLabel &&
      !isLater) {
    tree.noteImportedSessionSeen(key, now);
    return false;
  }
  tree.updateThread(key, [&](ChatThread& changed) {
    const auto last = changed.lastProvider;
    changed.setSessionID(session.sessionID, session.provider);
    // That a program still knows a session does not make it the one that goes on with the task.
    if (last) changed.lastProvider = last;
    const Date importedAt = changed.importedSession ? changed.importedSession->importedAt : now;
    changed.importedSession = referenceTo(session, importedAt, now);
    if (isLater) changed.updatedAt = session.updatedAt;
  });
  return true;
}

ChatThread conversationFor(const ExternalProviderSession& session, Date now) {
  auto thread =
      ChatThread::make(ExternalSessionImporter::cleanedTitle(session.title, session.provider), now);
  thread.setSessionID(session.sessionID, session.provider);
  thread.importedSession = referenceTo(session, now, now);
  thread.createdAt = session.createdAt;
  thread.updatedAt = session.updatedAt;
  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::system;
  entry.text = importMessage(session);
  entry.provider = session.provider;
  entry.createdAt = session.updatedAt;
  thread.entries.append(std::move(entry));
  return thread;
}

/// The project in this folder, made where there is none.
Uuid projectAt(const std::string& path, WorkspaceTree& tree, Date now) {
  const auto& workspaces = tree.workspaces();
  const auto found = std::ranges::find(workspaces, path, [](const Workspace& workspace) {
    return files::standardized(workspace.path);
  });
  if (found != workspaces.end()) return found->id;
  auto made = Workspace::makeProject(path, now);
  const Uuid id = made.id;
  tree.addWorkspace(std::move(made));
  return id;
}

}  // namespace

ExternalSessionImportSummary ExternalSessionImporter::merge(
    std::vector<ExternalProviderSession> sessions, WorkspaceTree& tree, Date now) {
  std::ranges::stable_sort(sessions, std::ranges::greater(), &ExternalProviderSession::updatedAt);
  auto known = conversationsBySession(tree);
  ExternalSessionImportSummary summary;
  for (const auto& session : sessions) {
    const auto [place, isNew] = known.try_emplace({session.provider, session.sessionID});
    if (!isNew) {
      summary.updatedCount += note(session, place->second, tree, now) ? 1 : 0;
      continue;
    }
    const Uuid project = projectAt(files::standardized(session.workspacePath), tree, now);
    auto thread = conversationFor(session, now);
    place->second = {project, thread.id};
    tree.addThread(std::move(thread), project);
    ++summary.importedCount;
  }
  return summary;
}

std::string ExternalSessionImporter::cleanedTitle(std::string_view title, AgentProvider provider) {
  constexpr std::size_t longestTitle = 88;           // characters
  constexpr std::size_t enough = longestTitle * 32;  // bytes, of which no title needs more
  std::string cleaned;
  std::string_view rest = text::trimmed(title);
  bool endsWord = false;
  while (!rest.empty() && cleaned.size() < enough) {
    const auto next = text::firstCharacters(rest, 1);
    const bool isSpace = text::trimmed(next).empty();
    if (!isSpace && std::exchange(endsWord, false)) cleaned += ' ';
    if (!isSpace) cleaned += next;
    endsWord |= isSpace;
    rest.remove_prefix(next.size());
  }
  if (cleaned.empty()) {
    return ProviderRegistry::descriptor(provider).shortLabel + " session";
  }
  return std::string(text::firstCharacters(cleaned, longestTitle));
}

}  // namespace vantrell
