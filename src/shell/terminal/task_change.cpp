#include "shell/terminal/task_change.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

int changeTasks(const std::function<std::expected<int, UsageError>(ChangeContext&)>& change) {
  return withApp({}, [&](RunLoop&, VantrellApp& app) {
    StandardOutput out;
    ChangeContext context{app.model(), out};
    const auto status = change(context);
    if (!status) return refuse(status.error());
    const auto& refusal = app.model().executions.mirror().errorMessage;
    if (refusal) complain(*refusal);
    return out.finish(refusal ? exitStatus::failed : *status);
  });
}

std::expected<bool, UsageError> confirmed(const CommandArguments& arguments,
                                          std::string_view question, const Person& person) {
  if (arguments.has(yesOption.name)) return true;
  if (!person.isPresent) {
    return usageError(
        "There is no terminal to ask at. Give --yes to do it without being asked. Nothing was "
        "changed.");
  }
  person.show(fmt::format("{} [y/N] ", question));
  const auto line = person.readLine();
  if (!line) person.show("\n");
  const std::string answer = text::lowercased(text::trimmed(line.value_or("")));
  if (answer == "y" || answer == "yes") return true;
  complain("Nothing was changed.");
  return false;
}

}  // namespace vantrell::shell
