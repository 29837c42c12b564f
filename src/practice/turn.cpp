#include "practice/turn.h"

#include <utility>

#include "platform/queues/weakly.h"
#include "practice/make_step.h"

namespace vantrell::practice {
namespace {

Directive saying(std::string text) {
  return {.kind = Directive::Kind::say, .text = std::move(text)};
}

/// What a prompt without directives gets.
std::string honestAnswer() {
  return "I am the practice agent that comes with Vantrell. There is no model behind me: nothing "
         "has read your request, and I will not do what it says. What I can do is follow "
         "directives, each at the start of a line. Two examples:\n\n"
         "SAY:Hello\n"
         "RUN:ls -l\n\n"
         "Send \"help\" to see all of them.";
}

std::string helpAnswer() {
  return "Each of these stands at the start of a line, and a prompt may hold several:\n\n```\n" +
         directiveHelp() + "```\n";
}

}  // namespace

Turn::Turn(StepContext context, Finish finish)
    : context_(std::move(context)), finish_(std::move(finish)) {}

void Turn::start(std::string_view prompt) {
  directives_ = readDirectives(prompt);
  if (directives_.empty()) {
    directives_.push_back(saying(asksForHelp(prompt) ? helpAnswer() : honestAnswer()));
  }
  context_.queue.post(weakly(this, [](Turn& turn) { turn.startNextStep(); }));
}

void Turn::cancel() {
  if (step_) step_->abandon();
  finish("cancelled");
}

void Turn::startNextStep() {
  if (!finish_) return;
  if (next_ == directives_.size()) {
    completePlan();
    return finish("end_turn");
  }
  const Directive& directive = directives_[next_++];
  if (directive.kind == Directive::Kind::plan) {
    showPlan(directive.items);
  } else {
    advancePlan();
  }
  // The end of a step is handled on a later turn of the queue: it destroys the step.
  auto ended = weakly(this, [number = next_](Turn& turn, StepEnd end) {
    turn.context_.queue.post(
        weakly(&turn, [number, end = std::move(end)](Turn& late) { late.stepEnded(number, end); }));
  });
  step_ = makeStep(directive, context_, ended);
  step_->start();
}

void Turn::stepEnded(std::size_t number, const StepEnd& end) {
  if (!finish_ || number != next_) return;
  step_.reset();
  switch (end.kind) {
    case StepEnd::Kind::goOn: return startNextStep();
    case StepEnd::Kind::cancelled: return finish("cancelled");
    case StepEnd::Kind::refused: return finish("refusal");
    case StepEnd::Kind::failed:
      return finish(std::unexpected(RpcError{RpcError::internalError, end.error}));
  }
}

void Turn::showPlan(const std::vector<std::string>& items) {
  plan_.clear();
  for (const std::string& item : items) plan_.push_back({.content = item});
  planEntry_ = 0;
  context_.transcript.showPlan(plan_);
}

/// Each directive behind the plan is one of its entries; the last entry stands for all that follow.
void Turn::advancePlan() {
  if (plan_.empty()) return;
  bool isFirst = plan_.front().status == "pending";
  if (!isFirst && planEntry_ + 1 == plan_.size()) return;
  if (!isFirst) plan_[planEntry_++].status = "completed";
  plan_[planEntry_].status = "in_progress";
  context_.transcript.showPlan(plan_);
}

void Turn::completePlan() {
  if (plan_.empty()) return;
  for (PlanEntry& entry : plan_) entry.status = "completed";
  context_.transcript.showPlan(plan_);
}

void Turn::finish(std::expected<std::string, RpcError> result) {
  step_.reset();
  if (auto finish = std::exchange(finish_, {})) finish(std::move(result));
}

}  // namespace vantrell::practice
