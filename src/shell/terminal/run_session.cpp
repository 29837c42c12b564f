#include "shell/terminal/run_session.h"

#include <csignal>
#include <fmt/format.h>

#include "engine/turns/session_status.h"
#include "platform/text/text.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

bool isAtRest(AppModel& model, const ThreadExecutionKey& key) {
  const auto* execution = model.executions.find(key);
  const ChatThread* thread = model.tree.thread(key);
  const RunRecord* run = thread ? thread->latestRun() : nullptr;
  return !(execution && execution->connectionState.isBusy()) && !(run && isActive(run->status)) &&
         !model.branches->isPreparing(key);
}

RunSession::RunSession(Parts parts, ThreadExecutionKey key)
    : parts_(std::move(parts)),
      key_(key),
      feed_(parts_.model, key, parts_.observer),
      questions_({.loop = parts_.loop,
                  .model = parts_.model,
                  .observer = parts_.observer,
                  .answers = parts_.answers,
                  .complain = parts_.complain,
                  .answerKind = parts_.answerKind}) {
  feed_.onProgress = [this] { lookAtProgress(); };
  feed_.onQuestion = [this](const auto& question) {
    if (question) parts_.observer.permissionAsked(*question);
    questions_.questionChanged(question);
  };
  feed_.onNotice = [this](std::string_view text) { parts_.complain(text); };
  feed_.onSaveFailed = [this](std::string_view reason) {
    if (std::exchange(saveFailed_, true)) return;
    parts_.complain(fmt::format(
        "The conversation could not be saved: {}. Free some space or make the folder writable; "
        "what happens now may be lost.",
        reason));
  };
}

int RunSession::run(std::function<void()> begin) {
  if (const auto* thread = parts_.model.tree.thread(key_)) runsBefore_ = thread->runs.size();
  signals_ = parts_.loop.watchSignals({SIGINT, SIGTERM, SIGHUP},
                                      [this](int signal) { handleSignal(signal); });
  parts_.loop.post([this, begin = std::move(begin)] {
    if (stopped_) return;
    begin();
    hasBegun_ = true;
    lookAtProgress();
  });
  if (parts_.hearsPrompts) {
    parts_.answers.listen([this](const std::string& line) { typed(line); });
  }
  parts_.loop.run();
  signals_.reset();
  return statusOfEnd();
}

const RunRecord* RunSession::lastRun() const {
  const ChatThread* thread = parts_.model.tree.thread(key_);
  return thread && thread->runs.size() > runsBefore_ ? &thread->runs.back() : nullptr;
}

/// A person goes on talking while the agent works.
void RunSession::typed(std::string_view line) {
  parts_.observer.lineTyped();
  const std::string prompt(text::trimmed(text::repaired(line)));
  if (prompt.empty() || stopped_ || ended_ || parts_.model.selection.key() != key_) return;
  if (prompt.find_first_not_of("0123456789") == std::string::npos) {
    return parts_.complain("No question is open, so that number answers nothing.");
  }
  const auto waiting = [this] {
    const ChatThread* thread = parts_.model.tree.thread(key_);
    return thread ? thread->queuedPrompts.size() : 0;
  };
  const std::size_t before = waiting();
  AppModel& model = parts_.model;
  if (model.branches->isPreparing(key_) && !SessionStatusQuery::matches(prompt)) {
    // Sent now, it would work in the project's folder until the worktree is there.
    model.queue.enqueuePrompt(prompt, {}, key_);
  } else {
    model.driver->send(prompt, {});
  }
  if (waiting() > before) parts_.observer.promptQueued(waiting());
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
  if (ended_ || (!hasBegun_ && !stopped_)) return;
  const RunRecord* run = lastRun();
  const bool wasCancelled = run && run->status == RunRecordStatus::cancelled;
  if (stopped_ || (wasCancelled && isAtRest())) {
    const auto* execution = parts_.model.executions.find(key_);
    if (!execution || !execution->client || execution->unansweredPrompts == 0) return settle();
    // The runtime may still tell how its tools ended.
    if (!farewell_.isActive()) farewell_ = parts_.loop.after(patience, [this] { end(); });
    return;
  }
  if (isAtRest()) return settle();
  ending_ = false;
  farewell_.cancel();
}

/// What the runtime said last is on its way through the queue: the words of a process that died
/// come right behind the failure of its prompt. And a turn that went well is not yet done when it
/// says so: it may bring the next prompt of the queue.
void RunSession::settle() {
  if (std::exchange(settling_, true)) return;
  parts_.loop.post([this] {
    parts_.loop.post([this] {
      settling_ = false;
      if (ended_) return;
      if (stopped_) return end();
      if (!isAtRest() || std::exchange(ending_, true)) return;
      // Those behind the task have begun by now; they would end with this program.
      parts_.model.hooks->whenDone(key_, [this] {
        if (isAtRest()) end();
      });
    });
  });
}

void RunSession::end() {
  if (std::exchange(ended_, true)) return;
  questions_.close();
  farewell_.cancel();
  parts_.model.endAllWork();
  parts_.observer.ended(lastRun());
  if (signal_ == 0) tellWhatWaits();
  parts_.loop.quit();
}

void RunSession::tellWhatWaits() const {
  const ChatThread* thread = parts_.model.tree.thread(key_);
  const std::size_t waiting = thread ? thread->queuedPrompts.size() : 0;
  if (waiting == 0) return;
  parts_.complain(
      fmt::format("{} in the queue. To send {}: vantrell queue run {}",
                  waiting == 1 ? "1 prompt waits" : fmt::format("{} prompts wait", waiting),
                  waiting == 1 ? "it" : "them", shortID(key_.threadID)));
}

int RunSession::statusOfEnd() const {
  const RunRecord* run = lastRun();
  if (signal_ != 0) return 128 + signal_;
  if (stopped_ || (run && run->status == RunRecordStatus::cancelled)) return exitStatus::stopped;
  if (run && run->status != RunRecordStatus::completed) return exitStatus::failed;
  return saveFailed_ ? exitStatus::failed : exitStatus::completed;
}

}  // namespace vantrell::shell
