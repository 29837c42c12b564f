#include "shell/terminal/automation_words.h"

#include <fmt/format.h>

#include "app/user_state.h"
#include "automations/automations.h"
#include "records/stores/orchestration_store.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

std::vector<AutomationRecipe> knownRecipes(CommandContext& context) {
  if (context.caller.app) return context.caller.app->automations().automations();
  auto files = UserFolders{}.orOwn().orchestrationForReading();
  auto recipes = AutomationStore::load(files);
  if (const auto* why = files.whyUnreadable(AutomationStore::fileName)) {
    context.complain(
        fmt::format("{} could not be read ({}).", files.url(AutomationStore::fileName), *why));
  }
  return recipes;
}

void tellDueRecipes(CommandContext& context, std::vector<AutomationRecipe> recipes) {
  if (context.caller.app && context.caller.app->runsAutomations()) return;
  std::erase_if(recipes,
                [now = context.main.now()](const auto& each) { return !isDue(each, now); });
  if (recipes.empty()) return;
  context.complain(fmt::format(
      "{} due ({}{}). Automations run while \"vantrell serve\" runs.",
      recipes.size() == 1 ? "1 automation is" : fmt::format("{} automations are", recipes.size()),
      onOneLine(recipes.front().name), recipes.size() > 1 ? ", ..." : ""));
}

}  // namespace vantrell::shell
