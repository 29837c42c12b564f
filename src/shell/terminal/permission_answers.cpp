#include "shell/terminal/permission_answers.h"

#include <fmt/format.h>

#include "shell/terminal/permission_prompt.h"

namespace vantrell::shell {

void PermissionAnswers::questionChanged(const std::shared_ptr<const PermissionRequest>& question) {
  question_ = question;
  parts_.answers.withdraw();
  if (!question) return;
  // The engine is at work; it gets the answer when it is done.
  parts_.loop.post([this, question] {
    if (question_ == question && !isClosed_) answerQuestion();
  });
}

void PermissionAnswers::answerQuestion() {
  if (parts_.answerKind) {
    if (const auto* option = optionOfKind(*question_, *parts_.answerKind)) return respond(*option);
    parts_.complain(fmt::format("The agent offers no answer of the kind {}, so it was refused.",
                                *parts_.answerKind));
    return refuse();
  }
  if (question_->options.empty()) {
    parts_.complain("The agent offers no answer to choose from, so it was refused.");
    return refuse();
  }
  parts_.answers.ask([this](const std::optional<std::string>& line) { readAnswerLine(line); });
}

void PermissionAnswers::readAnswerLine(const std::optional<std::string>& line) {
  if (!question_ || isClosed_) return;
  if (!line && parts_.answers.isTerminal()) return refuse();  // Ctrl-D
  if (!line) {
    parts_.complain(
        "There is no answer on standard input, so the request was refused. Answer with a line "
        "there, "
        "or use --answer allow_once.");
    return refuse();
  }
  parts_.observer.lineTyped();
  const auto answer = readAnswer(*question_, *line);
  if (answer) return respond(**answer);
  parts_.complain(answer.error());
  parts_.observer.permissionStillOpen(*question_);
  parts_.answers.ask([this](const std::optional<std::string>& next) { readAnswerLine(next); });
}

void PermissionAnswers::respond(const PermissionOption& option) {
  const auto question = question_;  // holds the option
  using Answerer = Approvals::Answerer;
  const bool isPerson = parts_.answers.isTerminal() && !parts_.answerKind;
  const auto mode = parts_.model.settings.permissionMode();
  parts_.observer.permissionAnswered(&option);
  parts_.model.approvals.respondToPermission(option.id,
                                             isPerson ? Answerer::person : Answerer::standingOrder);
  if (parts_.model.settings.permissionMode() != mode) {
    parts_.complain(
        "With this answer Full Access is on, for later runs as well. To have agents ask again: "
        "vantrell settings mode ask");
  }
}

void PermissionAnswers::refuse() {
  const auto question = question_;
  const PermissionOption* option = optionOfKind(*question, "reject_once");
  if (!option) option = optionOfKind(*question, "reject_always");
  parts_.observer.permissionAnswered(option);
  parts_.model.approvals.rejectPermission();
}

}  // namespace vantrell::shell
