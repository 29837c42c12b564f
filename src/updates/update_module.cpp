#include "updates/update_module.h"

#include "records/values/application.h"
#include "updates/update_installer.h"

namespace vantrell {

UpdateModule::UpdateModule(const Dependencies& given)
    : installation(Installation::of(given.programFolder)),
      controller(std::make_shared<UpdateController>(
          given.main, given.defaults, std::string(applicationVersion),
          installation ? installation->release.feed : "")),
      updater(std::make_shared<Updater>(
          Updater::Dependencies{
              .main = given.main,
              .pool = given.pool,
              .http = given.http,
              .installation = installation,
              .feedURL = [control = std::weak_ptr(controller)]() -> std::optional<std::string> {
                const auto held = control.lock();
                const auto url = held ? held->validatedFeedURL() : std::nullopt;
                return url ? std::optional(url->text()) : std::nullopt;
              },
              .relaunch =
                  [this] {
                    if (relaunch) relaunch();
                  }},
          controller)) {
  if (installation) {
    given.pool.post(
        [where = *installation, &main = given.main, control = std::weak_ptr(controller)] {
          if (!UpdateInstaller::forgetPrevious(where)) return;
          main.post([control] {
            if (const auto held = control.lock()) held->installationFinished();
          });
        });
  }
  controller->connect(
      updater, {.activity = [&given = given.preparation] { return given.updateActivitySummary(); },
                .prepareForImmediateUpdate =
                    [&given = given.preparation] { return given.prepareForImmediateUpdate(); },
                .statusChanged =
                    [&changes = given.changes](const RemoteHostUpdateStatus&) {
                      changes.mark(topics::updates);
                      changes.mark(topics::remoteSnapshot);
                    }});
}

}  // namespace vantrell
