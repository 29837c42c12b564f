#include "shell/terminal/setting_table.h"

#include <charconv>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/local/local_runtime_service.h"

namespace vantrell::shell {

namespace {

constexpr auto modes = rawTexts(GrokPermissionMode{});
constexpr auto workflows = rawTexts(TaskWorkflowMode{});
constexpr auto routes = rawTexts(ProviderRoutingMode{});
constexpr auto localKinds =
    std::to_array<std::string_view>({"automatic", "ollama", "lm_studio", "custom"});

std::string toggled(bool value) {
  return value ? "on" : "off";
}

using Type = SettingRow::Type;
constexpr SettingRow rows[] = {
    {"mode", "grokPermissionMode.v1", "how much agents may do unasked", Type::choice, modes,
     [](const Settings& settings) { return std::string(rawText(settings.permissionMode())); },
     [](Settings& settings, std::string_view value) {
       settings.recordPermissionMode(
           fromRawText<GrokPermissionMode>(value).value_or(GrokPermissionMode::ask));
     }},
    {"workflow", "taskWorkflowMode.v1", "what kind of work new turns are", Type::choice, workflows,
     [](const Settings& settings) { return std::string(rawText(settings.workflowMode())); },
     [](Settings& settings, std::string_view value) {
       const auto mode = fromRawText<TaskWorkflowMode>(value).value_or(TaskWorkflowMode::build);
       settings.recordWorkflowMode(mode);
       settings.lowerForPlan();
     }},
    {"route", "providerRoutingMode.v1", "which provider takes a turn", Type::choice, routes,
     [](const Settings& settings) { return std::string(rawText(settings.routingMode())); },
     [](Settings& settings, std::string_view value) {
       settings.recordRoutingMode(
           fromRawText<ProviderRoutingMode>(value).value_or(ProviderRoutingMode::automatic));
     }},
    {"no-metered",
     "noMeteredAPIs.v1",
     "never use a provider that is billed per use",
     Type::toggle,
     {},
     [](const Settings& settings) { return toggled(settings.noMeteredAPIs()); },
     [](Settings& settings, std::string_view value) {
       settings.recordNoMeteredAPIs(value == "on");
     }},
    {"session-import",
     "externalSessionImport.v1",
     "look for the sessions of other programs",
     Type::toggle,
     {},
     [](const Settings& settings) { return toggled(settings.importsExternalSessions()); },
     [](Settings& settings, std::string_view value) {
       settings.recordExternalSessionImport(value == "on");
     }},
    {"scale",
     "interfaceScale.v1",
     "size of the window's text",
     Type::scale,
     {},
     [](const Settings& settings) { return fmt::format("{:.1f}", settings.interfaceScale()); },
     [](Settings& settings, std::string_view value) {
       double scale = 1;
       std::from_chars(value.data(), value.data() + value.size(), scale);
       settings.setInterfaceScale(scale);
     }},
    {"grok-path", "grokExecutablePath", "program of Grok", Type::program},
    {"codex-path", "codexExecutablePath", "program of Codex", Type::program},
    {"kimi-path", "kimiExecutablePath", "program of Kimi Code", Type::program},
    {"opencode-path", "openCodeExecutablePath", "program of OpenCode", Type::program},
    {"claude-path", "claudeExecutablePath", "program of Claude Code", Type::program},
    {"glm-model", "openCodeGLMModel", "model of the GLM Coding Plan in OpenCode", Type::model},
    {"claude-model", "claudeModel", "model of Claude Code", Type::model},
    {"local-runtime", LocalRuntimeService::kindKey, "kind of the local model server", Type::choice,
     localKinds},
    {"local-url", LocalRuntimeService::baseURLKey, "address of the local model server",
     Type::address},
    {"tasklet-webhook", "", "where Tasklet takes tasks; a secret", Type::secret},
    {"remote-host",
     "remoteHostEnabled.v1",
     "whether other devices may control this one",
     Type::toggle,
     {},
     [](const Settings& settings) { return toggled(settings.isRemoteHostEnabled()); },
     nullptr,
     true},
    {"remote-address",
     "remoteAdvertisedHost.v1",
     "address that those devices are told",
     Type::text,
     {},
     nullptr,
     nullptr,
     true},
    {"update-feed",
     "updateFeedURL.v1",
     "where updates are looked for",
     Type::text,
     {},
     nullptr,
     nullptr,
     true},
};

bool isStored(const UserDefaults& defaults, std::string_view key) {
  return defaults.text(key) || defaults.boolean(key) || defaults.number(key) || defaults.data(key);
}

/// The settings by their own rules, without the writes that loading them makes.
std::string readByRule(const SettingRow& row, const UserDefaults& defaults) {
  const auto copy = UserDefaults::inMemory();
  if (const auto text = defaults.text(row.key)) copy->setText(row.key, *text);
  if (const auto boolean = defaults.boolean(row.key)) copy->setBoolean(row.key, *boolean);
  if (const auto number = defaults.number(row.key)) copy->setNumber(row.key, *number);
  Changes changes;
  Settings settings(*copy, changes);
  settings.load();
  return row.read(settings);
}

std::unexpected<UsageError> refused(const SettingRow& row, std::string_view text) {
  return usageError(fmt::format("{} cannot be \"{}\"; use {}.{}", row.name, text, row.accepted(),
                                suggestion(text, row.choices)));
}

}  // namespace

std::string SettingRow::accepted() const {
  switch (type) {
    case Type::choice: return alternatives(choices);
    case Type::toggle: return "on or off";
    case Type::scale: return "a number from 0.8 to 1.5, in tenths";
    case Type::program: return "the path of a program";
    case Type::model: return "the ID of a model";
    case Type::address: return "an address such as http://127.0.0.1:8080/v1";
    case Type::secret: return "an address that begins with https://";
    case Type::text: break;
  }
  return "a text";
}

std::span<const SettingRow> settingRows() {
  return rows;
}

std::expected<const SettingRow*, UsageError> findSetting(std::string_view name) {
  for (const SettingRow& row : rows) {
    if (row.name == name || (!row.key.empty() && row.key == name)) return &row;
  }
  std::vector<std::string_view> names;
  for (const SettingRow& row : rows) names.push_back(row.name);
  return usageError(fmt::format("There is no setting \"{}\".{} \"vantrell settings\" lists them.",
                                name, suggestion(name, names)));
}

SettingValue readSetting(const SettingRow& row, const UserDefaults& defaults) {
  if (row.key == LocalRuntimeService::kindKey) {
    return {std::string(rawText(LocalRuntimeService::configuredKind(defaults))),
            isStored(defaults, row.key)};
  }
  return {row.read ? readByRule(row, defaults) : defaults.text(row.key).value_or(""),
          isStored(defaults, row.key)};
}

std::expected<std::string, UsageError> checkedValue(const SettingRow& row, std::string_view text) {
  if (!row.isSettable()) {
    return usageError(fmt::format("{} can be seen here, not changed.", row.name));
  }
  switch (row.type) {
    case Type::choice:
      if (std::ranges::find(row.choices, text) == row.choices.end()) return refused(row, text);
      return std::string(text);
    case Type::toggle:
      if (text == "on" || text == "true" || text == "yes") return "on";
      if (text == "off" || text == "false" || text == "no") return "off";
      return refused(row, text);
    case Type::scale: {
      double scale = 0;
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), scale);
      const bool isNumber = error == std::errc() && end == text.data() + text.size();
      if (!isNumber || !(scale >= 0.8 && scale <= 1.5)) return refused(row, text);
      return fmt::format("{:.1f}", VantrellInterfaceScale::snapped(scale));
    }
    case Type::program: {
      if (text.empty()) {
        return usageError(
            fmt::format("To use no path of your own: vantrell settings reset {}", row.name));
      }
      std::string path = files::standardized(files::expandingTilde(text));
      if (!files::isExecutable(path)) {
        return usageError(fmt::format(
            "{} cannot be executed: {}.", path,
            files::exists(path) ? "it is a folder, or not executable" : "there is no such file"));
      }
      return path;
    }
    case Type::model:
      if (text::trimmed(text).empty()) return refused(row, text);
      if (text::trimmed(text) == "default") {
        return usageError(
            fmt::format("To use the usual model: vantrell settings reset {}", row.name));
      }
      if (row.name == "glm-model" && !OpenCodeLocator::isPlanModel(text)) {
        return usageError(
            fmt::format("{} cannot be \"{}\": the models of the coding plan begin with "
                        "zai-coding-plan/glm-, and others may be billed per use.",
                        row.name, text));
      }
      return std::string(text::trimmed(text));
    case Type::address: {
      if (text::trimmed(text).empty()) {
        return usageError(
            fmt::format("To use no address of your own: vantrell settings reset {}", row.name));
      }
      const auto url = LocalRuntimeService::validatedBaseURL(text);
      if (!url) return usageError(std::string(description(url.error())));
      return std::string(text::trimmed(text));
    }
    case Type::secret:  // never stored among the settings
    case Type::text: break;
  }
  return std::string(text);
}

bool storeSetting(const SettingRow& row, const std::string& checked, UserDefaults& defaults) {
  if (!row.record) return defaults.setText(row.key, checked);
  Changes changes;
  Settings settings(defaults, changes);
  settings.load();
  row.record(settings, checked);
  return defaults.lastError().empty() && isStored(defaults, row.key);
}

}  // namespace vantrell::shell
