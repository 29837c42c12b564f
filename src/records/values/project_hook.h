// A program of a project's own that runs around a task. Kept in the project's context profile.
// Plain values.
#pragma once

#include <string>
#include <string_view>

#include "platform/values/uuid.h"
#include "records/values/raw_text.h"

namespace vantrell {

struct ChatEntry;

/// When a hook runs: before the prompt goes out, after a task ended well, after it failed.
enum class ProjectHookEvent { beforeTask, afterTask, taskFailed };

constexpr auto rawTexts(ProjectHookEvent) {
  return std::to_array<std::string_view>({"beforeTask", "afterTask", "taskFailed"});
}

/// How the title of a conversation's entry about a hook begins; its path follows.
inline constexpr std::string_view hookEntryTitle = "Hook · ";
/// Whether the entry tells of a hook: what it says is for people, where tool calls have their
/// input.
bool isHookEntry(const ChatEntry& entry);

struct ProjectHook {
  Uuid id;
  ProjectHookEvent event = ProjectHookEvent::beforeTask;
  std::string relativeExecutablePath;  // to the folder that the task works in
  bool enabled = true;

  bool operator==(const ProjectHook&) const = default;
};

}  // namespace vantrell
