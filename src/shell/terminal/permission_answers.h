// Answers an agent's questions in the terminal: by a standing order, by lines that are typed or
// piped in, and where there is no answer by a refusal. Main queue; everything given must outlive
// it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/app_model.h"
#include "platform/queues/run_loop.h"
#include "shell/terminal/answer_source.h"
#include "shell/terminal/run_observer.h"

namespace vantrell::shell {

class PermissionAnswers {
 public:
  struct Parts {
    RunLoop& loop;
    AppModel& model;
    QuestionObserver& observer;
    AnswerSource& answers;
    /// Says something on standard error.
    std::function<void(std::string_view)> complain;
    /// Answers every question with the option of this kind, when given.
    std::optional<std::string> answerKind;
  };
  explicit PermissionAnswers(Parts parts) : parts_(std::move(parts)) {}

  /// The question that is shown in the mirror now, or null. May be called in the midst of the
  /// engine's work.
  void questionChanged(const std::shared_ptr<const PermissionRequest>& question);
  /// Nothing is answered any more.
  void close() { isClosed_ = true; }

 private:
  void answerQuestion();
  void readAnswerLine(const std::optional<std::string>& line);
  void respond(const PermissionOption& option);
  void refuse();

  Parts parts_;
  std::shared_ptr<const PermissionRequest> question_;
  bool isClosed_ = false;
};

}  // namespace vantrell::shell
