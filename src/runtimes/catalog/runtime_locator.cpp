#include "runtimes/catalog/runtime_locator.h"

#include <cstdlib>
#include <set>
#include <vector>

#include "platform/files/files.h"
#include "platform/process/login_shell.h"
#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

std::vector<std::string> candidatePaths(const ProviderProgram& program,
                                        std::optional<std::string_view> customPath,
                                        const Environment& environment,
                                        const std::vector<std::string>& moreFolders) {
  std::vector<std::string> paths;
  if (customPath) {
    const std::string_view custom = text::trimmed(*customPath);
    if (!custom.empty()) paths.push_back(files::expandingTilde(custom));
  }
  for (const auto candidate : program.candidates) {
    paths.push_back(files::expandingTilde(candidate));
  }
  // A relative entry depends on the folder of this process, and a program cannot be started by it.
  const auto addIn = [&](std::string_view folder) {
    if (!folder.starts_with('/')) return;
    paths.push_back(std::string(folder) + "/" + std::string(program.name));
  };
  if (const auto path = environment.find("PATH"); path != environment.end()) {
    for (const auto entry : text::split(path->second, ':')) addIn(entry);
  }
  for (const auto& folder : moreFolders) addIn(folder);
  return paths;
}

/// With the folders after it that are not in it yet.
std::string extended(std::string path, const std::vector<std::string>& folders) {
  for (const auto& folder : folders) {
    const auto present = text::split(path, ':');
    if (std::ranges::find(present, folder) != present.end()) continue;
    if (!path.empty()) path += ':';
    path += folder;
  }
  return path;
}

}  // namespace

std::optional<std::string> findExecutable(AgentProvider provider,
                                          std::optional<std::string_view> customPath,
                                          const Environment& environment,
                                          const std::vector<std::string>& moreFolders) {
  const ProviderProgram* program = programOf(provider);
  if (!program) return std::nullopt;
  std::set<std::string> seen;
  for (auto& path : candidatePaths(*program, customPath, environment, moreFolders)) {
    if (seen.insert(path).second && files::isExecutable(path)) return path;
  }
  return std::nullopt;
}

std::optional<std::string> findRuntime(AgentProvider provider,
                                       std::optional<std::string_view> customPath) {
  Environment searched;  // PATH is all that counts; a copy of the rest would cost each search
  if (const char* path = std::getenv("PATH")) searched.emplace("PATH", path);
  return findExecutable(provider, customPath, searched, loginShell::keptFolders());
}

Environment runtimeEnvironment(AgentProvider provider, Environment base,
                               const std::vector<std::string>& moreFolders) {
  const ProviderProgram* program = programOf(provider);
  if (!program) return base;
  std::vector<std::string> entries;
  for (const auto entry : program->pathEntries) entries.push_back(files::expandingTilde(entry));
  const auto present = base.find("PATH");
  const std::string_view rest =
      present == base.end() ? program->missingPath : std::string_view(present->second);
  // An empty entry would mean the working folder, which is the project's to fill.
  if (!rest.empty()) entries.emplace_back(rest);
  base["PATH"] = extended(text::joined(entries, ":"), moreFolders);
  for (const auto name : program->removed) {
    if (const auto found = base.find(name); found != base.end()) base.erase(found);
  }
  for (const auto& [name, value] : program->set) base[std::string(name)] = value;
  return base;
}

Environment runtimeEnvironment(AgentProvider provider) {
  return runtimeEnvironment(provider, currentEnvironment(), loginShell::keptFolders());
}

std::string_view programName(AgentProvider provider) {
  const ProviderProgram* program = programOf(provider);
  return program ? program->name : std::string_view();
}

std::string_view customPathKey(AgentProvider provider) {
  const ProviderProgram* program = programOf(provider);
  return program ? program->customPathKey : std::string_view();
}

std::optional<std::string> customExecutablePath(const UserDefaults& defaults,
                                                AgentProvider provider) {
  const auto key = customPathKey(provider);
  if (key.empty()) return std::nullopt;
  return defaults.text(key);
}

std::string_view installCommand(AgentProvider provider) {
  const ProviderProgram* program = programOf(provider);
  return program ? program->installCommand : std::string_view();
}

std::string configuredModel(const UserDefaults& defaults, AgentProvider provider) {
  const auto& rule = providerFacts(provider).models.configured;
  if (!rule) return {};
  const std::string chosen = defaults.text(rule->key).value_or("");
  const std::string_view trimmed = text::trimmed(chosen);
  return std::string(trimmed.empty() ? rule->usual : trimmed);
}

bool mayUseModel(AgentProvider provider, std::string_view model) {
  const auto& rule = providerFacts(provider).models.configured;
  return !rule || text::lowercased(model).starts_with(rule->requiredPrefix);
}

}  // namespace vantrell
