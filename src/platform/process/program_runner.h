// Runs programs for their output: to their end, within a time limit, with a bound on what is
// kept of their output. Owned by the object that wants the output; when it is destroyed, what still
// runs is ended and nothing completes any more. Main queue; the programs run and start elsewhere.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/process/process.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

class ProgramRunner : public std::enable_shared_from_this<ProgramRunner> {
 public:
  struct Program {
    /// Called off the main queue, when the program is started; what they say on standard input does
    /// not count. Of standard error is kept what is merged into the output.
    std::function<ProcessOptions()> options;
    /// Counted from run(); nullopt: no limit.
    std::optional<Duration> limit;
    /// On standard input, which then ends. nullopt: the null device.
    std::optional<std::string> input;
  };
  struct Outcome {
    /// The beginning of what it wrote; or what the system said when it could not be started.
    std::string output;
    /// As a shell shows it; -1 when it was not started or did not end within the limit.
    int status = -1;
    bool hasRunOut = false;  // of time
  };
  using Completion = std::function<void(Outcome)>;

  static constexpr std::size_t keptOutput = 1 << 20;  // bytes

  /// Both must outlive it; the pool need not outlive the programs.
  ProgramRunner(MainQueue& main, BackgroundPool& pool) : main_(main), pool_(pool) {}
  ~ProgramRunner();
  ProgramRunner(const ProgramRunner&) = delete;
  ProgramRunner& operator=(const ProgramRunner&) = delete;

  /// Completes exactly once, not within this call. What a program leaves in its group when it ends
  /// lives on when its options say so, until this object ends.
  void run(Program program, Completion completion);

 private:
  struct Child;
  struct Run {
    std::shared_ptr<Child> child;
    Completion completion;
    Timer limit;
  };
  void ended(int id, Outcome outcome);

  MainQueue& main_;
  BackgroundPool& pool_;
  int nextID_ = 0;
  std::map<int, Run> runs_;
  std::vector<std::shared_ptr<Child>> survivors_;  // whose groups may live on
};

}  // namespace vantrell
