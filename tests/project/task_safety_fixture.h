// A repository with a commit, and checkpoints of it in a folder of their own.
#pragma once

#include <gtest/gtest.h>

#include "platform/text/text.h"
#include "project/task_safety_service.h"
#include "support/git_repository.h"

namespace vantrell::tests {

class TaskSafetyFixture : public testing::Test {
 protected:
  TaskSafetyFixture() {
    repository.file("a.txt", "one\n");
    repository.file("part/b.txt", "one\n");
    repository.file(".gitignore", "*.log\n");
    repository.commit();
  }

  TaskSafetyResult<TaskSafetyService::Captured> capture(
      const std::string& folder, WorkspaceCheckpointKind kind = WorkspaceCheckpointKind::manual) {
    return service.captureCheckpoint({.workspaceID = workspace,
                                      .threadID = thread,
                                      .workspacePath = folder,
                                      .label = "Here",
                                      .kind = kind,
                                      .entryCount = 3,
                                      .sourceMessageID = "m",
                                      .now = Date(5)});
  }
  WorkspaceCheckpoint taken() {
    auto captured = capture(repository.path());
    EXPECT_TRUE(captured) << captured.error().description();
    return captured ? captured->checkpoint : WorkspaceCheckpoint();
  }
  /// Goes to the checkpoint; returns the one that leads back.
  WorkspaceCheckpoint restoreTo(const WorkspaceCheckpoint& checkpoint) {
    auto recovery = taken();
    const auto restored = service.restore(checkpoint, repository.path(), &recovery);
    EXPECT_TRUE(restored) << restored.error().description();
    notes = restored ? text::joined(*restored, "\n") : "";
    return recovery;
  }
  /// Why it is refused, before anything is touched.
  std::string refusalOf(const WorkspaceCheckpoint& checkpoint) {
    const auto recovery = taken();
    const std::string before = status();
    const auto restored = service.restore(checkpoint, repository.path(), &recovery);
    EXPECT_FALSE(restored);
    if (restored) return {};
    EXPECT_FALSE(restored.error().mayHaveChangedFiles);
    EXPECT_EQ(status(), before);
    return restored.error().description();
  }
  std::string status() const {
    return repository.git({"status", "--porcelain=v1", "--untracked-files=all"});
  }
  std::string content(std::string_view name) const {
    return TemporaryFolder::contentOf(repository / name);
  }
  std::size_t archives() const {
    std::error_code code;
    return static_cast<std::size_t>(std::distance(
        std::filesystem::directory_iterator(support / ("TaskSafety/checkpoints/" + ids), code),
        {}));
  }

  std::string notes;  // of the latest restore
  GitRepository repository;
  TemporaryFolder support;
  TaskSafetyService service{support.path()};
  const Uuid workspace = *Uuid::parse("AAAAAAAA-0000-4000-8000-000000000001");
  const Uuid thread = *Uuid::parse("BBBBBBBB-0000-4000-8000-000000000002");
  const std::string ids =
      "aaaaaaaa-0000-4000-8000-000000000001/bbbbbbbb-0000-4000-8000-000000000002";
};

}  // namespace vantrell::tests
