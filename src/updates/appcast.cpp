#include "updates/appcast.h"

#include <charconv>
#include <fmt/format.h>

#include "platform/archive/xml.h"
#include "platform/crypto/crypto.h"
#include "platform/text/ascii.h"
#include "platform/text/text.h"
#include "platform/values/url.h"

namespace vantrell {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isLetter(char c) {
  return ascii::isAlphanumeric(c) && !isDigit(c);
}

/// Takes the next number or word off the text; empty at its end.
std::string_view nextPart(std::string_view& rest) {
  while (!rest.empty() && !ascii::isAlphanumeric(rest.front())) rest.remove_prefix(1);
  if (rest.empty()) return rest;
  std::size_t length = 1;
  const auto isAlike = isDigit(rest.front()) ? isDigit : isLetter;
  while (length < rest.size() && isAlike(rest[length])) ++length;
  const auto part = rest.substr(0, length);
  rest.remove_prefix(length);
  return part;
}

int sign(auto order) {
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

int compareNumbers(std::string_view left, std::string_view right) {
  const auto trim = [](std::string_view digits) {
    const auto first = digits.find_first_not_of('0');
    return first == digits.npos ? std::string_view() : digits.substr(first);
  };
  left = trim(left);
  right = trim(right);
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  return sign(left.compare(right));
}

std::string textOf(const XmlElement* element) {
  return element ? std::string(text::trimmed(element->text)) : "";
}

std::optional<AppcastItem> readItem(const XmlElement& element) {
  AppcastItem item;
  item.version = textOf(element.child("version"));
  item.displayVersion = textOf(element.child("shortVersionString"));
  item.isInformationOnly = element.child("informationalUpdate") != nullptr;
  if (element.child("channel")) return std::nullopt;
  const auto* enclosure = element.child("enclosure");
  if (enclosure) {
    const auto system = enclosure->attribute("os");
    if (!system.empty() && system != "linux") return std::nullopt;
    if (item.version.empty()) item.version = enclosure->attribute("version");
    if (item.displayVersion.empty()) {
      item.displayVersion = enclosure->attribute("shortVersionString");
    }
  }
  if (item.version.empty()) return std::nullopt;
  if (item.displayVersion.empty()) item.displayVersion = item.version;
  if (item.isInformationOnly) return item;
  if (!enclosure) return std::nullopt;
  item.archiveURL = enclosure->attribute("url");
  const auto length = enclosure->attribute("length");
  std::from_chars(length.data(), length.data() + length.size(), item.length);
  const auto url = Url::parse(item.archiveURL);
  const auto signature = crypto::fromBase64(enclosure->attribute("edSignature"));
  if (!url || url->scheme() != "https" || !signature || signature->size() != 64) {
    return std::nullopt;
  }
  item.signature = *signature;
  return item;
}

}  // namespace

int compareVersions(std::string_view left, std::string_view right) {
  for (;;) {
    const auto one = nextPart(left);
    const auto other = nextPart(right);
    if (one.empty() && other.empty()) return 0;
    // What goes on with a word is a version before the other one.
    if (one.empty()) return isDigit(other.front()) ? -1 : 1;
    if (other.empty()) return isDigit(one.front()) ? 1 : -1;
    const bool oneIsNumber = isDigit(one.front());
    if (oneIsNumber != isDigit(other.front())) return oneIsNumber ? 1 : -1;
    const int order = oneIsNumber ? compareNumbers(one, other) : sign(one.compare(other));
    if (order != 0) return order;
  }
}

std::expected<std::vector<AppcastItem>, std::string> parseAppcast(std::string_view document) {
  const auto root = xml::parse(document);
  if (!root) {
    return std::unexpected(fmt::format("The update feed cannot be read: {}.", root.error()));
  }
  const auto* channel = root->child("channel");
  if (root->name != "rss" || !channel) {
    return std::unexpected("The update feed cannot be read: it is not an appcast.");
  }
  std::vector<AppcastItem> items;
  for (const auto& element : channel->children) {
    if (element.name != "item") continue;
    if (auto item = readItem(element)) items.push_back(std::move(*item));
  }
  return items;
}

std::optional<AppcastItem> newestUpdate(const std::vector<AppcastItem>& items,
                                        std::string_view currentVersion) {
  const AppcastItem* newest = nullptr;
  for (const auto& item : items) {
    if (compareVersions(item.version, newest ? newest->version : currentVersion) > 0) {
      newest = &item;
    }
  }
  return newest ? std::optional(*newest) : std::nullopt;
}

}  // namespace vantrell
