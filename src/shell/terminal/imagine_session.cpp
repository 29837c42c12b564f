#include "shell/terminal/imagine_session.h"

#include <csignal>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

ImagineSession::ImagineSession(Parts parts)
    : parts_(std::move(parts)),
      questions_({.loop = parts_.loop,
                  .model = parts_.model,
                  .observer = parts_.observer,
                  .answers = parts_.answers,
                  .complain = parts_.complain,
                  .answerKind = parts_.answerKind}),
      observation_(parts_.model.changes.observe([this](const Change& change) { changed(change); })),
      itemsBefore_(parts_.model.imagine->imagineItems().size()),
      itemsTold_(itemsBefore_) {}

int ImagineSession::run(const std::string& prompt, ImagineKind kind) {
  signals_ = parts_.loop.watchSignals({SIGINT, SIGTERM, SIGHUP},
                                      [this](int signal) { handleSignal(signal); });
  parts_.loop.post([this, prompt, kind] {
    if (hasEnded_) return;
    hasBegun_ = true;
    if (!isStopped_) parts_.model.imagine->generateImagine(prompt, kind);
    look();
  });
  parts_.loop.run();
  signals_.reset();
  return status_;
}

void ImagineSession::changed(const Change& change) {
  if (hasEnded_) return;
  switch (change.kind) {
    case Change::Kind::noticeRaised: return parts_.complain(change.text);
    case Change::Kind::saveFailed:
      if (std::exchange(hasSaveFailed_, true)) return;
      return parts_.complain(fmt::format(
          "The library's list could not be saved: {}. Free some space or make the folder writable; "
          "the file itself is there.",
          change.text));
    case Change::Kind::imagineChanged:
    case Change::Kind::executionPublished: return look();
    default: return;
  }
}

void ImagineSession::look() {
  if (!hasBegun_ || hasEnded_) return;
  const ImagineController& desk = *parts_.model.imagine;
  const auto state = desk.imagineState().kind;
  if (state != state_ || desk.imagineProgress() != progress_) {
    state_ = state;
    progress_ = desk.imagineProgress();
    parts_.observer.progressed(state_, progress_);
  }
  lookForItems();
  lookForQuestion();
  if (isEnding_ || desk.imagineState().isBusy()) return;
  // A stopped agent may still end what it does; and what was found is copied to its end.
  if (!desk.hasUnfinishedWork()) return endSoon();
  if (isStopped_ && !farewell_.isActive()) {
    farewell_ = parts_.loop.after(patience, [this] { end(); });
  }
}

void ImagineSession::lookForItems() {
  const auto& items = parts_.model.imagine->imagineItems();
  while (itemsTold_ < items.size()) {
    ++itemsTold_;
    parts_.observer.itemAdded(items[items.size() - itemsTold_]);
  }
}

void ImagineSession::lookForQuestion() {
  const auto& mirror = parts_.model.executions.mirror();
  const bool isOurs = mirror.permissionOwner == PermissionOwner::imagine;
  const auto question = isOurs ? mirror.permissionRequest : nullptr;
  if (question == question_) return;
  question_ = question;
  if (question) parts_.observer.permissionAsked(*question);
  questions_.questionChanged(question);
}

// ---- the end ------------------------------------------------------------------------------------

void ImagineSession::handleSignal(int signal) {
  parts_.observer.interrupted();
  if (signal == SIGINT) return stop();
  // The terminal is gone, or somebody wants the program to end now.
  signal_ = signal;
  isStopped_ = wasAbandoned_ = true;
  parts_.model.imagine->cancelImagine();
  end();
}

void ImagineSession::stop() {
  if (hasEnded_) return;
  if (std::exchange(isStopped_, true) || isEnding_) {
    wasAbandoned_ = true;
    return end();
  }
  parts_.model.imagine->cancelImagine();
  look();
}

/// What the agent said last is on its way through the queue: the words of a process that died come
/// right behind the failure of its prompt.
void ImagineSession::endSoon() {
  if (std::exchange(isEnding_, true)) return;
  questions_.close();
  parts_.loop.post([this] { parts_.loop.post([this] { end(); }); });
}

void ImagineSession::end() {
  if (std::exchange(hasEnded_, true)) return;
  isEnding_ = true;
  questions_.close();
  farewell_.cancel();
  const ImagineEnd how = howItEnded();
  using enum ImagineEnd::Kind;
  status_ = how.kind == stopped  ? exitStatus::stopped
            : how.kind == failed ? exitStatus::failed
            : hasSaveFailed_     ? exitStatus::failed
                                 : exitStatus::completed;
  if (signal_ != 0) status_ = 128 + signal_;
  if (how.kind == completed && !parts_.model.imagine->imagineCopyError().empty()) {
    parts_.complain(copyFailure());
  }
  parts_.model.endAllWork();
  parts_.observer.ended(how);
  parts_.loop.quit();
}

std::string ImagineSession::copyFailure() const {
  return fmt::format(
      "A file that Grok made is not in the library: {}. It is where Grok has put it.",
      parts_.model.imagine->imagineCopyError());
}

ImagineEnd ImagineSession::howItEnded() const {
  using enum ImagineEnd::Kind;
  const ImagineController& desk = *parts_.model.imagine;
  if (isStopped_) return {stopped, "Stopped", {}};
  if (desk.imagineState().kind != ConnectionState::Kind::ready) {
    return {failed,
            parts_.model.executions.mirror().errorMessage.value_or(desk.imagineState().text),
            {}};
  }
  if (itemsTold_ > itemsBefore_) return {completed, desk.imagineProgress(), {}};
  if (!desk.imagineCopyError().empty()) return {failed, copyFailure(), {}};
  // Some agents end a turn that failed for them as if it had gone well.
  const std::string answer(text::trimmed(desk.imagineAnswer()));
  return {failed,
          answer.empty()
              ? "Grok ended its turn without naming a file that is there, and without a word."
              : "Grok ended its turn without naming a file that is there. It said:",
          answer};
}

}  // namespace vantrell::shell
