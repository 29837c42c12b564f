#include "app/state_folders.h"

#include <fmt/format.h>

#include "records/application.h"

namespace vantrell {

std::expected<StateFolders, std::string> StateFolders::make(std::string support,
                                                            std::string config) {
  if (support.empty()) support = files::standardized(applicationName, files::dataFolder());
  if (config.empty()) config = files::standardized(applicationName, files::configFolder());
  for (const auto& folder : {support, config}) {
    if (const auto made = files::createOwnerOnlyFolder(folder); !made) {
      return std::unexpected(fmt::format(
          "Vantrell cannot keep its state: {}. Make the folder writable, or name another one with "
          "XDG_DATA_HOME and XDG_CONFIG_HOME.",
          made.error().description));
    }
  }
  return StateFolders{std::move(support), std::move(config)};
}

std::expected<files::LockFile, std::string> lockState(const StateFolders& folders) {
  auto lock = files::LockFile::acquire(folders.support + "/lock");
  if (lock) return std::move(*lock);
  if (lock.error().error) return std::unexpected(lock.error().error->description);
  const auto holder = lock.error().holder;
  return std::unexpected(
      fmt::format("Vantrell is already running{}. Nothing was changed; use that one, or end it "
                  "first.",
                  holder ? fmt::format(" (process {})", *holder) : ""));
}

}  // namespace vantrell
