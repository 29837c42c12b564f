#include "shell/terminal/comparison_session.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>

#include "shell/terminal/command.h"
#include "shell/terminal/run_session.h"

namespace vantrell::shell {

ComparisonSession::Running::Running(ComparisonSession& session, const Side& which)
    : side(which),
      feed(session.parts_.model, which.key, which.observer),
      questions({.loop = session.parts_.loop,
                 .model = session.parts_.model,
                 .observer = which.observer,
                 .answers = session.parts_.answers,
                 .complain =
                     [&session, name = which.name](std::string_view text) {
                       session.parts_.complain(fmt::format("{}: {}", name, text));
                     },
                 .answerKind = session.parts_.answerKind}) {
  feed.onQuestion = [this, &session](const auto& now) {
    question = now;
    // An answer that is on its way must not meet the question behind it.
    if (session.shown_ && session.shown_ != now && &session.sides_[session.asking_] == this) {
      questions.questionChanged(nullptr);
    }
    // The engine is at work, and to show a question selects its conversation.
    session.parts_.loop.post([&session] { session.askNext(); });
  };
}

ComparisonSession::ComparisonSession(Parts parts, const std::vector<Side>& sides)
    : parts_(std::move(parts)),
      observation_(
          parts_.model.changes.observe([this](const Change& change) { changed(change); })) {
  for (const auto& side : sides) sides_.emplace_back(*this, side);
}

int ComparisonSession::run() {
  signals_ = parts_.loop.watchSignals({SIGINT, SIGTERM, SIGHUP},
                                      [this](int signal) { handleSignal(signal); });
  lookSoon();
  parts_.loop.run();
  signals_.reset();
  return statusOfEnd();
}

// ---- looking ------------------------------------------------------------------------------------

void ComparisonSession::changed(const Change& change) {
  if (ended_) return;
  if (change.kind == Change::Kind::noticeRaised) return parts_.complain(change.text);
  if (change.kind == Change::Kind::saveFailed && !std::exchange(saveFailed_, true)) {
    return parts_.complain(fmt::format(
        "The conversations could not be saved: {}. Free some space or make the folder writable; "
        "what happens now may be lost.",
        change.text));
  }
  for (auto& each : sides_) {
    const bool isNews =
        change.kind == Change::Kind::entryAdded && change.conversation == each.side.key;
    if (isNews && !std::exchange(each.isIntroduced, true)) parts_.introduce(each.side);
  }
  lookSoon();
}

void ComparisonSession::lookSoon() {
  if (std::exchange(willLook_, true)) return;
  // Two hops: the words of a process that died come right behind the failure of its prompt.
  parts_.loop.post([this] {
    parts_.loop.post([this] {
      willLook_ = false;
      if (!ended_) look();
    });
  });
}

void ComparisonSession::look() {
  if (stopped_) {
    for (const auto& each : sides_) {
      const auto* execution = parts_.model.executions.find(each.side.key);
      if (execution && execution->client && execution->unansweredPrompts > 0) {
        // Of what is not selected, the end of a stopped turn is not told.
        return select(each.side.key);
      }
    }
    return end();
  }
  for (auto& each : sides_) {
    const bool rests = isAtRest(parts_.model, each.side.key);
    if (!rests) each.isSettled = false;
    if (rests && !each.hasEnded && !std::exchange(each.isSettled, true)) settle(each);
  }
}

/// Hooks behind a task would end with this program.
void ComparisonSession::settle(Running& running) {
  parts_.model.hooks->whenDone(running.side.key, [this, &running] {
    if (isAtRest(parts_.model, running.side.key)) ended(running);
  });
}

void ComparisonSession::ended(Running& running) {
  if (ended_ || std::exchange(running.hasEnded, true)) return;
  running.side.observer.ended(runOf(running));
  if (std::ranges::all_of(sides_, &Running::hasEnded)) end();
}

const RunRecord* ComparisonSession::runOf(const Running& running) const {
  return parts_.model.tree.latestRun(running.side.key);
}

// ---- questions ----------------------------------------------------------------------------------

/// Shows one question at a time, since the answer goes to the selected conversation. Who has asked
/// waits for the other.
void ComparisonSession::askNext() {
  if (ended_ || stopped_) return;
  if (shown_ && sides_[asking_].question == shown_) return;
  if (std::exchange(shown_, nullptr)) sides_[asking_].questions.questionChanged(nullptr);
  for (std::size_t i = 1; i <= sides_.size(); ++i) {
    const std::size_t place = (asking_ + i) % sides_.size();
    if (!sides_[place].question) continue;
    Running& next = sides_[place];
    asking_ = place;
    shown_ = next.question;
    select(next.side.key);
    next.side.observer.permissionAsked(*shown_);
    next.questions.questionChanged(shown_);
    return;
  }
}

void ComparisonSession::select(const ThreadExecutionKey& key) {
  parts_.model.operations.selectThread(key.threadID, key.workspaceID);
}

// ---- the end ------------------------------------------------------------------------------------

void ComparisonSession::handleSignal(int signal) {
  if (signal == SIGINT) {
    sides_.front().side.observer.interrupted();
    return stop();
  }
  signal_ = signal;
  if (!stopped_) stop();
  abandoned_ = true;
  end();
}

void ComparisonSession::stop() {
  if (ended_) return;
  if (std::exchange(stopped_, true)) {
    abandoned_ = true;
    return end();
  }
  for (auto& each : sides_) {
    each.questions.close();
    // One that only waits for hooks has done its work, and keeps no word of a stop.
    if (each.hasEnded || isAtRest(parts_.model, each.side.key)) continue;
    select(each.side.key);
    parts_.model.driver->stopWorking();
  }
  // The runtimes may still tell how their tools ended.
  farewell_ = parts_.loop.after(RunSession::patience, [this] { end(); });
  lookSoon();
}

void ComparisonSession::end() {
  if (std::exchange(ended_, true)) return;
  farewell_.cancel();
  for (auto& each : sides_) each.questions.close();
  select(sides_.front().side.key);
  parts_.model.endAllWork();
  for (auto& each : sides_) {
    if (!std::exchange(each.hasEnded, true)) each.side.observer.ended(runOf(each));
  }
  parts_.loop.quit();
}

int ComparisonSession::statusOfEnd() const {
  if (signal_ != 0) return 128 + signal_;
  if (stopped_) return exitStatus::stopped;
  const bool wentWell = std::ranges::all_of(sides_, [this](const Running& each) {
    const RunRecord* run = runOf(each);
    return run && run->status == RunRecordStatus::completed;
  });
  return wentWell && !saveFailed_ ? exitStatus::completed : exitStatus::failed;
}

}  // namespace vantrell::shell
