#include "remote/client/remote_composer_drafts.h"

#include <algorithm>
#include <vector>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "records/stores/json_fields.h"

namespace vantrell {

static constexpr auto fieldsOf(const MacRemoteComposerDraft*) {
  using R = MacRemoteComposerDraft;
  return fields(field("text", &R::text), field("updatedAt", &R::updatedAt));
}

namespace {

using Drafts = MacRemoteComposerDraftStore::Drafts;

/// Of a file that is read: as many drafts as are stored, of the largest size that is likely.
constexpr std::size_t longestFile = std::size_t{256} << 20;

std::string encode(const Drafts& drafts) {
  std::string out;
  JsonWriter writer(out);
  writeJson(writer, drafts, conversationJson);
  return out;
}

Drafts load(const std::string& path, Date now) {
  Drafts drafts;
  const auto content = files::read(path, longestFile);
  if (!content) return drafts;
  const auto json = json::parse(*content);
  JsonReading reading{conversationJson};
  if (json && readJson(*json, drafts, reading)) return drafts;
  (void)files::quarantine(path, now);
  return {};
}

}  // namespace

MacRemoteComposerDraftStore::MacRemoteComposerDraftStore(const std::string& supportFolder,
                                                         MainQueue& main, BackgroundPool& pool)
    : main_(main),
      path_(supportFolder + "/Remote/composer-drafts.json"),
      queue_(pool, "com.local.vantrell.composer-drafts"),
      drafts_(load(path_, main.now())) {}

std::string MacRemoteComposerDraftStore::text(std::string_view key) const {
  const auto found = drafts_.find(key);
  return found == drafts_.end() ? "" : found->second.text;
}

void MacRemoteComposerDraftStore::set(const std::string& key, std::string_view text) {
  if (text.empty()) {
    drafts_.erase(key);
  } else {
    const auto kept = text.size() <= longestText ? text : text::firstCharacters(text, longestText);
    drafts_.insert_or_assign(key, MacRemoteComposerDraft{std::string(kept), main_.now()});
  }
  save();
}

void MacRemoteComposerDraftStore::prune(std::string_view prefix,
                                        const std::function<bool(const std::string& key)>& isKept) {
  const auto removed = std::erase_if(drafts_, [&](const auto& draft) {
    return draft.first.starts_with(prefix) && !isKept(draft.first);
  });
  if (removed > 0) save();
}

void MacRemoteComposerDraftStore::save() {
  if (drafts_.size() > mostStored) {
    std::vector<Drafts::iterator> oldest;
    for (auto each = drafts_.begin(); each != drafts_.end(); ++each) oldest.push_back(each);
    const auto surplus = static_cast<std::ptrdiff_t>(drafts_.size() - mostStored);
    std::ranges::partial_sort(oldest, oldest.begin() + surplus, {},
                              [](auto each) { return each->second.updatedAt; });
    std::for_each(oldest.begin(), oldest.begin() + surplus,
                  [this](auto each) { drafts_.erase(each); });
  }
  // One that a newer one follows is not written.
  queue_.post([drafts = drafts_, newest = newest_, number = ++*newest_, path = path_] {
    if (number == *newest && files::createOwnerOnlyFolder(files::parent(path))) {
      (void)files::writeAtomically(path, encode(drafts), 0600);
    }
  });
}

}  // namespace vantrell
