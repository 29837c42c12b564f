#include "runtimes/found_programs.h"

#include <cstdlib>

#include "platform/files.h"
#include "platform/login_shell.h"
#include "runtimes/runtime_locator.h"

namespace vantrell {

namespace {
std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}
}  // namespace

bool FoundPrograms::has(AgentProvider provider, const std::optional<std::string>& customPath) {
  Search now{customPath, variable("PATH"), variable("HOME"), loginShell::keptFolders(), {}, {}};
  if (const auto found = searches_.find(provider); found != searches_.end()) {
    const Search& last = found->second;
    const bool dependsOnTheSame = last.customPath == now.customPath && last.path == now.path &&
                                  last.home == now.home && last.folders == now.folders;
    if (dependsOnTheSame && last.program && files::isExecutable(*last.program)) return true;
    const bool isFresh = !last.program && main_.uptime() - last.searchedAt < missingFor;
    if (dependsOnTheSame && isFresh) return false;
  }
  now.program = findRuntime(provider, customPath);
  now.searchedAt = main_.uptime();
  const bool isThere = now.program.has_value();
  searches_.insert_or_assign(provider, std::move(now));
  return isThere;
}

}  // namespace vantrell
