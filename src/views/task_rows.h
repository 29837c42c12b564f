// Lists of tasks and projects as a person reads them: which ones, in which order, in which state.
// Titles and names are made fit to be shown; records keep the raw ones. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/connection_state.h"
#include "records/values/chat_thread.h"

namespace vantrell::views {

/// How a task stands, by the shape and colour that it is shown with.
enum class TaskState {
  fresh,  // has no runs yet
  starting,
  working,
  waiting,  // for the user's answer
  completed,
  failed,
  stopped,
  interrupted
};
TaskState taskState(RunRecordStatus status);
/// What is known of a task beyond its record, where it is open in this process.
struct LiveState {
  ConnectionState::Kind connection = ConnectionState::Kind::idle;
  bool isAsking = false;  // a question is open, which need not belong to a run
};
/// By the latest run and, where there is one, the live state.
TaskState taskState(const ChatThread& thread, const std::optional<LiveState>& live = {});
/// "working", "waits for you", "completed".
std::string_view word(TaskState state);
/// The user is to look at it: it waits, failed or was interrupted.
bool wantsAttention(TaskState state);

/// The provider of the latest run, else the one that last opened a session; absent for a new task.
std::optional<AgentProvider> providerOf(const ChatThread& thread);
/// On one line; "(untitled)" for an empty one.
std::string shownTitle(std::string_view title);
/// As much of an ID as tells tasks apart: 8 characters.
std::string shortID(const Uuid& id);

struct TaskRow {
  ThreadExecutionKey key;
  std::string title, project;
  TaskState state = TaskState::fresh;
  std::optional<AgentProvider> provider;
  Date updatedAt;
  bool isPinned = false;
  bool isArchived = false;
  std::size_t queuedPrompts = 0;
  bool hasDraft = false;

  bool operator==(const TaskRow&) const = default;
};
TaskRow taskRow(const Workspace& workspace, const ChatThread& thread,
                const std::optional<LiveState>& live = {});

enum class ArchivedTasks { leftOut, only, included };
struct ListedTask {
  const Workspace* workspace;
  const ChatThread* thread;
};
/// Pinned ones first, then the newest first; of one project, where it is given. The records must
/// outlive the result.
std::vector<ListedTask> listedTasks(const std::vector<Workspace>& workspaces,
                                    ArchivedTasks archived, std::optional<Uuid> project);

struct ProjectRow {
  Uuid id;
  std::string name;
  std::string folder;  // the home folder as "~"
  bool isGeneral = false;
  bool isPinned = false;
  std::size_t tasks = 0;  // not archived
  std::size_t archivedTasks = 0;
  std::optional<Date> updatedAt;  // of its newest task

  bool operator==(const ProjectRow&) const = default;
};
ProjectRow projectRow(const Workspace& workspace, bool isGeneral);
/// General first, then the pinned ones; else in the order in which they were added.
std::vector<ProjectRow> projectRows(const std::vector<Workspace>& workspaces);

/// A path with the home folder as "~".
std::string withTilde(const std::string& path);

}  // namespace vantrell::views
