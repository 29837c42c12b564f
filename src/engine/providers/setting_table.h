// The settings as a person names, reads and changes them: one table for the panes of a window, the
// commands and their help. Reads what is stored and checks what is typed; SettingsOperations stores
// it. Pure but for the file system; any thread.
#pragma once

#include <expected>
#include <span>
#include <string>
#include <string_view>

namespace vantrell {

class UserDefaults;

struct SettingRow {
  enum class Type { choice, toggle, scale, program, model, address, relay, secret, text };
  std::string_view name;  // "workflow"
  std::string_view key;   // of the user defaults; empty: a secret, which is kept elsewhere
  std::string_view meaning;
  Type type = Type::text;
  std::span<const std::string_view> choices{};  // the first holds where nothing else is stored
  bool isOnByDefault = false;                   // of a toggle
  bool isForShow = false;                       // changed elsewhere

  bool isSettable() const { return !isForShow; }
  bool isSecret() const { return type == Type::secret; }
  /// "ask, auto or full_access".
  std::string accepted() const;
};

std::span<const SettingRow> settingRows();
/// By its name or key; null for any other word.
const SettingRow* settingNamed(std::string_view word);

struct SettingValue {
  std::string text;       // as checkedSetting() takes it; empty: none
  bool isStored = false;  // else it is what holds when nothing is stored
};
SettingValue readSetting(const SettingRow& row, const UserDefaults& defaults);

/// The value in the form in which it is stored, or a sentence that says what is wrong with it.
std::expected<std::string, std::string> checkedSetting(const SettingRow& row,
                                                       std::string_view text);

}  // namespace vantrell
