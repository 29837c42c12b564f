#include "runtimes/local/local_runtime.h"

#include <fmt/format.h>

namespace vantrell {

std::string_view displayName(LocalRuntimeKind kind) {
  switch (kind) {
    case LocalRuntimeKind::automatic: return "Auto-detect";
    case LocalRuntimeKind::ollama: return "Ollama";
    case LocalRuntimeKind::lmStudio: return "LM Studio";
    case LocalRuntimeKind::custom: return "OpenAI-compatible";
  }
  return {};
}

std::string LocalRuntimeStatus::label() const {
  if (isChecking()) return "Looking for runtimes…";
  if (const auto* ready = connection()) {
    const auto count = ready->models.size();
    return fmt::format("{} · {} model{}", ready->name, count, count == 1 ? "" : "s");
  }
  return "Not detected";
}

std::string_view description(LocalRuntimeError error) {
  switch (error) {
    case LocalRuntimeError::invalidURL: return "Enter a valid local runtime URL.";
    case LocalRuntimeError::insecureRemoteURL:
      return "Non-HTTPS runtimes must use localhost or a private-network address.";
    case LocalRuntimeError::noModels:
      return "The runtime answered, but it did not report any loaded models.";
  }
  return {};
}

}  // namespace vantrell
