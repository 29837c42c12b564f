#include "records/orchestration_store.h"

#include <fmt/format.h>

namespace vantrell {

OrchestrationStore::OrchestrationStore(std::string supportFolder, std::function<Date()> now,
                                       std::function<void(const std::string&)> notice)
    : folder_(files::standardized("Orchestration", supportFolder)),
      now_(std::move(now)),
      notice_(std::move(notice)) {}

std::string OrchestrationStore::url(std::string_view name) const {
  return files::standardized(name, folder_);
}

std::optional<Json> OrchestrationStore::loadJson(std::string_view name) {
  const auto place = unreadable_.find(name);
  if (place != unreadable_.end()) unreadable_.erase(place);
  const auto text = files::read(url(name));
  if (!text) {
    if (text.error().code != std::errc::no_such_file_or_directory) {
      markUnreadable(name, text.error().description);
    }
    return std::nullopt;
  }
  auto json = json::parse(*text);
  if (json) return std::move(*json);
  markUnreadable(name, json.error().message);
  return std::nullopt;
}

files::Result<> OrchestrationStore::saveText(std::string_view text, std::string_view name) {
  const std::string path = url(name);
  if (auto made = files::createOwnerOnlyFolder(files::parent(path)); !made) return made;
  if (const auto unread = unreadable_.find(name); unread != unreadable_.end()) {
    const auto kept = files::keepAside(path, now_());
    // Somebody may have taken it away since.
    if (!kept && kept.error().code != std::errc::no_such_file_or_directory) {
      return std::unexpected(kept.error());
    }
    if (kept) {
      notice_(fmt::format("{} could not be read ({}). It was kept as \"{}\"; a new one begins.",
                          path, unread->second, *kept));
    }
    unreadable_.erase(unread);
  }
  const auto json = json::parse(text);
  return files::writeAtomically(path, json ? json::writePrettySorted(*json) : std::string(text),
                                0600);
}

void OrchestrationStore::markUnreadable(std::string_view name, std::string reason) {
  unreadable_.insert_or_assign(std::string(name), std::move(reason));
}

}  // namespace vantrell
