#include "records/stores/orchestration_store.h"

#include "records/stores/quarantine.h"

namespace vantrell {

OrchestrationStore::OrchestrationStore(std::string supportFolder, std::function<Date()> now,
                                       std::function<void(const std::string&)> notice,
                                       std::string_view subfolder)
    : folder_(files::standardized(subfolder, supportFolder)),
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

OrchestrationStore::Write OrchestrationStore::prepareText(std::function<std::string()> encode,
                                                          std::string_view name) {
  if (auto kept = keepUnreadable(name); !kept) return [kept] { return kept; };
  return [path = url(name), encode = std::move(encode)]() -> files::Result<> {
    if (auto made = files::createOwnerOnlyFolder(files::parent(path)); !made) return made;
    const std::string text = encode();
    const auto json = json::parse(text);
    return files::writeAtomically(path, json ? json::writePrettySorted(*json) : text, 0600);
  };
}

files::Result<> OrchestrationStore::keepUnreadable(std::string_view name) {
  const auto unread = unreadable_.find(name);
  if (unread == unreadable_.end()) return {};
  if (auto free = quarantine::moveFile(url(name), unread->second, now_(), notice_); !free) {
    return free;
  }
  unreadable_.erase(unread);
  return {};
}

void OrchestrationStore::markUnreadable(std::string_view name, std::string reason) {
  unreadable_.insert_or_assign(std::string(name), std::move(reason));
}

}  // namespace vantrell
