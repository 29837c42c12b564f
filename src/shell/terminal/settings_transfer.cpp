#include "shell/terminal/settings_transfer.h"

#include <cstdio>
#include <fmt/format.h>
#include <iostream>
#include <iterator>

#include "app/user_state.h"
#include "platform/queues/run_loop.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

int failed(std::string_view text) {
  complain(text);
  return exitStatus::failed;
}

std::string counted(std::size_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

std::string countsOf(std::size_t threads, std::size_t workspaces) {
  return fmt::format("{} in {}", counted(threads, "conversation"), counted(workspaces, "project"));
}

/// What an import would replace, for the user to decide; absent where there is nothing.
std::optional<std::string> questionBefore(WorkspaceStore& store, const std::string& file) {
  const auto present = store.peek();
  const std::string end = fmt::format("by those of \"{}\"? The present ones are kept in a file.",
                                      onOneLine(file == "-" ? "standard input" : file));
  if (!present) return fmt::format("{}. Replace what is there {}", present.error(), end);
  if (present->workspaces.empty()) return std::nullopt;
  std::string list;
  std::size_t threads = 0;
  for (const auto& workspace : present->workspaces) {
    list += fmt::format("  {} ({})\n", onOneLine(workspace.name),
                        counted(workspace.threads.size(), "conversation"));
    threads += workspace.threads.size();
  }
  return fmt::format("Replace {}\n{}{}", countsOf(threads, present->workspaces.size()), list, end);
}

std::expected<std::string, std::string> readDocument(const std::string& file) {
  if (file == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  }
  auto content = files::read(files::standardized(file));
  if (!content) return std::unexpected(std::move(content.error().description));
  return std::move(*content);
}

}  // namespace

int exportConversations(const VantrellOptions& options, const std::optional<std::string>& file) {
  const auto folders = UserFolders{options.supportFolder, options.configFolder}.made();
  if (!folders) return failed(folders.error());
  const auto defaults = UserDefaults::open(folders->defaultsPath());
  if (!defaults) return failed(defaults.error());
  const auto exported = WorkspaceStore(**defaults, folders->support).exportDocument();
  if (!exported) {
    return failed(fmt::format("{}. Nothing was exported.", exported.error()));
  }
  if (exported->notice) complain(*exported->notice);
  const std::string& document = exported->document;
  if (file && *file != "-") {
    const auto written = files::writeAtomically(files::standardized(*file), document, 0600);
    if (!written) return failed(written.error().description);
    tell(fmt::format("{} written to \"{}\".\n", countsOf(exported->threads, exported->workspaces),
                     onOneLine(*file)));
    return exitStatus::completed;
  }
  const bool isWritten =
      std::fwrite(document.data(), 1, document.size(), stdout) == document.size() &&
      std::fputc('\n', stdout) != EOF && std::fflush(stdout) == 0;
  return isWritten ? exitStatus::completed
                   : failed("The conversations could not be written to standard output.");
}

int importConversations(const VantrellOptions& options, const std::string& file,
                        const CommandArguments& arguments) {
  const auto document = readDocument(file);
  if (!document) return failed(fmt::format("{}. Nothing was changed.", document.error()));
  const Date now = RunLoop().now();
  const auto state = UserState::open({options.supportFolder, options.configFolder}, now);
  if (!state) return failed(state.error());
  if (state->notice) complain(*state->notice);
  WorkspaceStore store(*state->defaults, state->folders.support);
  if (const auto question = questionBefore(store, file)) {
    const auto mayDo = confirmed(arguments, *question);
    if (!mayDo) return refuse(mayDo.error());
    if (!*mayDo) return exitStatus::stopped;
  }
  const auto imported = store.importDocument(*document, now);
  if (store.notice()) complain(*store.notice());
  if (!imported) return failed(fmt::format("{}. Nothing was imported.", imported.error()));
  tell(fmt::format("{} imported. The conversations of before are in \"{}\".\n",
                   countsOf(imported->threads, imported->workspaces), imported->keptAside));
  if (imported->withoutFolder > 0) {
    complain(fmt::format(
        "{} of the imported projects {} no folder on this machine. The next start of Vantrell "
        "drops them, and keeps their conversations aside: make the folders before, at the same "
        "paths.",
        imported->withoutFolder, imported->withoutFolder == 1 ? "has" : "have"));
  }
  return exitStatus::completed;
}

}  // namespace vantrell::shell
