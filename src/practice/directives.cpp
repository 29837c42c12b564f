#include "practice/directives.h"

#include <fmt/format.h>
#include <optional>

#include "platform/text/text.h"

namespace vantrell::practice {
namespace {

struct Row {
  std::string_view word;
  std::string_view argument;  // as help shows it, with its colon
  std::string_view help;
  bool standsAlone = false;  // a line may hold the word alone
};

// In the order of Directive::Kind.
constexpr Row table[] = {
    {"SAY", ":text", "streams the text; \\n in it is a line feed"},
    {"THINK", ":text", "streams the text as a thought"},
    {"STREAM", ":path", "streams the text of a file of the project in pieces of a few letters"},
    {"PLAN", ":a;b;c", "shows a plan; each directive that follows completes a step"},
    {"ASK", ":question", "asks for permission and says what was answered"},
    {"READ", ":path", "reads a file of the project"},
    {"WRITE", ":path=content", "writes a file of the project, after asking"},
    {"RUN", ":command", "runs a shell command in a terminal, after asking"},
    {"SLOW", ":seconds", "a tick every so many seconds, 60 times or until cancelled"},
    {"FAIL", ":text", "ends the turn with this error"},
    {"REFUSE", ":text", "says the text and ends the turn as a refusal"},
    {"HANG", "", "never answers; cancelling ends it", true},
    {"DIE", "[:signal]", "ends the process within the turn, by a signal if given", true},
    {"FLOOD", ":stdout=bytes|stderr=bytes", "sends so much text in small pieces, or diagnostics"},
    {"GARBAGE", ":half|utf8|text|long=bytes",
     "breaks the protocol; with half a line the process ends"},
    {"CLOSE", ":stdin", "closes its standard input and goes on"},
};

/// The part of a prompt that a person wrote: hosts put other text around it, and mark it by a line
/// "USER REQUEST:". All of the prompt when there is no such line.
std::string_view userRequest(std::string_view prompt) {
  auto request = prompt;
  for (auto line : text::lines(prompt)) {
    if (text::trimmed(line) != "USER REQUEST:") continue;
    request = prompt.substr(static_cast<std::size_t>(line.data() + line.size() - prompt.data()));
  }
  return request;
}

/// The line as a directive; absent when it does not begin with a directive word.
std::optional<Directive> readLine(std::string_view line) {
  for (std::size_t i = 0; i < std::size(table); ++i) {
    if (!line.starts_with(table[i].word)) continue;
    const auto rest = line.substr(table[i].word.size());
    if (rest.empty() ? !table[i].standsAlone : rest.front() != ':') continue;
    return Directive{static_cast<Directive::Kind>(i),
                     std::string(rest.substr(rest.empty() ? 0 : 1))};
  }
  return std::nullopt;
}

}  // namespace

std::string_view wordOf(Directive::Kind kind) {
  return table[static_cast<std::size_t>(kind)].word;
}

std::vector<Directive> readDirectives(std::string_view prompt) {
  std::vector<Directive> directives;
  for (auto line : text::lines(userRequest(prompt))) {
    if (auto directive = readLine(line)) directives.push_back(*std::move(directive));
  }
  return directives;
}

bool asksForHelp(std::string_view prompt) {
  return text::lowercased(text::trimmed(userRequest(prompt))) == "help";
}

std::string directiveHelp() {
  std::string help;
  for (const Row& row : table) {
    help += fmt::format("  {:<35}  {}\n", fmt::format("{}{}", row.word, row.argument), row.help);
  }
  return help;
}

}  // namespace vantrell::practice
