// The settings as a person at the terminal names, reads and changes them; one table serves the
// display, the changes and the help. Pure but for the file system; any thread.
#pragma once

#include <expected>
#include <span>
#include <string>
#include <string_view>

#include "engine/core/settings.h"
#include "platform/storage/user_defaults.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

struct SettingRow {
  enum class Type { choice, toggle, scale, program, model, address, secret, text };
  std::string_view name;  // "workflow"
  std::string_view key;   // of the user defaults; empty: a secret, see webhook_setting.h
  std::string_view meaning;
  Type type = Type::text;
  std::span<const std::string_view> choices{};
  /// Absent where the stored text is the value.
  std::string (*read)(const Settings& settings) = nullptr;
  /// Of a checked value. Absent where the text is stored as it stands, and for what cannot be
  /// changed here.
  void (*record)(Settings& settings, std::string_view value) = nullptr;
  /// Changed elsewhere.
  bool isForShow = false;

  bool isSettable() const { return !isForShow; }
  bool isSecret() const { return type == Type::secret; }
  /// "ask, auto or full_access".
  std::string accepted() const;
};

std::span<const SettingRow> settingRows();
/// The error has a suggestion.
std::expected<const SettingRow*, UsageError> findSetting(std::string_view name);

struct SettingValue {
  std::string text;       // as the program takes it; empty: none
  bool isStored = false;  // else it is what holds when nothing is stored
};
SettingValue readSetting(const SettingRow& row, const UserDefaults& defaults);

/// The value in the form in which it is stored, or what is wrong with it.
std::expected<std::string, UsageError> checkedValue(const SettingRow& row, std::string_view text);
/// False when it could not be stored; the defaults say why.
bool storeSetting(const SettingRow& row, const std::string& checked, UserDefaults& defaults);

}  // namespace vantrell::shell
