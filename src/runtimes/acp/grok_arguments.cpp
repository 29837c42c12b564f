#include "runtimes/acp/grok_arguments.h"

namespace vantrell {

std::vector<std::string> agentArguments(GrokPermissionMode mode,
                                        const std::optional<std::string>& model,
                                        const std::optional<std::string>& effort) {
  std::vector<std::string> arguments;
  const auto add = [&arguments](std::string_view argument) { arguments.emplace_back(argument); };
  if (mode != GrokPermissionMode::fullAccess) {
    add("--permission-mode");
    add(mode == GrokPermissionMode::ask ? "default" : "auto");
  }
  add("agent");
  if (model && !model->empty()) {
    add("--model");
    add(*model);
  }
  if (effort && !effort->empty() && *effort != "default") {
    add("--reasoning-effort");
    add(*effort);
  }
  if (mode == GrokPermissionMode::fullAccess) add("--always-approve");
  add("stdio");
  return arguments;
}

}  // namespace vantrell
