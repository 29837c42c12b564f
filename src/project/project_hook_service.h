// Runs one hook of a project: an executable file inside the folder that the task works in, without
// arguments, with a time limit, never through a shell. A hook is given the application's own
// environment. When this object is destroyed, what still runs is ended and nothing replies any
// more. Main queue; hooks run elsewhere.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/queues/dispatch.h"
#include "records/values/project_hook.h"

namespace vantrell {

struct ProjectHookOutcome {
  std::string text;        // what the conversation shows: the output, or why there is none
  bool succeeded = false;  // it ran and ended with status 0
};

class ProjectHookService : public std::enable_shared_from_this<ProjectHookService> {
 public:
  using Reply = std::function<void(ProjectHookOutcome)>;

  /// From the start of the program; then its process group is terminated, and what has not ended
  /// after Process::defaultGrace is killed.
  static constexpr Duration timeLimit = std::chrono::seconds(30);
  /// Bytes of output that are kept, the last ones: a failure is told at the end.
  static constexpr std::size_t keptOutput = std::size_t{64} * 1024;

  /// Both must outlive it; the pool need not outlive the programs.
  ProjectHookService(MainQueue& main, BackgroundPool& pool) : main_(main), pool_(pool) {}
  ~ProjectHookService();
  ProjectHookService(const ProjectHookService&) = delete;
  ProjectHookService& operator=(const ProjectHookService&) = delete;

  /// Replies exactly once, not within this call, when the hook has ended. What it leaves in its
  /// process group ends with it; what has left that group and holds its output open delays nothing.
  /// A file that lies outside the folder is not started, nor one to which a symbolic link leads
  /// that lies there.
  void run(const ProjectHook& hook, const std::string& workspacePath, Reply reply);

 private:
  struct Run;
  struct Entry {
    std::shared_ptr<Run> run;
    Reply reply;
    Timer limit;
  };
  void started(int id);
  void ended(int id, ProjectHookOutcome outcome);

  MainQueue& main_;
  BackgroundPool& pool_;
  int nextID_ = 0;
  std::map<int, Entry> runs_;
};

}  // namespace vantrell
