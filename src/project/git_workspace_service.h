// Reads the Git picture of a project, without changing anything in it: branch, changed files, diff.
// Static operations; nothing is shared between two readings.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/queues/dispatch.h"
#include "records/values/git_workspace_snapshot.h"

namespace vantrell::GitWorkspaceService {

struct GitAnswer {
  int status = 0;    // as a shell shows it
  std::string text;  // the beginning of standard output, valid UTF-8
};

/// Lines by path. A path whose lines Git does not count is in neither; a file that was renamed
/// counts under its new name.
struct LineCounts {
  std::map<std::string, std::int64_t, std::less<>> additions;
  std::map<std::string, std::int64_t, std::less<>> deletions;
  std::map<std::string, std::string, std::less<>> newNames;  // by the old ones
};

/// Asks /usr/bin/git about the folder. Blocks until it has ended, or is ended by `stop`; all that
/// it writes is read, the first `outputLimit` bytes are kept. Absent when it could not be started
/// or was stopped. Any thread but the main one.
std::optional<GitAnswer> runGit(const std::vector<std::string>& arguments, const std::string& path,
                                std::size_t outputLimit, std::stop_token stop = {});

/// Reads "git diff --numstat -z" and adds what it counts.
void parseNumstat(std::string_view text, LineCounts& counts);
/// Reads "git status --porcelain=v1 -z": the files by path. One that was renamed goes by the name
/// in the second piece of its record, which is the old one.
std::vector<GitChangedFile> parseStatus(std::string_view text, const LineCounts& stats);

/// The picture of the folder. A folder outside Git, or a machine without it, gives
/// GitWorkspaceSnapshot::unavailable(). Blocks for eight processes, one after the other; what comes
/// of one that was stopped is worth nothing. Any thread but the main one.
GitWorkspaceSnapshot read(const std::string& path, std::stop_token stop = {});

/// The same on a thread of `background`; replies on the main queue, which must outlive that, unless
/// it was stopped. Main queue.
void snapshot(const std::string& path, std::stop_token stop, MainQueue& main, Executor& background,
              std::function<void(GitWorkspaceSnapshot)> reply);

}  // namespace vantrell::GitWorkspaceService
