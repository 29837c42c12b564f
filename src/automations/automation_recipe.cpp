#include "automations/automation_recipe.h"

#include <fmt/format.h>

#include "records/values/git_workspace_snapshot.h"

namespace vantrell {

namespace {
constexpr std::string_view safetyPreamble =
    "AUTOMATION SAFETY: This scheduled task must ask before destructive or privileged actions.";
}

std::optional<Seconds> intervalOf(AutomationTrigger trigger) {
  switch (trigger) {
    case AutomationTrigger::manual: break;
    case AutomationTrigger::hourly: return std::chrono::hours(1);
    case AutomationTrigger::daily: return std::chrono::days(1);
    case AutomationTrigger::weekly: return std::chrono::weeks(1);
    case AutomationTrigger::projectChange: return std::chrono::minutes(5);
  }
  return std::nullopt;
}

std::optional<Date> nextRunAfter(AutomationTrigger trigger, Date now) {
  const auto interval = intervalOf(trigger);
  return interval ? std::optional(now + *interval) : std::nullopt;
}

bool isDue(const AutomationRecipe& recipe, Date now) {
  return recipe.enabled && recipe.trigger != AutomationTrigger::manual &&
         recipe.nextRunAt.value_or(Date::distantPast()) <= now;
}

// A time that lies ahead without a run in the future is one that the user has put into the file.
bool followClock(AutomationRecipe& recipe, Date now) {
  const auto latest = nextRunAfter(recipe.trigger, now);
  if (!latest || !recipe.nextRunAt || *recipe.nextRunAt <= *latest) return false;
  const bool hasRunAhead = recipe.lastRunAt && *recipe.lastRunAt > now;
  if (!hasRunAhead && recipe.trigger != AutomationTrigger::projectChange) return false;
  recipe.nextRunAt = latest;
  return true;
}

std::string projectFingerprint(const GitWorkspaceSnapshot& snapshot) {
  std::string text = snapshot.branch;
  for (const auto& file : snapshot.files) {
    text += fmt::format("|{}:{}:{}:{}", file.path, file.status, file.additions.value_or(0),
                        file.deletions.value_or(0));
  }
  return text;
}

std::string threadTitle(const AutomationRecipe& recipe) {
  return "Automation \u00B7 " + recipe.name;
}

std::string promptWithPreamble(const AutomationRecipe& recipe) {
  if (!recipe.requiresApproval) return recipe.prompt;
  return fmt::format("{}\n\n{}", safetyPreamble, recipe.prompt);
}

}  // namespace vantrell
