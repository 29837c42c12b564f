// A few workspaces for tests of commands that only look.
#pragma once

#include <string>
#include <vector>

#include "records/values/chat_thread.h"

namespace vantrell::tests {

/// A task whose ID begins with these eight characters.
inline ChatThread taskWithID(const std::string& beginning, std::string title,
                             Date updatedAt = Date(0)) {
  ChatThread thread = ChatThread::make(std::move(title), updatedAt);
  thread.id = *Uuid::parse(beginning + "-1111-4111-8111-111111111111");
  return thread;
}

inline ChatEntry entryWith(std::string id, std::string text,
                           ChatEntryKind kind = ChatEntryKind::assistant) {
  ChatEntry entry;
  entry.id = std::move(id);
  entry.kind = kind;
  entry.text = std::move(text);
  return entry;
}

inline Workspace projectWith(std::string path, std::vector<ChatThread> threads) {
  Workspace workspace = Workspace::makeProject(std::move(path), Date(0));
  workspace.threads = std::move(threads);
  return workspace;
}

}  // namespace vantrell::tests
