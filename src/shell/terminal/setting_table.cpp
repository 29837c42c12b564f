#include "shell/terminal/setting_table.h"

#include <charconv>
#include <fmt/format.h>

#include "records/values/task_modes.h"

namespace vantrell::shell {

std::expected<const SettingRow*, UsageError> findSetting(std::string_view name) {
  if (const auto* row = views::settingNamed(name)) return row;
  std::vector<std::string_view> names;
  for (const SettingRow& row : settingRows()) names.push_back(row.name);
  return usageError(fmt::format("There is no setting \"{}\".{} \"vantrell settings\" lists them.",
                                name, suggestion(name, names)));
}

std::expected<std::string, UsageError> checkedValue(const SettingRow& row, std::string_view text) {
  auto checked = views::checkedSetting(row, text);
  if (checked) return *std::move(checked);
  return usageError(checked.error() + suggestion(text, row.choices));
}

bool storeSetting(const SettingRow& row, const std::string& checked, UserDefaults& defaults) {
  if (row.type == SettingRow::Type::toggle) return defaults.setBoolean(row.key, checked == "on");
  if (row.type == SettingRow::Type::scale) {
    double scale = 1;
    std::from_chars(checked.data(), checked.data() + checked.size(), scale);
    return defaults.setNumber(row.key, scale);
  }
  if (!defaults.setText(row.key, checked)) return false;
  // A plan never begins with full access.
  const bool lowers =
      row.name == "workflow" && checked == rawText(TaskWorkflowMode::plan) &&
      defaults.text("grokPermissionMode.v1") == rawText(GrokPermissionMode::fullAccess);
  return !lowers || defaults.setText("grokPermissionMode.v1", rawText(GrokPermissionMode::ask));
}

}  // namespace vantrell::shell
