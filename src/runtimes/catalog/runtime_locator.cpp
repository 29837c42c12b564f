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

using Texts = std::vector<std::string_view>;

/// One row of the table of runtimes.
struct RuntimeLocation {
  AgentProvider provider;
  std::string_view name;         // of the program
  Texts candidates;              // places to look, in order; "~" is the home folder
  Texts pathEntries;             // put in front of PATH
  std::string_view missingPath;  // what a missing PATH counts as
  Texts removed;                 // variables that would lead to metered billing
  std::vector<std::pair<std::string_view, std::string_view>> set;
  std::string_view customPathKey;   // in the user defaults
  std::string_view installCommand;  // the vendor's own, as the vendor publishes it
};

const RuntimeLocation* locationOf(AgentProvider provider) {
  static const std::vector<RuntimeLocation> table{
      {AgentProvider::grok,
       "grok",
       {"~/.grok/bin/grok", "/opt/homebrew/bin/grok", "/usr/local/bin/grok", "/usr/bin/grok"},
       {"~/.grok/bin", "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/bin"},
       "",
       {},
       {},
       "grokExecutablePath",
       "curl -fsSL https://x.ai/cli/install.sh | bash"},
      {AgentProvider::codex,
       "codex",
       {"/Applications/ChatGPT.app/Contents/Resources/codex", "/opt/homebrew/bin/codex",
        "/usr/local/bin/codex", "~/.local/bin/codex", "~/.npm-global/bin/codex"},
       {"/opt/homebrew/bin", "/usr/local/bin", "~/.local/bin"},
       "/usr/bin:/bin:/usr/sbin:/sbin",
       {"OPENAI_API_KEY", "CODEX_API_KEY"},
       {},
       "codexExecutablePath",
       "npm install -g @openai/codex"},
      {AgentProvider::kimi,
       "kimi",
       {"~/.local/bin/kimi", "~/.npm-global/bin/kimi", "/opt/homebrew/bin/kimi",
        "/usr/local/bin/kimi", "/usr/bin/kimi"},
       {"~/.local/bin", "~/.npm-global/bin", "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin",
        "/bin"},
       "",
       {"KIMI_API_KEY", "MOONSHOT_API_KEY", "OPENAI_API_KEY", "ANTHROPIC_API_KEY"},
       {},
       "kimiExecutablePath",
       "curl -LsSf https://code.kimi.com/install.sh | bash"},
      {AgentProvider::glm,
       "opencode",
       {"~/.opencode/bin/opencode", "~/.local/bin/opencode", "~/.npm-global/bin/opencode",
        "/opt/homebrew/bin/opencode", "/usr/local/bin/opencode"},
       {"~/.opencode/bin", "~/.local/bin", "~/.npm-global/bin", "/opt/homebrew/bin",
        "/usr/local/bin", "/usr/bin", "/bin"},
       "",
       {"OPENAI_API_KEY", "ANTHROPIC_API_KEY", "XAI_API_KEY", "KIMI_API_KEY", "MOONSHOT_API_KEY"},
       {},
       "openCodeExecutablePath",
       "curl -fsSL https://opencode.ai/install | bash"},
      {AgentProvider::claude,
       "claude",
       {"~/.local/bin/claude", "~/.claude/local/claude", "~/.npm-global/bin/claude",
        "~/node_modules/.bin/claude", "~/.yarn/bin/claude", "/opt/homebrew/bin/claude",
        "/usr/local/bin/claude"},
       {"~/.local/bin", "~/.claude/local", "~/.npm-global/bin", "/opt/homebrew/bin",
        "/usr/local/bin", "/usr/bin", "/bin"},
       "",
       {"ANTHROPIC_API_KEY", "ANTHROPIC_AUTH_TOKEN", "ANTHROPIC_BASE_URL",
        "CLAUDE_CODE_USE_BEDROCK", "CLAUDE_CODE_USE_VERTEX", "CLAUDE_CODE_USE_FOUNDRY",
        "CLAUDECODE"},
       {{"CLAUDE_CODE_ENTRYPOINT", "vantrell"}},
       "claudeExecutablePath",
       "curl -fsSL https://claude.ai/install.sh | bash"},
  };
  // Local models are reached through Grok's program.
  const auto owner = provider == AgentProvider::local ? AgentProvider::grok : provider;
  const auto found = std::ranges::find(table, owner, &RuntimeLocation::provider);
  return found == table.end() ? nullptr : &*found;
}

std::vector<std::string> candidatePaths(const RuntimeLocation& location,
                                        std::optional<std::string_view> customPath,
                                        const Environment& environment,
                                        const std::vector<std::string>& moreFolders) {
  std::vector<std::string> paths;
  if (customPath) {
    const std::string_view custom = text::trimmed(*customPath);
    if (!custom.empty()) paths.push_back(files::expandingTilde(custom));
  }
  for (const auto candidate : location.candidates) {
    paths.push_back(files::expandingTilde(candidate));
  }
  const auto addIn = [&](std::string_view folder) {
    if (!folder.empty()) paths.push_back(std::string(folder) + "/" + std::string(location.name));
  };
  if (const auto path = environment.find("PATH"); path != environment.end()) {
    for (const auto entry : text::split(path->second, ':')) addIn(entry);
  }
  for (const auto& folder : moreFolders) addIn(folder);
  return paths;
}

/// Behind PATH, what is not in it yet.
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
  const RuntimeLocation* location = locationOf(provider);
  if (!location) return std::nullopt;
  std::set<std::string> seen;
  for (auto& path : candidatePaths(*location, customPath, environment, moreFolders)) {
    if (seen.insert(path).second && files::isExecutable(path)) return path;
  }
  return std::nullopt;
}

std::optional<std::string> findRuntime(AgentProvider provider,
                                       std::optional<std::string_view> customPath) {
  Environment searched;  // nothing but PATH counts; all of it would be copied for each search
  if (const char* path = std::getenv("PATH")) searched.emplace("PATH", path);
  return findExecutable(provider, customPath, searched, loginShell::keptFolders());
}

Environment runtimeEnvironment(AgentProvider provider, Environment base,
                               const std::vector<std::string>& moreFolders) {
  const RuntimeLocation* location = locationOf(provider);
  if (!location) return base;
  std::vector<std::string> entries;
  for (const auto entry : location->pathEntries) entries.push_back(files::expandingTilde(entry));
  const auto present = base.find("PATH");
  const std::string_view rest =
      present == base.end() ? location->missingPath : std::string_view(present->second);
  // An empty entry would mean the working folder, which is the project's to fill.
  if (!rest.empty()) entries.emplace_back(rest);
  base["PATH"] = extended(text::joined(entries, ":"), moreFolders);
  for (const auto name : location->removed) {
    if (const auto found = base.find(name); found != base.end()) base.erase(found);
  }
  for (const auto& [name, value] : location->set) base[std::string(name)] = value;
  return base;
}

Environment runtimeEnvironment(AgentProvider provider) {
  return runtimeEnvironment(provider, currentEnvironment(), loginShell::keptFolders());
}

std::string_view programName(AgentProvider provider) {
  const RuntimeLocation* location = locationOf(provider);
  return location ? location->name : std::string_view();
}

std::string_view customPathKey(AgentProvider provider) {
  const RuntimeLocation* location = locationOf(provider);
  return location ? location->customPathKey : std::string_view();
}

std::optional<std::string> customExecutablePath(const UserDefaults& defaults,
                                                AgentProvider provider) {
  const auto key = customPathKey(provider);
  if (key.empty()) return std::nullopt;
  return defaults.text(key);
}

std::string_view installCommand(AgentProvider provider) {
  const RuntimeLocation* location = locationOf(provider);
  return location ? location->installCommand : std::string_view();
}

}  // namespace vantrell
