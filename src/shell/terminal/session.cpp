#include "shell/terminal/session.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>

#include "engine/core/settings.h"
#include "shell/terminal/permission_prompt.h"

namespace vantrell::shell {

Session::Session(CommandContext& context, std::vector<std::unique_ptr<Job>> jobs, Options options)
    : context_(context), options_(std::move(options)) {
  for (auto& job : jobs) jobs_.push_back({.job = std::move(job), .question = nullptr});
  observation_ =
      context.model().changes().observe([this](const ChangeBatch& batch) { changed(batch); });
}

void Session::begin(std::function<void(int)> ended) {
  whenEnded_ = std::move(ended);
  const std::weak_ptr self = weak_from_this();
  signals_ = context_.caller.watchSignals([this](int signal) { handleSignal(signal); });
  context_.console.onBroken([self] {
    if (const auto alive = self.lock()) alive->stop();
  });
  // Back-pressure: a slow reader throttles the agents only.
  context_.console.onFullChanged([this, self](bool isFull) {
    if (self.lock()) context_.model().setReceiving(!isFull);
  });
  context_.main.post([this, self] {
    if (!self.lock() || isStopped_) return;
    for (auto& each : jobs_) each.job->begin();
    hasBegun_ = true;
    lookSoon();
  });
  if (!options_.hearsPrompts) return;
  context_.answers().listen([this](const std::string& line) {
    jobs_.front().job->observer.lineTyped();
    if (!isStopped_ && !hasEnded_) jobs_.front().job->typed(line);
  });
}

// ---- looking ------------------------------------------------------------------------------------

void Session::changed(const ChangeBatch& batch) {
  for (auto& each : jobs_) {
    each.job->changed(batch);
    if (hasEnded_) continue;
    const auto question = each.job->question();
    if (std::exchange(each.question, question) == question) continue;
    // An answer that is on its way must not meet another question.
    if (asking_ == &each) withdraw();
  }
  lookSoon();
}

void Session::lookSoon() {
  if (std::exchange(willLook_, true)) return;
  context_.main.post([this, self = weak_from_this()] {
    if (!self.lock()) return;
    willLook_ = false;
    if (!hasEnded_) look();
  });
}

void Session::look() {
  if (!hasBegun_ && !isStopped_) return;
  askNext();
  bool isAnyStopping = false;
  for (auto& each : jobs_) {
    if (each.hasEnded || (!isStopped_ && !each.job->isAtRest())) continue;
    if (each.job->isStopping()) {
      isAnyStopping = true;
      if (!stopTimer_.isActive()) {
        stopTimer_ = context_.main.after(stopTimeout, [this] { end(); });
      }
    } else if (!std::exchange(each.isSettling, true)) {
      // What the agent said last is on its way through the queue: the words of a process that died
      // come right after the failure of its prompt. And a turn that went well may bring the next
      // prompt of the queue.
      context_.main.post([this, &each, self = weak_from_this()] {
        context_.main.post([this, &each, self] {
          if (self.lock() && !hasEnded_) settle(each);
        });
      });
    }
  }
  if (!isStopped_ && !isAnyStopping) stopTimer_.cancel();
}

void Session::settle(Followed& each) {
  if (isStopped_) {
    const bool waits =
        std::ranges::any_of(jobs_, [](const Followed& other) { return other.job->isStopping(); });
    each.isSettling = false;
    return waits ? lookSoon() : end();
  }
  if (!each.job->isAtRest()) {
    each.isSettling = false;
    return lookSoon();
  }
  each.job->whenHooksAreDone([this, &each, self = weak_from_this()] {
    if (!self.lock() || hasEnded_) return;
    if (each.job->isAtRest()) return jobEnded(each);
    each.isSettling = false;
    lookSoon();
  });
}

void Session::jobEnded(Followed& each) {
  if (std::exchange(each.hasEnded, true)) return;
  if (std::ranges::all_of(jobs_, &Followed::hasEnded)) {
    each.hasEnded = false;
    return end();
  }
  each.job->conclude();
  each.job->tellEnd();
}

// ---- questions ----------------------------------------------------------------------------------

/// One question at a time: the others wait for its answer.
void Session::askNext() {
  if (hasEnded_ || isStopped_ || asking_) return;
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    Followed& next = jobs_[(turn_ + i) % jobs_.size()];
    if (!next.question) continue;
    turn_ = (turn_ + i + 1) % jobs_.size();
    asking_ = &next;
    asked_ = next.question;
    next.job->observer.permissionAsked(*asked_);
    return putQuestion();
  }
}

void Session::withdraw() {
  asking_ = nullptr;
  asked_ = nullptr;
  context_.answers().withdraw();
}

void Session::putQuestion() {
  if (options_.answerKind) {
    if (const auto* option = optionOfKind(*asked_, *options_.answerKind)) return respond(option);
    complain(fmt::format("The agent offers no answer of the kind {}, so it was refused.",
                         *options_.answerKind));
    return refuse();
  }
  if (asked_->options.empty()) {
    complain("The agent offers no answer to choose from, so it was refused.");
    return refuse();
  }
  context_.answers().ask([this](const std::optional<std::string>& line) { readAnswer(line); });
}

void Session::readAnswer(const std::optional<std::string>& line) {
  if (!asking_ || hasEnded_) return;
  if (!line && context_.answers().isTerminal()) return refuse();  // Ctrl-D
  if (!line) {
    complain(
        "There is no answer on standard input, so the request was refused. Answer with a line "
        "there, or use --answer allow_once.");
    return refuse();
  }
  asking_->job->observer.lineTyped();
  const auto answer = shell::readAnswer(*asked_, *line);
  if (answer) return respond(*answer);
  complain(answer.error());
  asking_->job->observer.permissionStillOpen(*asked_);
  context_.answers().ask([this](const std::optional<std::string>& next) { readAnswer(next); });
}

void Session::refuse() {
  asking_->job->observer.permissionAnswered(rejectingOption(*asked_));
  answer(nullptr, Approvals::Answerer::standingOrder);
}

void Session::answer(const PermissionOption* option, Approvals::Answerer answerer) {
  const auto held = asked_;  // holds the option
  Job& job = *asking_->job;
  withdraw();
  const auto taken = job.answer(*held, option, answerer);
  if (!taken) context_.complain(taken.error().sentence);
}

void Session::respond(const PermissionOption* option) {
  const auto answerer = context_.answers().isTerminal() && !options_.answerKind
                            ? Approvals::Answerer::person
                            : Approvals::Answerer::standingOrder;
  const auto& settings = context_.model().settings();
  const auto mode = settings.permissionMode();
  asking_->job->observer.permissionAnswered(option);
  answer(option, answerer);
  if (settings.permissionMode() == mode) return;
  complain(
      "With this answer Full Access is on, for later runs as well. To have agents ask again: "
      "vantrell settings mode ask");
}

void Session::complain(std::string_view text) {
  const bool isNamed = asking_ && !asking_->job->name.empty();
  context_.complain(isNamed ? fmt::format("{}: {}", asking_->job->name, text) : std::string(text));
}

// ---- the end ------------------------------------------------------------------------------------

void Session::handleSignal(int signal) {
  if (context_.beforeComplaint) context_.beforeComplaint();
  if (signal == SIGINT) return stop();
  // The terminal is gone, or somebody wants the program to end now.
  signal_ = signal;
  if (!isStopped_) stop();
  context_.wasAbandoned = true;
  end();
}

void Session::stop() {
  if (hasEnded_) return;
  const auto isOver = [](const Followed& each) { return each.hasEnded || each.isSettling; };
  if (isStopped_ || (hasBegun_ && std::ranges::all_of(jobs_, isOver))) {
    context_.wasAbandoned = true;
    return end();
  }
  isStopped_ = true;
  withdraw();
  for (auto& each : jobs_) {
    // One that only waits for hooks has done its work, and keeps no word of a stop.
    if (!each.hasEnded && (!each.job->isAtRest() || jobs_.size() == 1)) each.job->stop();
    each.isSettling = false;
  }
  lookSoon();
}

void Session::end() {
  if (std::exchange(hasEnded_, true)) return;
  const auto self = shared_from_this();
  withdraw();
  stopTimer_.cancel();
  context_.console.onBroken(nullptr);
  context_.console.onFullChanged(nullptr);
  for (auto& each : jobs_) {
    if (!each.hasEnded) each.job->conclude();
  }
  context_.model().endAllWork();
  context_.model().changes().deliver();
  observation_ = {};
  for (auto& each : jobs_) {
    if (!each.hasEnded) each.job->tellEnd();
  }
  signals_.reset();
  whenEnded_(statusOfEnd());
}

int Session::statusOfEnd() const {
  if (signal_ != 0) return 128 + signal_;
  if (isStopped_) return exitStatus::stopped;
  int status = exitStatus::completed;
  for (const auto& each : jobs_) {
    const int its = each.job->status();
    if (its != exitStatus::completed && status != exitStatus::failed) status = its;
  }
  return status;
}

}  // namespace vantrell::shell
