// One picture or film, from its prompt until it lies in the library: sends the prompt, answers the
// agent's questions, hears Ctrl-C, and knows when it is over. Main queue; everything given must
// outlive it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/vantrell_app.h"
#include "platform/queues/run_loop.h"
#include "shell/terminal/imagine_printer.h"
#include "shell/terminal/permission_answers.h"

namespace vantrell::shell {

class ImagineSession {
 public:
  struct Parts {
    RunLoop& loop;
    AppModel& model;
    ImagineObserver& observer;
    AnswerSource& answers;
    /// Says something on standard error.
    std::function<void(std::string_view)> complain;
    /// Answers every question with the option of this kind, when given.
    std::optional<std::string> answerKind;
  };
  explicit ImagineSession(Parts parts);

  /// Runs the loop until it is over and the client has ended. Answers the exit status.
  int run(const std::string& prompt, ImagineKind kind);
  /// Stops it: once and it ends with the agent's turn, twice and it ends at once.
  void stop();
  /// The user would not wait.
  bool wasAbandoned() const { return wasAbandoned_; }

  /// How long a stopped agent may take to end its turn.
  static constexpr std::chrono::milliseconds patience{2000};

 private:
  void changed(const Change& change);
  void look();
  void lookForItems();
  void lookForQuestion();
  void handleSignal(int signal);
  void endSoon();
  void end();
  std::string copyFailure() const;
  ImagineEnd howItEnded() const;

  Parts parts_;
  PermissionAnswers questions_;
  Changes::Observation observation_;
  std::shared_ptr<RunLoop::SignalWatch> signals_;
  std::shared_ptr<const PermissionRequest> question_;
  Timer farewell_;
  std::size_t itemsBefore_;
  std::size_t itemsTold_;
  ConnectionState::Kind state_ = ConnectionState::Kind::idle;
  std::string progress_;
  bool hasBegun_ = false;
  bool isStopped_ = false;
  bool isEnding_ = false;
  bool hasEnded_ = false;
  bool wasAbandoned_ = false;
  bool hasSaveFailed_ = false;
  int signal_ = 0;  // the one, other than Ctrl-C, that ended it
  int status_ = 0;
};

}  // namespace vantrell::shell
