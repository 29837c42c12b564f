// The table of settings for commands: its errors with a suggestion. Any thread.
#pragma once

#include <expected>
#include <string>
#include <string_view>

#include "engine/providers/setting_table.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

std::expected<const SettingRow*, UsageError> findSetting(std::string_view name);
/// The value in the form in which it is stored, or what is wrong with it.
std::expected<std::string, UsageError> checkedValue(const SettingRow& row, std::string_view text);

}  // namespace vantrell::shell
