#include "platform/process/login_shell.h"

#include <algorithm>
#include <fmt/format.h>
#include <mutex>

#include "platform/files/files.h"
#include "platform/files/user_entry.h"
#include "platform/process/program_runner.h"
#include "platform/text/text.h"
#include "platform/values/uuid.h"

namespace vantrell::loginShell {

namespace {

struct Kept {
  std::mutex mutex;
  std::vector<std::string> folders;
};
Kept& kept() {
  static Kept kept;
  return kept;
}

/// Prints PATH as programs get it, joined with colons, whatever the shell makes of it inside. Every
/// usual shell understands the two words and the semicolon.
std::string commandWith(const std::string& marker) {
  return fmt::format("echo {0}; /usr/bin/printenv PATH; echo {0}", marker);
}

}  // namespace

Question usersOwn() {
  Question question{.shell = {}, .environment = currentEnvironment()};
  const auto named = question.environment.find("SHELL");
  if (named != question.environment.end()) question.shell = named->second;
  if (!files::isExecutable(question.shell))
    question.shell = userEntry().value_or(UserEntry{}).shell;
  return question;
}

void readFolders(ProgramRunner& runner, const Question& question,
                 std::function<void(std::vector<std::string>)> completion) {
  const std::string marker = "vantrell-" + Uuid::random().text();
  runner.run({.options =
                  [question, marker] {
                    ProcessOptions options;
                    options.executable = question.shell;
                    // Some set PATH for login shells alone, some for interactive ones alone.
                    options.arguments = {"-l", "-i", "-c", commandWith(marker)};
                    options.environment = question.environment;
                    // Traces of start files would stand between the lines.
                    options.standardError = ProcessOptions::Output::null;
                    options.ownSession = true;
                    return options;
                  },
              .limit = question.limit,
              .input = std::nullopt},
             [marker, completion = std::move(completion)](const ProgramRunner::Outcome& outcome) {
               // Also of a shell that ran out of time: it may have said its PATH before.
               completion(foldersBetween(marker, outcome.output));
             });
}

std::vector<std::string> keptFolders() {
  const std::scoped_lock lock(kept().mutex);
  return kept().folders;
}

void keepFolders(std::vector<std::string> folders) {
  const std::scoped_lock lock(kept().mutex);
  kept().folders = std::move(folders);
}

std::vector<std::string> foldersBetween(std::string_view marker, std::string_view output) {
  const auto lines = text::split(output, '\n');
  const auto isMarker = [marker](std::string_view line) { return text::trimmed(line) == marker; };
  const auto begin = std::ranges::find_if(lines, isMarker);
  if (begin == lines.end()) return {};
  const auto end = std::find_if(begin + 1, lines.end(), isMarker);
  // One line, or PATH is nothing to go by.
  if (end == lines.end() || end - begin != 2) return {};
  std::vector<std::string> folders;
  for (const auto entry : text::split(text::trimmed(begin[1]), ':')) {
    // A relative one would mean the project's folder.
    const bool isKnown = std::ranges::find(folders, entry) != folders.end();
    if (entry.starts_with('/') && !isKnown) folders.emplace_back(entry);
  }
  return folders;
}

}  // namespace vantrell::loginShell
