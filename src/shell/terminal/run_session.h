// One conversation at work, from a prompt until it rests: begins it, answers the agent's questions,
// hears Ctrl-C, follows the prompts that wait in its queue, and knows when it is over. Main queue;
// everything given must outlive it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/vantrell_app.h"
#include "platform/queues/run_loop.h"
#include "shell/terminal/answer_source.h"
#include "shell/terminal/change_feed.h"
#include "shell/terminal/command.h"
#include "shell/terminal/permission_answers.h"

namespace vantrell::shell {

/// Nothing of the conversation is under way. What the program answers by itself begins no run.
bool isAtRest(AppModel& model, const ThreadExecutionKey& key);

class RunSession {
 public:
  struct Parts {
    RunLoop& loop;
    AppModel& model;
    RunObserver& observer;
    AnswerSource& answers;
    /// Says something on standard error.
    std::function<void(std::string_view)> complain;
    /// Answers every question with the option of this kind, when given.
    std::optional<std::string> answerKind;
    /// A person may type further prompts. Not where a pager reads the same keyboard.
    bool hearsPrompts = false;
  };
  RunSession(Parts parts, ThreadExecutionKey key);

  /// Calls `begin`, which sends something, and runs the loop until the conversation rests. Answers
  /// the exit status, that of the last run.
  int run(std::function<void()> begin);
  /// Stops the turn: once and it ends with its runtime, twice and it ends at once.
  void stop();
  /// The user would not wait.
  bool wasAbandoned() const { return abandoned_; }

  /// How long a stopped runtime may take to end its turn.
  static constexpr std::chrono::milliseconds patience{2000};

 private:
  const RunRecord* lastRun() const;
  bool isAtRest() const { return shell::isAtRest(parts_.model, key_); }
  void handleSignal(int signal);
  void typed(std::string_view line);
  void lookAtProgress();
  void settle();
  void tellWhatWaits() const;
  void end();
  int statusOfEnd() const;

  Parts parts_;
  const ThreadExecutionKey key_;
  ChangeFeed feed_;
  std::size_t runsBefore_ = 0;
  PermissionAnswers questions_;
  std::shared_ptr<RunLoop::SignalWatch> signals_;
  Timer farewell_;
  bool hasBegun_ = false;
  bool stopped_ = false;
  bool settling_ = false;
  bool ending_ = false;  // nothing but hooks is waited for
  bool ended_ = false;
  bool abandoned_ = false;
  bool saveFailed_ = false;
  int signal_ = 0;  // the one, other than Ctrl-C, that ended it
};

}  // namespace vantrell::shell
