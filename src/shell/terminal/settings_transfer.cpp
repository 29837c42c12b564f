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
#include "views/transfer_words.h"

namespace vantrell::shell {

namespace {

int failed(std::string_view text) {
  complain(text);
  return exitStatus::failed;
}

/// What an import would replace, for the user to decide; empty where there is nothing.
std::string questionBefore(WorkspaceStore& store, std::string_view source) {
  const auto present = store.peek();
  if (present) return views::importQuestion(present->workspaces, source);
  return fmt::format("{}. Replace what is there by the conversations of \"{}\"?", present.error(),
                     onOneLine(source));
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
    tell(fmt::format("{} written to \"{}\".\n",
                     views::countsOf(exported->threads, exported->workspaces), onOneLine(*file)));
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
  const auto question = questionBefore(store, file == "-" ? "standard input" : file);
  if (!question.empty()) {
    const auto mayDo = confirmed(arguments, question);
    if (!mayDo) return refuse(mayDo.error());
    if (!*mayDo) return exitStatus::stopped;
  }
  const auto imported = store.importDocument(*document, now);
  if (store.notice()) complain(*store.notice());
  if (!imported) return failed(fmt::format("{}. Nothing was imported.", imported.error()));
  tell(fmt::format("{} imported. The conversations of before are in \"{}\".\n",
                   views::countsOf(imported->threads, imported->workspaces), imported->keptAside));
  const auto warning = views::missingFoldersWarning(imported->withoutFolder);
  if (!warning.empty()) complain(warning);
  return exitStatus::completed;
}

}  // namespace vantrell::shell
