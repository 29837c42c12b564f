#include "runtimes/acp/opencode_quirks.h"

#include "platform/files/files.h"

namespace vantrell {

namespace {

constexpr std::size_t longestSettings = 1 << 20;

std::string variable(const Environment& environment, std::string_view name) {
  const auto found = environment.find(name);
  return found == environment.end() ? std::string() : found->second;
}

/// The files hold comments and come in several shapes, so that words are looked for.
bool saysAsk(std::string_view settings) {
  return settings.contains("permission") && settings.contains("\"ask\"");
}

}  // namespace

const PermissionOption* OpenCodeQuirks::ownAnswer(const ACPConfiguration& configuration,
                                                  const PermissionRequest& question) const {
  if (configuration.permissionMode != GrokPermissionMode::fullAccess) return nullptr;
  for (const std::string_view kind : {"allow_always", "allow_once"}) {
    const auto option = std::ranges::find(question.options, kind, &PermissionOption::kind);
    if (option != question.options.end()) return &*option;
  }
  return nullptr;
}

bool OpenCodeQuirks::settingsAsk(const ACPConfiguration& configuration) {
  const Environment& environment = configuration.processEnvironment;
  if (!variable(environment, "OPENCODE_PERMISSION").empty()) return true;
  if (saysAsk(variable(environment, "OPENCODE_CONFIG_CONTENT"))) return true;
  const std::string home = variable(environment, "HOME");
  std::string config = variable(environment, "XDG_CONFIG_HOME");
  if (config.empty()) config = home + "/.config";
  std::vector<std::string> files{variable(environment, "OPENCODE_CONFIG")};
  for (const std::string& folder :
       {config + "/opencode", home + "/.opencode", configuration.workspacePath,
        configuration.workspacePath + "/.opencode"}) {
    for (const auto* name : {"opencode.json", "opencode.jsonc", "config.json"}) {
      files.push_back(folder + "/" + name);
    }
  }
  return std::ranges::any_of(files, [](const std::string& path) {
    const auto content =
        path.empty() ? files::Result<std::string>("") : files::read(path, longestSettings);
    return content && saysAsk(*content);
  });
}

std::optional<std::string> OpenCodeQuirks::startNotice(
    const ACPConfiguration& configuration) const {
  if (configuration.permissionMode != GrokPermissionMode::ask || settingsAsk(configuration)) {
    return std::nullopt;
  }
  return "OpenCode asks before an action only where its own settings say so, and none was found: "
         "it "
         "may act without asking. To be asked, add \"permission\": {\"edit\": \"ask\", \"bash\": "
         "\"ask\"} to ~/.config/opencode/opencode.json.";
}

}  // namespace vantrell
