#include "runtimes/catalog/found_programs.h"

#include <cstdlib>

#include "platform/files/files.h"
#include "platform/process/login_shell.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {
std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}
}  // namespace

bool FoundPrograms::has(AgentProvider provider, const std::optional<std::string>& customPath) {
  const auto path = variable("PATH"), home = variable("HOME");
  auto folders = loginShell::keptFolders();
  if (const auto found = searches_.find(provider); found != searches_.end()) {
    const Search& last = found->second;
    const bool dependsOnTheSame = last.customPath == customPath && last.path == path &&
                                  last.home == home && last.folders == folders;
    if (dependsOnTheSame && last.program && files::isExecutable(*last.program)) return true;
    const bool isFresh = !last.program && main_.uptime() - last.searchedAt < missingFor;
    if (dependsOnTheSame && isFresh) return false;
  }
  Search search{customPath,
                std::string(path),
                std::string(home),
                std::move(folders),
                findRuntime(provider, customPath),
                main_.uptime()};
  const bool isThere = search.program.has_value();
  searches_.insert_or_assign(provider, std::move(search));
  return isThere;
}

}  // namespace vantrell
