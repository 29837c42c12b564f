// Why a checkpoint, a restore or a worktree could not be made. A value.
#pragma once

#include <cerrno>
#include <expected>
#include <string>
#include <string_view>
#include <utility>

namespace vantrell {

struct TaskSafetyError {
  enum class Case { commandFailed, notRepository, invalidArchive, filesFailed };

  Case kind = Case::commandFailed;
  /// What git printed, what the system said of a file, or why we refused.
  std::string message;
  /// Files of the project may have been changed before it failed.
  bool mayHaveChangedFiles = false;

  static TaskSafetyError commandFailed(std::string message) {
    return {.kind = Case::commandFailed, .message = std::move(message)};
  }
  static TaskSafetyError notRepository() { return {.kind = Case::notRepository, .message = {}}; }
  static TaskSafetyError invalidArchive() { return {.kind = Case::invalidArchive, .message = {}}; }
  static TaskSafetyError filesFailed(std::string message) {
    return {.kind = Case::filesFailed, .message = std::move(message)};
  }
  /// "Could not read /x: No such file or directory", by errno.
  static TaskSafetyError filesFailed(std::string_view what, std::string_view path,
                                     int code = errno);

  /// For the user.
  std::string description() const {
    switch (kind) {
      case Case::notRepository: return "This project is not a Git repository.";
      case Case::invalidArchive:
        return "The checkpoint archive is missing or is not owned by vantrell.";
      default: return message;
    }
  }
};

/// How a system entry begins that says why there is no checkpoint: for the user, not for an agent.
inline constexpr std::string_view missingCheckpointText =
    "No checkpoint was taken before this prompt.";

template <typename T = void>
using TaskSafetyResult = std::expected<T, TaskSafetyError>;

}  // namespace vantrell
