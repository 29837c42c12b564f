// The table of settings for commands: errors with a suggestion, and the storing of what was
// checked. Any thread.
#pragma once

#include <expected>
#include <string>
#include <string_view>

#include "platform/storage/user_defaults.h"
#include "shell/terminal/command.h"
#include "views/settings_table.h"

namespace vantrell::shell {

using views::readSetting;
using views::SettingRow;
using views::settingRows;
using views::SettingValue;

std::expected<const SettingRow*, UsageError> findSetting(std::string_view name);
/// The value in the form in which it is stored, or what is wrong with it.
std::expected<std::string, UsageError> checkedValue(const SettingRow& row, std::string_view text);
/// False when it could not be stored; the defaults say why.
bool storeSetting(const SettingRow& row, const std::string& checked, UserDefaults& defaults);

}  // namespace vantrell::shell
