#include "runtimes/acp/acp_host_services.h"

#include <filesystem>
#include <limits>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/acp/terminal_manager.h"

namespace vantrell {

namespace {
/// Bytes of a file that is read for an agent: it goes into one message and the model's context.
constexpr std::size_t longestFile = 64 << 20;

ACPHostServices::Answer refuse(std::string text) {
  return std::unexpected(AgentError(std::move(text)));
}
}  // namespace

ACPHostServices::ACPHostServices(std::string workspacePath, Environment terminalEnvironment,
                                 SerialQueue queue)
    : root_(files::standardized(workspacePath)),
      terminals_(
          std::make_unique<TerminalManager>(std::move(terminalEnvironment), std::move(queue))) {}

ACPHostServices::~ACPHostServices() = default;

void ACPHostServices::releaseAll() {
  terminals_->releaseAll();
}

bool ACPHostServices::handle(std::string_view method, const JsonObject& params, Reply reply) {
  if (method == "fs/read_text_file") {
    reply(readTextFile(params));
  } else if (method == "fs/write_text_file") {
    reply(writeTextFile(params));
  } else {
    return terminals_->handle(method, params, std::move(reply));
  }
  return true;
}

bool ACPHostServices::isInsideProject(std::string_view path) const {
  // A path that the system would read only in part names nothing.
  if (path.contains('\0')) return false;
  // Bytes are compared, and a slash is demanded behind the root, so that a sibling whose name
  // begins with the root's name is outside. Symbolic links are not resolved.
  const std::string candidate = files::standardized(path);
  if (candidate == root_ || root_ == "/") return true;
  return candidate.starts_with(root_) && candidate[root_.size()] == '/';
}

bool ACPHostServices::leadsOutside(const std::string& target) const {
  std::error_code unknown;
  if (!std::filesystem::is_symlink(target, unknown)) return false;
  const auto root = std::filesystem::weakly_canonical(root_, unknown);
  const auto place = std::filesystem::weakly_canonical(target, unknown);
  if (unknown) return true;
  const auto relative = place.lexically_relative(root);
  return relative.empty() || *relative.begin() == "..";
}

ACPHostServices::Answer ACPHostServices::readTextFile(const JsonObject& params) const {
  const std::string* path = json::text(params, "path");
  if (!path) return refuse("fs/read_text_file is missing path");
  if (!isInsideProject(*path)) {
    return refuse("vantrell only allows file reads inside the selected project.");
  }
  const auto content = files::read(files::standardized(*path), longestFile);
  if (!content) return refuse(content.error().description);
  if (!text::isValidUtf8(*content)) return refuse("The file \"" + *path + "\" is not UTF-8 text.");

  const auto lines = text::lines(*content);
  const std::int64_t first =
      std::max<std::int64_t>(json::integer(params, "line").value_or(1), 1) - 1;
  const std::int64_t limit = std::max<std::int64_t>(
      json::integer(params, "limit").value_or(std::numeric_limits<std::int64_t>::max()), 0);
  const auto total = static_cast<std::int64_t>(lines.size());
  std::string selected;
  if (first < total) {
    const std::int64_t count = std::min(limit, total - first);
    for (std::int64_t i = 0; i < count; ++i) {
      if (i > 0) selected.push_back('\n');
      selected.append(lines[static_cast<std::size_t>(first + i)]);
    }
  }
  return JsonObject{{"content", std::move(selected)}};
}

ACPHostServices::Answer ACPHostServices::writeTextFile(const JsonObject& params) const {
  const std::string* path = json::text(params, "path");
  const std::string* content = json::text(params, "content");
  if (!path || !content) return refuse("fs/write_text_file is missing path or content");
  if (!isInsideProject(*path)) {
    return refuse("vantrell only allows file writes inside the selected project.");
  }
  const std::string target = files::standardized(*path);
  if (const auto made = files::createFolders(files::parent(target)); !made) {
    return refuse(made.error().description);
  }
  // The new file takes the place of a link that leads out of the project: what it leads to is none
  // of the agent's.
  const auto links = leadsOutside(target) ? files::Links::replace : files::Links::follow;
  if (const auto written = files::writeAtomically(target, *content, std::nullopt, links);
      !written) {
    return refuse(written.error().description);
  }
  return JsonObject{};
}

}  // namespace vantrell
