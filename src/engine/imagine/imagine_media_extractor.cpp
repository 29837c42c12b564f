#include "engine/imagine/imagine_media_extractor.h"

#include <algorithm>

namespace vantrell {

namespace {

using Paths = std::set<std::string>;

constexpr std::string_view extensions[] = {".jpg", ".jpeg", ".png", ".webp", ".gif",
                                           ".mp4", ".mov",  ".m4v", ".webm"};

char lowered(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// The length of the extension that the text begins with, or 0.
std::size_t extensionLength(std::string_view text) {
  for (const auto extension : extensions) {
    if (std::ranges::equal(text.substr(0, extension.size()), extension, {}, lowered)) {
      return extension.size();
    }
  }
  return 0;
}

/// In a stretch that holds none of ImagineMediaExtractor::endsOfPaths. Where no extension follows
/// the first slash, none follows a later one, so that every byte is looked at once.
void searchStretch(std::string_view stretch, Paths& found) {
  for (auto slash = stretch.find('/'); slash != stretch.npos; slash = stretch.find('/')) {
    stretch.remove_prefix(slash);
    std::size_t length = 0;
    // Something stands between the slash and the dot.
    auto dot = stretch.find('.', 2);
    for (; dot != stretch.npos; dot = stretch.find('.', dot + 1)) {
      length = extensionLength(stretch.substr(dot));
      if (length != 0) break;
    }
    if (length == 0) return;
    found.emplace(stretch.substr(0, dot + length));
    stretch.remove_prefix(dot + length);
  }
}

void searchText(std::string_view text, Paths& found) {
  while (!text.empty()) {
    const auto end = std::min(text.find_first_of(ImagineMediaExtractor::endsOfPaths), text.size());
    searchStretch(text.substr(0, end), found);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void search(const Json& value, Paths& found);

void search(const JsonObject& object, Paths& found) {
  for (const auto& member : object) search(member.value, found);
}

void search(const Json& value, Paths& found) {
  if (const auto* object = value.asObject()) return search(*object, found);
  if (const auto* list = value.asArray()) {
    for (const auto& each : *list) search(each, found);
    return;
  }
  const std::string* text = value.asText();
  if (!text) return;
  searchText(*text, found);
  // A path needs a slash; this spares the reading of most texts.
  if (text->find('/') == text->npos && text->find('\\') == text->npos) return;
  if (const auto inner = json::parse(*text)) search(*inner, found);
}

}  // namespace

std::set<std::string> ImagineMediaExtractor::paths(const JsonObject& update) {
  Paths found;
  search(update, found);
  return found;
}

}  // namespace vantrell
