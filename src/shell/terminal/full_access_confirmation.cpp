#include "shell/terminal/full_access_confirmation.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "runtimes/catalog/permission_mode_texts.h"

namespace vantrell::shell {

namespace {
void put(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}
}  // namespace

Person Person::atTheTerminal() {
  return {.isPresent = terminal::isTerminal(STDIN_FILENO) && terminal::isTerminal(STDERR_FILENO),
          .show = put,
          .readLine = [] {
            terminal::discardTypedAhead(STDIN_FILENO);
            return terminal::readLine(STDIN_FILENO);
          }};
}

std::expected<void, UsageError> confirmFullAccess(const Person& person) {
  namespace words = FullAccessConfirmation;
  if (!person.isPresent) {
    return usageError(
        "Full Access is only turned on by a person who confirms it at a terminal. Nothing was "
        "done. The other modes are ask and auto.");
  }
  person.show(fmt::format("{}\n{}\nType \"{}\" to confirm; anything else means \"{}\": ",
                          words::title, words::text, words::enable, words::cancel));
  const auto line = person.readLine();
  if (!line) person.show("\n");
  if (line && text::trimmed(*line) == words::enable) return {};
  return usageError("Full Access was not confirmed. Nothing was done.");
}

}  // namespace vantrell::shell
