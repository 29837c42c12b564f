// One turn of one conversation, from its prompt to its end: sends it, answers the agent's
// questions, hears Ctrl-C, and knows when it is over. Main queue; everything given must outlive it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/vantrell_app.h"
#include "platform/run_loop.h"
#include "shell/terminal/answer_source.h"
#include "shell/terminal/change_feed.h"
#include "shell/terminal/command.h"
#include "shell/terminal/permission_answers.h"

namespace vantrell::shell {

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
  };
  RunSession(Parts parts, ThreadExecutionKey key);

  /// Runs the loop until the turn has ended. Answers the exit status.
  int run(const std::string& prompt, const std::vector<ChatAttachment>& attachments);
  /// Stops the turn: once and it ends with its runtime, twice and it ends at once.
  void stop();
  /// The user would not wait.
  bool wasAbandoned() const { return abandoned_; }

  /// How long a stopped runtime may take to end its turn.
  static constexpr std::chrono::milliseconds patience{2000};

 private:
  const RunRecord* currentRun() const;
  void handleSignal(int signal);
  void lookAtProgress();
  void endSoon();
  void end();
  int statusOfEnd() const;

  Parts parts_;
  const ThreadExecutionKey key_;
  ChangeFeed feed_;
  std::size_t runsBefore_ = 0;
  PermissionAnswers questions_;
  std::shared_ptr<RunLoop::SignalWatch> signals_;
  Timer farewell_;
  bool hasSent_ = false;
  bool stopped_ = false;
  bool ending_ = false;
  bool ended_ = false;
  bool abandoned_ = false;
  bool saveFailed_ = false;
  int signal_ = 0;  // the one, other than Ctrl-C, that ended it
};

}  // namespace vantrell::shell
