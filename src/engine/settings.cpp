#include "engine/settings.h"

#include "platform/user_defaults.h"

namespace vantrell {

namespace {
constexpr std::string_view permissionModeKey = "grokPermissionMode.v1";
constexpr std::string_view workflowModeKey = "taskWorkflowMode.v1";

template <typename Mode>
Mode stored(const UserDefaults& defaults, std::string_view key, Mode fallback) {
  const auto text = defaults.text(key);
  return text ? fromRawText<Mode>(*text).value_or(fallback) : fallback;
}
}  // namespace

Settings::Settings(UserDefaults& defaults, Changes& changes)
    : defaults_(defaults), changes_(changes) {}

void Settings::load() {
  permissionMode_ = stored(defaults_, permissionModeKey, GrokPermissionMode::ask);
  workflowMode_ = stored(defaults_, workflowModeKey, TaskWorkflowMode::build);
}

void Settings::recordPermissionMode(GrokPermissionMode mode) {
  permissionMode_ = mode;
  announce();
  defaults_.setText(permissionModeKey, rawText(mode));
}

void Settings::recordWorkflowMode(TaskWorkflowMode mode) {
  workflowMode_ = mode;
  announce();
  defaults_.setText(workflowModeKey, rawText(mode));
}

void Settings::chooseForThisProcess(GrokPermissionMode permissionMode,
                                    TaskWorkflowMode workflowMode) {
  permissionMode_ = permissionMode;
  workflowMode_ = workflowMode;
  announce();
}

void Settings::announce() {
  changes_.announce({.kind = Change::Kind::settingsChanged});
}

}  // namespace vantrell
