#include "engine/providers/setting_table.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "engine/core/settings.h"
#include "platform/files/files.h"
#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"
#include "platform/text/visible_text.h"
#include "platform/values/url.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/local/local_runtime_service.h"

namespace vantrell {

namespace {

constexpr auto modes = rawTexts(GrokPermissionMode{});
constexpr auto workflows = rawTexts(TaskWorkflowMode{});
constexpr auto routes = rawTexts(ProviderRoutingMode{});
constexpr auto localKinds = rawTexts(LocalRuntimeKind{});

using Type = SettingRow::Type;
constexpr SettingRow rows[] = {
    {"mode", "grokPermissionMode.v1", "how much agents may do unasked", Type::choice, modes},
    {"workflow", "taskWorkflowMode.v1", "what kind of work new turns are", Type::choice, workflows},
    {"route", "providerRoutingMode.v1", "which provider takes a turn", Type::choice, routes},
    {.name = "no-metered",
     .key = "noMeteredAPIs.v1",
     .meaning = "never use a provider that is billed per use",
     .type = Type::toggle,
     .isOnByDefault = true},
    {.name = "session-import",
     .key = "externalSessionImport.v1",
     .meaning = "look for the sessions of other programs",
     .type = Type::toggle,
     .isOnByDefault = true},
    {"scale", "interfaceScale.v1", "size of the window's text", Type::scale},
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
    {.name = "remote-host",
     .key = "remoteHostEnabled.v1",
     .meaning = "whether other devices may control this one",
     .type = Type::toggle,
     .isForShow = true},
    {.name = "remote-address",
     .key = "remoteAdvertisedHost.v1",
     .meaning = "address that those devices are told",
     .isForShow = true},
    {.name = "remote-relay",
     .key = "remoteRelayURL.v1",
     .meaning = "relay of remote control, as wss://relay.example/remote/connect",
     .type = Type::relay},
    {.name = "update-feed",
     .key = "updateFeedURL.v1",
     .meaning = "where updates are looked for",
     .isForShow = true},
};

using Checked = std::expected<std::string, std::string>;

Checked refused(const SettingRow& row, std::string_view text) {
  return std::unexpected(fmt::format("{} cannot be \"{}\"; it takes {}.", row.name,
                                     text::onOneLine(text), row.accepted()));
}

/// A setting without a value of the user's own is reset, not set to nothing.
Checked toBeReset(const SettingRow& row, std::string_view what) {
  return std::unexpected(fmt::format("Reset {} to use {} again.", row.name, what));
}

Checked checkedScale(const SettingRow& row, std::string_view text) {
  double scale = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), scale);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  if (!isNumber || !(scale >= 0.8 && scale <= 1.5)) return refused(row, text);
  return fmt::format("{:.1f}", VantrellInterfaceScale::snapped(scale));
}

Checked checkedProgram(const SettingRow& row, std::string_view text) {
  if (text.empty()) return toBeReset(row, "the program that is found by itself");
  std::string path = files::standardized(files::expandingTilde(text));
  if (files::isExecutable(path)) return path;
  return std::unexpected(fmt::format("{} cannot be executed: {}.", text::onOneLine(path),
                                     files::exists(path) ? "it is a folder, or not executable"
                                                         : "there is no such "
                                                           "file"));
}

Checked checkedModel(const SettingRow& row, std::string_view text) {
  const auto model = text::trimmed(text);
  if (model.empty()) return refused(row, text);
  if (model == "default") return toBeReset(row, "the usual model");
  if (row.key == "openCodeGLMModel" && !OpenCodeLocator::isPlanModel(text)) {
    return std::unexpected(
        fmt::format("\"{}\" is not a model of the coding plan: those begin with "
                    "zai-coding-plan/glm-. Others may be billed per use.",
                    text::onOneLine(text)));
  }
  return std::string(model);
}

Checked checkedAddress(const SettingRow& row, std::string_view text) {
  const auto address = text::trimmed(text);
  if (address.empty()) return toBeReset(row, "the usual address");
  const auto url = LocalRuntimeService::validatedBaseURL(text);
  if (!url) return std::unexpected(std::string(description(url.error())));
  return std::string(address);
}

Checked checkedRelay(const SettingRow& row, std::string_view text) {
  if (text.empty()) return toBeReset(row, "the relay that this build names, if any");
  const auto url = Url::parse(text);
  if (!url || (url->scheme() != "wss" && url->scheme() != "https")) return refused(row, text);
  return std::string(text);
}

}  // namespace

std::string SettingRow::accepted() const {
  switch (type) {
    case Type::choice:
      return fmt::format("{} or {}", fmt::join(choices.first(choices.size() - 1), ", "),
                         choices.back());
    case Type::toggle: return "on or off";
    case Type::scale: return "a number from 0.8 to 1.5, in tenths";
    case Type::program: return "the path of a program";
    case Type::model: return "the ID of a model";
    case Type::address: return "an address such as http://127.0.0.1:8080/v1";
    case Type::relay: return "an address that begins with wss:// or https://";
    case Type::secret: return "an address that begins with https://";
    case Type::text: break;
  }
  return "a text";
}

std::span<const SettingRow> settingRows() {
  return rows;
}

const SettingRow* settingNamed(std::string_view word) {
  const auto found = std::ranges::find_if(rows, [word](const SettingRow& row) {
    return row.name == word || (!row.key.empty() && row.key == word);
  });
  return found == std::end(rows) ? nullptr : &*found;
}

SettingValue readSetting(const SettingRow& row, const UserDefaults& defaults) {
  const auto text = defaults.text(row.key);
  const auto boolean = defaults.boolean(row.key);
  const auto number = defaults.number(row.key);
  SettingValue value{.text = text.value_or(""),
                     .isStored = text || boolean || number || defaults.data(row.key)};
  // A stored value of another type or of a later version does not count.
  if (row.type == Type::toggle) {
    // One of another type is left alone, and the guards stay on.
    value.text = boolean.value_or(row.isOnByDefault) ? "on" : "off";
  } else if (row.type == Type::scale) {
    value.text = fmt::format("{:.1f}", VantrellInterfaceScale::snapped(number.value_or(1)));
  } else if (row.type == Type::choice &&
             std::ranges::find(row.choices, value.text) == row.choices.end()) {
    value.text = row.choices.front();
  }
  return value;
}

Checked checkedSetting(const SettingRow& row, std::string_view text) {
  if (!row.isSettable()) {
    return std::unexpected(fmt::format("{} can be seen here, not changed.", row.name));
  }
  switch (row.type) {
    case Type::choice:
      if (std::ranges::find(row.choices, text) == row.choices.end()) return refused(row, text);
      return std::string(text);
    case Type::toggle:
      if (text == "on" || text == "true" || text == "yes") return "on";
      if (text == "off" || text == "false" || text == "no") return "off";
      return refused(row, text);
    case Type::scale: return checkedScale(row, text);
    case Type::program: return checkedProgram(row, text);
    case Type::model: return checkedModel(row, text);
    case Type::address: return checkedAddress(row, text);
    case Type::relay: return checkedRelay(row, text);
    case Type::secret:  // never stored among the settings
    case Type::text: break;
  }
  return std::string(text);
}

}  // namespace vantrell
