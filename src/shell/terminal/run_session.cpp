#include "shell/terminal/run_session.h"

#include <csignal>
#include <fmt/format.h>

#include "shell/terminal/permission_prompt.h"

namespace vantrell::shell {

RunSession::RunSession(Parts parts, ThreadExecutionKey key)
    : parts_(std::move(parts)), key_(key), feed_(parts_.model, key, parts_.observer) {
  feed_.onProgress = [this] { lookAtProgress(); };
  feed_.onQuestion = [this](const auto& question) { questionChanged(question); };
  feed_.onNotice = [this](std::string_view text) { parts_.complain(text); };
  feed_.onSaveFailed = [this](std::string_view reason) {
    if (std::exchange(saveFailed_, true)) return;
    parts_.complain(fmt::format(
        "The conversation could not be saved: {}. Free some space or make the folder writable; "
        "what happens now may be lost.",
        reason));
  };
}

int RunSession::run(const std::string& prompt, const std::vector<ChatAttachment>& attachments) {
  if (const auto* thread = parts_.model.tree.thread(key_)) runsBefore_ = thread->runs.size();
  signals_ = parts_.loop.watchSignals({SIGINT, SIGTERM, SIGHUP},
                                      [this](int signal) { handleSignal(signal); });
  parts_.loop.post([this, prompt, attachments] {
    if (stopped_) return;
    parts_.model.driver->send(prompt, attachments);
    hasSent_ = true;
    lookAtProgress();
  });
  parts_.loop.run();
  signals_.reset();
  return statusOfEnd();
}

const RunRecord* RunSession::currentRun() const {
  const ChatThread* thread = parts_.model.tree.thread(key_);
  return thread && thread->runs.size() > runsBefore_ ? &thread->runs[runsBefore_] : nullptr;
}

// ---- the end ------------------------------------------------------------------------------------

void RunSession::handleSignal(int signal) {
  if (signal == SIGINT) {
    parts_.observer.interrupted();
    return stop();
  }
  // The terminal is gone, or somebody wants the program to end now.
  signal_ = signal;
  if (!std::exchange(stopped_, true)) parts_.model.driver->stopWorking();
  abandoned_ = true;
  end();
}

void RunSession::stop() {
  if (ended_) return;
  if (stopped_ || ending_) {
    abandoned_ = true;
    return end();
  }
  stopped_ = true;
  parts_.model.driver->stopWorking();
  lookAtProgress();
}

void RunSession::lookAtProgress() {
  if (ending_ || (!hasSent_ && !stopped_)) return;
  const RunRecord* run = currentRun();
  const auto* execution = parts_.model.executions.find(key_);
  const bool wasCancelled = run && run->status == RunRecordStatus::cancelled;
  if (stopped_ || wasCancelled) {
    if (!execution || !execution->client || execution->unansweredPrompts == 0) return endSoon();
    // The runtime may still tell how its tools ended.
    if (!farewell_.isActive()) farewell_ = parts_.loop.after(patience, [this] { end(); });
    return;
  }
  if (run) {
    if (!isActive(run->status)) endSoon();
    return;
  }
  // A question that the program answers itself begins no run.
  if (!execution || !execution->connectionState.isBusy()) endSoon();
}

/// What the runtime said last is on its way through the queue: the words of a process that died
/// come right behind the failure of its prompt.
void RunSession::endSoon() {
  if (std::exchange(ending_, true)) return;
  parts_.loop.post([this] {
    parts_.loop.post([this] {
      if (stopped_) return end();
      // Those behind the task have begun by now; they would end with this program.
      parts_.model.hooks->whenDone(key_, [this] { end(); });
    });
  });
}

void RunSession::end() {
  if (std::exchange(ended_, true)) return;
  ending_ = true;
  farewell_.cancel();
  parts_.model.endAllWork();
  parts_.observer.ended(currentRun());
  parts_.loop.quit();
}

int RunSession::statusOfEnd() const {
  const RunRecord* run = currentRun();
  if (signal_ != 0) return 128 + signal_;
  if (stopped_ || (run && run->status == RunRecordStatus::cancelled)) return exitStatus::stopped;
  if (run && run->status != RunRecordStatus::completed) return exitStatus::failed;
  return saveFailed_ ? exitStatus::failed : exitStatus::completed;
}

// ---- questions ----------------------------------------------------------------------------------

void RunSession::questionChanged(const std::shared_ptr<const PermissionRequest>& question) {
  question_ = question;
  parts_.answers.withdraw();
  if (!question) return;
  // The engine is at work; it gets the answer when it is done.
  parts_.loop.post([this, question] {
    if (question_ == question && !ending_) answerQuestion();
  });
}

void RunSession::answerQuestion() {
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

void RunSession::readAnswerLine(const std::optional<std::string>& line) {
  if (!question_ || ending_) return;
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

void RunSession::respond(const PermissionOption& option) {
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

void RunSession::refuse() {
  const auto question = question_;
  const PermissionOption* option = optionOfKind(*question, "reject_once");
  if (!option) option = optionOfKind(*question, "reject_always");
  parts_.observer.permissionAnswered(option);
  parts_.model.approvals.rejectPermission();
}

}  // namespace vantrell::shell
