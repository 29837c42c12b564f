#include "views/transfer_words.h"

#include <fmt/format.h>

#include "platform/text/visible_text.h"

namespace vantrell::views {

namespace {

std::string counted(std::size_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

}  // namespace

std::string countsOf(std::size_t threads, std::size_t workspaces) {
  return fmt::format("{} in {}", counted(threads, "conversation"), counted(workspaces, "project"));
}

std::string importQuestion(const std::vector<Workspace>& present, std::string_view source) {
  if (present.empty()) return "";
  std::string list;
  std::size_t threads = 0;
  for (const auto& workspace : present) {
    list += fmt::format("  {} ({})\n", text::onOneLine(workspace.name),
                        counted(workspace.threads.size(), "conversation"));
    threads += workspace.threads.size();
  }
  return fmt::format("Replace {}\n{}by those of \"{}\"? The present ones are kept in a file.",
                     countsOf(threads, present.size()), list, text::onOneLine(source));
}

std::string missingFoldersWarning(std::size_t count) {
  if (count == 0) return "";
  return fmt::format(
      "{} of the imported projects {} no folder on this machine. The next start of Vantrell drops "
      "them, and keeps their conversations aside: make the folders before, at the same paths.",
      count, count == 1 ? "has" : "have");
}

}  // namespace vantrell::views
