#include "engine/core/settings.h"

#include <cmath>

#include "platform/storage/user_defaults.h"

namespace vantrell {

namespace {
constexpr std::string_view permissionModeKey = "grokPermissionMode.v1";
constexpr std::string_view workflowModeKey = "taskWorkflowMode.v1";
constexpr std::string_view routingModeKey = "providerRoutingMode.v1";
constexpr std::string_view noMeteredAPIsKey = "noMeteredAPIs.v1";
constexpr std::string_view sessionImportKey = "externalSessionImport.v1";
constexpr std::string_view interfaceScaleKey = "interfaceScale.v1";
constexpr std::string_view remoteHostKey = "remoteHostEnabled.v1";

template <typename Mode>
Mode stored(const UserDefaults& defaults, std::string_view key, Mode fallback) {
  const auto text = defaults.text(key);
  return text ? fromRawText<Mode>(*text).value_or(fallback) : fallback;
}

/// A value of another type is left alone: it counts as true, but is not this program's to replace.
bool storedOrTrue(UserDefaults& defaults, std::string_view key) {
  const auto value = defaults.boolean(key);
  const bool isMissing =
      !value && !defaults.text(key) && !defaults.number(key) && !defaults.data(key);
  if (isMissing) defaults.setBoolean(key, true);
  return value.value_or(true);
}

constexpr double smallestScale = 0.8;
constexpr double largestScale = 1.5;

double scaleStep(double value, int direction) {
  const double tenths = std::round(VantrellInterfaceScale::snapped(value) * 10) + direction;
  return std::clamp(tenths / 10, smallestScale, largestScale);
}
}  // namespace

double VantrellInterfaceScale::snapped(double value) {
  if (value == 0 || std::isnan(value)) return 1.0;
  return std::round(std::clamp(value, smallestScale, largestScale) * 10) / 10;
}

double VantrellInterfaceScale::increased(double from) {
  return scaleStep(from, 1);
}

double VantrellInterfaceScale::decreased(double from) {
  return scaleStep(from, -1);
}

Settings::Settings(UserDefaults& defaults, Changes& changes)
    : defaults_(defaults), changes_(changes) {}

void Settings::load() {
  permissionMode_ = stored(defaults_, permissionModeKey, GrokPermissionMode::ask);
  routingMode_ = stored(defaults_, routingModeKey, ProviderRoutingMode::automatic);
  workflowMode_ = stored(defaults_, workflowModeKey, TaskWorkflowMode::build);
  noMeteredAPIs_ = storedOrTrue(defaults_, noMeteredAPIsKey);
  importsExternalSessions_ = storedOrTrue(defaults_, sessionImportKey);
  interfaceScale_ =
      VantrellInterfaceScale::snapped(defaults_.number(interfaceScaleKey).value_or(1.0));
  isRemoteHostEnabled_ = defaults_.boolean(remoteHostKey).value_or(false);
}

Result<> Settings::recordPermissionMode(GrokPermissionMode mode) {
  permissionMode_ = mode;
  return announced(defaults_.setText(permissionModeKey, rawText(mode)));
}

Result<> Settings::recordWorkflowMode(TaskWorkflowMode mode) {
  workflowMode_ = mode;
  return announced(defaults_.setText(workflowModeKey, rawText(mode)));
}

Result<> Settings::recordRoutingMode(ProviderRoutingMode mode) {
  routingMode_ = mode;
  return announced(defaults_.setText(routingModeKey, rawText(mode)));
}

Result<> Settings::recordNoMeteredAPIs(bool value) {
  noMeteredAPIs_ = value;
  return announced(defaults_.setBoolean(noMeteredAPIsKey, value));
}

Result<> Settings::recordExternalSessionImport(bool value) {
  importsExternalSessions_ = value;
  return announced(defaults_.setBoolean(sessionImportKey, value));
}

Result<> Settings::recordRemoteHost(bool isEnabled) {
  isRemoteHostEnabled_ = isEnabled;
  return announced(defaults_.setBoolean(remoteHostKey, isEnabled));
}

Result<> Settings::setInterfaceScale(double value) {
  interfaceScale_ = VantrellInterfaceScale::snapped(value);
  return announced(defaults_.setNumber(interfaceScaleKey, interfaceScale_));
}

bool Settings::isPlanWithFullAccess() const {
  return workflowMode_ == TaskWorkflowMode::plan &&
         permissionMode_ == GrokPermissionMode::fullAccess;
}

void Settings::announceFailure(const Result<>& stored) {
  if (!stored) changes_.saveFailed(stored.error().sentence);
}

TaskWorkflowMode Settings::workflowModeFor(const RunChoices& choices) const {
  return choices.workflowMode.value_or(workflowMode_);
}

GrokPermissionMode Settings::permissionModeFor(const RunChoices& choices) const {
  const auto mode = choices.permissionMode.value_or(permissionMode_);
  const bool isPlan = workflowModeFor(choices) == TaskWorkflowMode::plan;
  return isPlan && mode == GrokPermissionMode::fullAccess ? GrokPermissionMode::ask : mode;
}

Result<> Settings::store(std::string_view key, std::string_view text) {
  return announced(defaults_.setText(key, text));
}

Result<> Settings::forget(std::string_view key) {
  return announced(defaults_.remove(key));
}

Result<> Settings::announced(bool isStored) {
  changes_.mark(topics::settings);
  if (!isStored) return refuse(std::string(defaults_.lastError()));
  return {};
}

}  // namespace vantrell
