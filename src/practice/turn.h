// One prompt and what follows from it: reads the directives, runs them one after the other, and
// tells once how the turn ended. Main queue; the agent drops it after the end.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "practice/step.h"

namespace vantrell::practice {

class Turn : public std::enable_shared_from_this<Turn> {
 public:
  /// The protocol's stop reason ("end_turn", "cancelled", "refusal"), or an error for the prompt.
  using Finish = std::function<void(std::expected<std::string, RpcError>)>;

  Turn(StepContext context, Finish finish);

  /// Never finishes before it has returned.
  void start(std::string_view prompt);
  /// Ends the turn as cancelled, whatever it waits for.
  void cancel();

 private:
  void startNextStep();
  void stepEnded(std::size_t number, const StepEnd& end);
  void showPlan(const std::vector<std::string>& items);
  void advancePlan();
  void completePlan();
  void finish(std::expected<std::string, RpcError> result);

  StepContext context_;
  Finish finish_;
  std::vector<Directive> directives_;
  std::size_t next_ = 0;  // index of the directive that comes next
  std::shared_ptr<Step> step_;
  std::vector<PlanEntry> plan_;
  std::size_t planEntry_ = 0;  // the one that is or will be in progress
};

}  // namespace vantrell::practice
