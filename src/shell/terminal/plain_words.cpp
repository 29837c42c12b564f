#include "shell/terminal/plain_words.h"

#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>

#include "shell/terminal/commands.h"

namespace vantrell::shell {

namespace {

// Formatting straight to a stream throws when the stream is closed.
void put(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

/// What stands behind the program's name in a line that can be typed; in a sentence it is another
/// word.
bool startsACommand(std::string_view rest) {
  if (rest.starts_with("--")) return true;
  const std::string_view word = rest.substr(0, rest.find_first_of(" \n\"'.,;)"));
  return word == "help" || word == "COMMAND" ||
         std::ranges::find(allCommands(), word, &Command::name) != allCommands().end();
}

}  // namespace

std::string asTyped(std::string_view text) {
  std::string typed(text);
  const char* command = std::getenv("VANTRELL_COMMAND");
  if (!command || !*command) return typed;
  constexpr std::string_view usual = "vantrell ";
  for (auto at = typed.find(usual); at != std::string::npos; at = typed.find(usual, at + 1)) {
    if (startsACommand(std::string_view(typed).substr(at + usual.size()))) {
      typed.replace(at, usual.size() - 1, command);
    }
  }
  return typed;
}

void tell(std::string_view text) {
  put(stdout, asTyped(text));
}

void complain(std::string_view text) {
  put(stderr, fmt::format("vantrell: {}\n", asTyped(text)));
}

}  // namespace vantrell::shell
