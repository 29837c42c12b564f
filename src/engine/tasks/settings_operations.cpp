#include "engine/tasks/settings_operations.h"

#include <charconv>
#include <fmt/format.h>

#include "engine/providers/installed_runtimes.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/provider_setup.h"
#include "engine/providers/router.h"
#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"
#include "platform/text/visible_text.h"
#include "runtimes/catalog/provider_table.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/local/local_runtime_service.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

namespace {

Result<const SettingRow*> found(std::string_view name) {
  const SettingRow* row = settingNamed(name);
  if (!row) return refuse(fmt::format("There is no setting \"{}\".", text::onOneLine(name)));
  if (!row->isSettable()) {
    return refuse(fmt::format("{} can be seen here, not changed.", row->name));
  }
  return row;
}

std::unexpected<Refusal> refuseSecret(const SettingRow& row) {
  return refuse(fmt::format("{} is a secret, which is not kept among the settings.", row.name));
}

template <typename Mode>
Mode modeOf(const std::string& checked) {
  return *fromRawText<Mode>(checked);
}

}  // namespace

SettingValue SettingsOperations::value(const SettingRow& row) const {
  return readSetting(row, core_.settings.defaults());
}

Result<std::string> SettingsOperations::change(std::string_view name, std::string_view text,
                                               const Selected& selected, FullAccess fullAccess) {
  const auto row = found(name);
  if (!row) return std::unexpected(row.error());
  if ((*row)->isSecret()) return refuseSecret(**row);
  const auto checked = checkedSetting(**row, text);
  if (!checked) return refuse(checked.error());
  const GrokPermissionMode before = core_.settings.permissionMode();
  const bool isFullAccess = (*row)->name == "mode" && before != GrokPermissionMode::fullAccess &&
                            *checked == rawText(GrokPermissionMode::fullAccess);
  if (isFullAccess && fullAccess == FullAccess::notConfirmed) {
    return refuse("Full Access has to be confirmed by a person at this machine.");
  }
  auto done = takeEffect(**row, *checked, selected);
  const bool isText =
      (*row)->type != SettingRow::Type::toggle && (*row)->type != SettingRow::Type::scale;
  // What held by default is stored as well: a later default does not change it.
  if (done && isText) done = core_.settings.store((*row)->key, *checked);
  if (!done) return std::unexpected(done.error());
  readAgain(**row);
  const bool isLowered = (*row)->name == "workflow" && before == GrokPermissionMode::fullAccess &&
                         core_.settings.permissionMode() == GrokPermissionMode::ask;
  return isLowered ? "A plan never begins with full access: mode is ask now." : "";
}

/// For what the engine holds in memory; everything else is read from the defaults when it is used.
Result<> SettingsOperations::takeEffect(const SettingRow& row, const std::string& checked,
                                        const Selected& selected) {
  if (row.name == "mode") {
    return core_.approvals.setPermissionMode(modeOf<GrokPermissionMode>(checked), selected);
  }
  if (row.name == "workflow") {
    return core_.approvals.setWorkflowMode(modeOf<TaskWorkflowMode>(checked), selected);
  }
  if (row.name == "route") {
    return core_.router.setRoutingMode(modeOf<ProviderRoutingMode>(checked), selected);
  }
  if (row.name == "no-metered") return core_.router.setNoMeteredAPIs(checked == "on");
  if (row.name == "session-import") {
    return core_.settings.recordExternalSessionImport(checked == "on");
  }
  if (row.type == SettingRow::Type::scale) {
    double scale = 1;
    std::from_chars(checked.data(), checked.data() + checked.size(), scale);
    return core_.settings.setInterfaceScale(scale);
  }
  return {};
}

Result<> SettingsOperations::reset(std::string_view name, const Selected& selected) {
  const auto row = found(name);
  if (!row) return std::unexpected(row.error());
  if ((*row)->isSecret()) return refuseSecret(**row);
  const std::string usual = readSetting(**row, *UserDefaults::inMemory()).text;
  if (auto taken = takeEffect(**row, usual, selected); !taken) return taken;
  auto forgotten = core_.settings.forget((*row)->key);
  if (forgotten) readAgain(**row);
  return forgotten;
}

/// What was found out under the former value; nothing that has not been asked for yet.
void SettingsOperations::readAgain(const SettingRow& row) {
  for (const auto provider : allAgentProviders) {
    const auto& configured = providerFacts(provider).models.configured;
    const bool isPath = row.key == customPathKey(provider);
    if (isPath && core_.runtimes.status(provider).state != RuntimeInstallStatus::State::checking) {
      core_.runtimes.refresh(provider);
    }
    if (isPath || (configured && row.key == configured->key)) core_.catalog.forget(provider);
  }
  const bool isLocal =
      row.key == LocalRuntimeService::kindKey || row.key == LocalRuntimeService::baseURLKey;
  if (isLocal && core_.setup.services().isKnown(AgentProvider::local)) {
    core_.setup.refreshLocalRuntime();
  }
}

void SettingsOperations::changeSecret(std::string_view name, std::string_view text,
                                      std::function<void(Result<>)> done) {
  const auto row = found(name);
  if (!row) return done(std::unexpected(row.error()));
  if (!(*row)->isSecret()) return done(refuse(fmt::format("{} is not a secret.", (*row)->name)));
  const std::string address(text::trimmed(text));
  if (!address.empty() && !TaskletConfiguration::validatedWebhookURL(address)) {
    return done(refuse("The address must begin with https://. Nothing was changed."));
  }
  core_.setup.configureTaskletWebhookURL(address, std::move(done));
}

}  // namespace vantrell
