// The user's operations on the settings, by the names and keys of the table of settings: what is
// typed is checked and stored, and takes effect at once. The one place where the rules for a change
// are applied, for every front end. Main queue.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "engine/core/refusal.h"
#include "engine/providers/setting_table.h"
#include "engine/turns/approvals.h"

namespace vantrell {

class InstalledRuntimes;
class ModelCatalog;
class ProviderSetup;
class Router;

class SettingsOperations {
 public:
  using Selected = std::optional<ThreadExecutionKey>;

  struct Dependencies {
    Settings& settings;
    Approvals& approvals;
    Router& router;
    ProviderSetup& setup;
    ModelCatalog& catalog;
    InstalledRuntimes& runtimes;
  };
  explicit SettingsOperations(Dependencies dependencies) : core_(dependencies) {}

  /// What holds, stored or not.
  SettingValue value(const SettingRow& row) const;

  /// Full Access takes a person at this machine who was told what it means.
  enum class FullAccess { notConfirmed, confirmed };
  /// Stores the text as the value. The modes and the route cannot change while the conversation
  /// that the user looks at works or asks. The result is what else the user should know, or empty.
  Result<std::string> change(std::string_view name, std::string_view text, const Selected& selected,
                             FullAccess fullAccess = FullAccess::notConfirmed);
  /// Forgets the user's value: the usual one takes effect.
  Result<> reset(std::string_view name, const Selected& selected);
  /// The same for a secret, which is kept elsewhere; an empty text forgets it.
  void changeSecret(std::string_view name, std::string_view text,
                    std::function<void(Result<>)> done);

  /// Modes for this process only, in place of the stored ones.
  void chooseForThisProcess(std::optional<GrokPermissionMode> permissionMode,
                            std::optional<TaskWorkflowMode> workflowMode) {
    core_.settings.chooseForThisProcess(permissionMode, workflowMode);
  }

 private:
  Result<> takeEffect(const SettingRow& row, const std::string& checked, const Selected& selected);
  void readAgain(const SettingRow& row);

  const Dependencies core_;
};

}  // namespace vantrell
