// What commands that change tasks and projects have in common: the opened program, the question
// before something is lost for good, and the words of a refusal. Blocks; main thread.
#pragma once

#include <functional>

#include "app/app_model.h"
#include "shell/terminal/command.h"
#include "shell/terminal/full_access_confirmation.h"
#include "shell/terminal/standard_output.h"

namespace vantrell::shell {

/// For the commands that take back what they do.
inline constexpr CommandOption offOption{"--off", "", "take it back"};
inline constexpr CommandOption yesOption{"--yes", "", "do it without being asked"};
/// For the commands that print the tasks that they changed.
inline constexpr CommandOption changedJsonOption{
    "--json", "", "for scripts: what was changed, one JSON object a line"};

struct ChangeContext {
  AppModel& model;
  StandardOutput& out;

  const std::vector<Workspace>& workspaces() const { return model.tree.workspaces(); }
};

/// Opens the program, changes something through its operations, and answers the exit status. What
/// the operations refused to do is told on standard error, and the status is exitStatus::failed.
int changeTasks(const std::function<std::expected<int, UsageError>(ChangeContext&)>& change);

/// True when `--yes` is given or the user at the terminal agrees. Where nobody can be asked, the
/// error says what to do.
std::expected<bool, UsageError> confirmed(const CommandArguments& arguments,
                                          std::string_view question,
                                          const Person& person = Person::atTheTerminal());

}  // namespace vantrell::shell
