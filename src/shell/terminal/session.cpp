#include "shell/terminal/session.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>

#include "engine/core/settings.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/terminal_text.h"
#include "views/approval_card.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t detailLinesShown = 20;

/// Title, detail (bounded) and the numbered options, a line each.
std::string permissionText(const PermissionRequest& request, const TerminalStyle& style) {
  const auto card = views::approvalCard(request);
  std::string text = fmt::format("{} {}\n", style.yellow("?"), style.bold(card.title));
  for (const auto& each : boundedLines(request.detail, detailLinesShown)) {
    text += fmt::format("    {}\n", style.dim(each));
  }
  for (std::size_t i = 0; i < card.options.size(); ++i) {
    text += fmt::format("  {}  {}\n", style.bold(std::to_string(i + 1)), card.options[i].name);
  }
  return text;
}

}  // namespace

std::weak_ptr<Session> Session::begin(CommandContext& context,
                                      std::vector<std::unique_ptr<Job>> jobs, Options options,
                                      std::function<void(int)> ended) {
  const std::shared_ptr<Session> session(
      new Session(context, std::move(jobs), std::move(options), std::move(ended)));
  context.keep(session);
  if (!session->options_.isElsewhere) context.acceptCommands();
  session->begin();
  return session;
}

Session::Session(CommandContext& context, std::vector<std::unique_ptr<Job>> jobs, Options options,
                 std::function<void(int)> ended)
    : context_(context),
      options_(std::move(options)),
      isTyped_(context.answers().isTerminal() && !options_.answerKind),
      whenEnded_(std::move(ended)) {
  for (auto& job : jobs) jobs_.push_back({.job = std::move(job), .question = nullptr});
  if (options_.isElsewhere) return;
  observation_ =
      context.model().changes().observe([this](const ChangeBatch& batch) { changed(batch); });
}

void Session::begin() {
  const std::weak_ptr self = weak_from_this();
  signals_ = context_.caller.watchSignals([this](int signal) { handleSignal(signal); });
  context_.console.onBroken([self] {
    if (const auto alive = self.lock()) alive->stop();
  });
  // Back-pressure: a slow reader throttles the agents only.
  context_.console.onFullChanged([this, self](bool isFull) {
    if (!self.lock()) return;
    for (auto& each : jobs_) each.job->setReceiving(!isFull);
  });
  context_.main.post([this, self] {
    if (!self.lock() || isStopped_) return;
    for (auto& each : jobs_) each.job->begin();
    hasBegun_ = true;
    lookSoon();
  });
  if (!options_.hearsPrompts) return;
  context_.answers().listen([this](const std::string& line) {
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
    showQuestion();
    if (options_.answerKind) {
      if (const auto* option = views::optionOfKind(*asked_, *options_.answerKind)) {
        return answer(option);
      }
      return refuse(fmt::format("The agent offers no answer of the kind {}, so it was refused.",
                                *options_.answerKind));
    }
    if (!asked_->options.empty()) return awaitLine();
    return refuse("The agent offers no answer to choose from, so it was refused.");
  }
}

void Session::showQuestion() {
  Job& job = *asking_->job;
  if (context_.isJson()) return context_.console.write(permissionEvent(*asked_, job.threadID));
  job.makeRoom();
  const auto& style = context_.style();
  if (!job.name.empty()) {
    context_.console.write(fmt::format("\n{}\n", style.bold(job.name + " asks:")));
  }
  context_.console.write(permissionText(*asked_, style));
}

void Session::awaitLine() {
  context_.answers().ask([this](const std::optional<std::string>& line) { readLine(line); });
  if (!isTyped_ || context_.isJson()) return;
  const auto count = asked_->options.size();
  const auto& name = asking_->job->name;
  context_.console.ask(
      context_.style().bold(fmt::format("{}{}Your answer ({}): ", name, name.empty() ? "" : ": ",
                                        count < 2 ? "1" : fmt::format("1-{}", count))));
}

void Session::readLine(const std::optional<std::string>& line) {
  if (!asking_ || hasEnded_) return;
  if (!line && isTyped_) return answer(nullptr);  // Ctrl-D
  if (!line) {
    return refuse(
        "There is no answer on standard input, so the request was refused. Answer with a line "
        "there, or use --answer allow_once.");
  }
  if (isTyped_) context_.console.lineWasTyped();
  const auto chosen = views::readAnswer(*asked_, *line);
  if (chosen) return answer(*chosen);
  complain(chosen.error());
  awaitLine();
}

void Session::withdraw() {
  asking_ = nullptr;
  asked_ = nullptr;
  context_.answers().withdraw();
  context_.console.withdrawQuestion();
}

void Session::refuse(std::string_view why) {
  complain(why);
  answer(nullptr);
}

void Session::answer(const PermissionOption* option) {
  const auto held = asked_;  // holds the option
  Job& job = *asking_->job;
  withdraw();
  if (!context_.isJson()) {
    const auto* said = option ? option : rejectingOption(*held);
    const auto& style = context_.style();
    context_.console.write(style.dim(fmt::format("{}{}→ {}", job.name, job.name.empty() ? "" : " ",
                                                 said ? onOneLine(said->name) : "Refused")) +
                           "\n");
  }
  const auto mode = permissionMode();
  const bool isPersons = option && isTyped_;
  const auto taken = job.answer(
      *held, option, isPersons ? Approvals::Answerer::person : Approvals::Answerer::standingOrder);
  if (!taken) context_.complain(taken.error().sentence);
  if (permissionMode() == mode) return;
  context_.complain(
      "With this answer Full Access is on, for later runs as well. To have agents ask again: "
      "vantrell settings mode ask");
}

/// nullopt where another computer has it.
std::optional<GrokPermissionMode> Session::permissionMode() const {
  if (options_.isElsewhere) return std::nullopt;
  return context_.model().settings().permissionMode();
}

void Session::complain(std::string_view text) {
  const bool isNamed = asking_ && !asking_->job->name.empty();
  context_.complain(isNamed ? fmt::format("{}: {}", asking_->job->name, text) : std::string(text));
}

// ---- the end ------------------------------------------------------------------------------------

void Session::handleSignal(int signal) {
  context_.console.wipeKey();
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
  // A process of its own ends all; where others work as well, each ends its own.
  const bool isHere = !options_.isElsewhere;
  if (isHere && !context_.sharesState()) context_.model().endAllWork();
  for (auto& each : jobs_) {
    each.job->setReceiving(true);
    each.job->endWork();
  }
  if (isHere) context_.model().changes().deliver();
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
