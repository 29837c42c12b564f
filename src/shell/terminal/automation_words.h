// The recipes for a command that only looks, and the word about those that are due while nothing
// runs them. Main queue.
#pragma once

#include <vector>

#include "automations/automation_recipe.h"
#include "shell/terminal/command_context.h"

namespace vantrell::shell {

/// Those of this process where it owns the state, else the stored ones. Says so when their file
/// cannot be read.
std::vector<AutomationRecipe> knownRecipes(CommandContext& context);
/// Says on the error output which of them are due, where no process runs them by itself.
void tellDueRecipes(CommandContext& context, std::vector<AutomationRecipe> recipes);

}  // namespace vantrell::shell
