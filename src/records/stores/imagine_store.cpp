#include "records/stores/imagine_store.h"

#include <fmt/format.h>

#include "platform/values/url.h"
#include "records/stores/imagine_directory.h"
#include "records/stores/json_fields.h"
#include "records/stores/quarantine.h"

namespace vantrell {

static constexpr auto fieldsOf(const ImagineItem*) {
  using R = ImagineItem;
  return fields(field("id", &R::id), field("kind", &R::kind), field("prompt", &R::prompt),
                field("localPath", &R::localPath), field("fileName", &R::fileName),
                field("createdAt", &R::createdAt));
}

namespace {

constexpr std::string_view historyName = "history.json";

struct History {
  std::vector<ImagineItem> items;
  std::optional<std::string> whyUnreadable;
};

History readHistory(const std::string& folder) {
  const auto text = files::read(files::standardized(historyName, folder));
  if (!text) {
    if (text.error().code == std::errc::no_such_file_or_directory) return {};
    return {{}, text.error().description};
  }
  const auto json = json::parse(*text);
  if (!json) return {{}, json.error().message};
  History history;
  JsonReading reading{conversationJson};
  if (!readJson(*json, history.items, reading)) return {{}, reading.error.text()};
  // A library that was moved as a whole has its files under other paths, and the same names.
  for (auto& item : history.items) {
    std::string moved = files::standardized(files::lastComponent(item.fileName), folder);
    if (!files::exists(item.localPath) && !item.fileName.empty()) {
      item.localPath = std::move(moved);
    }
  }
  std::erase_if(history.items, [](const ImagineItem& item) {
    return !files::exists(item.localPath) || files::isFolder(item.localPath);
  });
  return history;
}

}  // namespace

ImagineStore::ImagineStore(std::string supportFolder, std::function<Date()> now,
                           std::function<void(const std::string&)> notice)
    : supportFolder_(std::move(supportFolder)), now_(std::move(now)), notice_(std::move(notice)) {}

files::Result<std::string> ImagineStore::directory() const {
  return imagineDirectory(supportFolder_);
}

std::vector<ImagineItem> ImagineStore::load() {
  whyUnreadable_.reset();
  if (!existingImagineDirectory(supportFolder_)) return {};
  const auto folder = directory();
  if (!folder) {
    // A later save may reach it, and must not take the place of a history that nobody has read.
    whyUnreadable_ = folder.error().description;
    return {};
  }
  History history = readHistory(*folder);
  whyUnreadable_ = std::move(history.whyUnreadable);
  return std::move(history.items);
}

std::vector<ImagineItem> ImagineStore::peek(const std::string& supportFolder) {
  const auto folder = existingImagineDirectory(supportFolder);
  return folder ? readHistory(*folder).items : std::vector<ImagineItem>();
}

std::optional<std::string> ImagineStore::problem(const std::string& supportFolder) {
  const auto folder = existingImagineDirectory(supportFolder);
  const auto why = folder ? readHistory(*folder).whyUnreadable : std::nullopt;
  if (!why) return std::nullopt;
  return fmt::format("{} could not be read ({}).", files::standardized(historyName, *folder), *why);
}

files::Result<> ImagineStore::save(const std::vector<ImagineItem>& items) {
  const auto folder = directory();
  if (!folder) return std::unexpected(folder.error());
  const std::string path = files::standardized(historyName, *folder);
  if (whyUnreadable_) {
    if (auto free = quarantine::moveFile(path, *whyUnreadable_, now_(), notice_); !free)
      return free;
    whyUnreadable_.reset();
  }
  std::string text;
  JsonWriter writer(text);
  vantrell::writeJson(writer, items, conversationJson);
  return files::writeAtomically(path, text, 0600);
}

std::string ImagineStore::sourceOf(const std::string& path) {
  std::string asWritten = files::standardized(path);
  if (!path.starts_with("///") || files::exists(asWritten)) return asWritten;
  return files::standardized(percentDecoded(asWritten));
}

files::Result<std::optional<ImagineItem>> ImagineStore::importMedia(
    const std::string& supportFolder, const std::string& path, const std::string& prompt, Date now,
    const std::stop_token& stop) {
  const std::string source = sourceOf(path);
  if (!files::exists(source) || files::isFolder(source)) return std::nullopt;
  const std::string extension = mediaExtension(source);
  const auto kind = kindOfExtension(extension);
  if (!kind) return std::nullopt;
  const auto folder = imagineDirectory(supportFolder);
  if (!folder) return std::unexpected(folder.error());
  const std::string name = fmt::format("{}.{}", Uuid::random().text(), extension);
  const std::string copy = files::standardized(name, *folder);
  if (const auto copied = files::copyFile(source, copy, stop); !copied) {
    return std::unexpected(copied.error());
  }
  return ImagineItem{.id = Uuid::random(),
                     .kind = *kind,
                     .prompt = prompt,
                     .localPath = copy,
                     .fileName = name,
                     .createdAt = now};
}

void writeJson(JsonWriter& writer, const ImagineItem& item) {
  writeJson(writer, item, conversationJson);
}

}  // namespace vantrell
