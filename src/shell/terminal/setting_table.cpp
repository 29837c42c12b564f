#include "shell/terminal/setting_table.h"

#include <fmt/format.h>

namespace vantrell::shell {

std::expected<const SettingRow*, UsageError> findSetting(std::string_view name) {
  if (const auto* row = settingNamed(name)) return row;
  std::vector<std::string_view> names;
  for (const SettingRow& row : settingRows()) names.push_back(row.name);
  return usageError(fmt::format("There is no setting \"{}\".{} \"vantrell settings\" lists them.",
                                name, suggestion(name, names)));
}

std::expected<std::string, UsageError> checkedValue(const SettingRow& row, std::string_view text) {
  auto checked = checkedSetting(row, text);
  if (checked) return *std::move(checked);
  return usageError(checked.error() + suggestion(text, row.choices));
}

}  // namespace vantrell::shell
