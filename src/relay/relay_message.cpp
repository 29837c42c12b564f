#include "relay/relay_message.h"

#include <algorithm>

#include "platform/text/ascii.h"
#include "platform/values/json.h"

namespace vantrell::relay {

namespace {

bool isPairID(std::string_view text) {
  return text.size() >= 16 && text.size() <= 64 && std::ranges::all_of(text, [](char c) {
           return ascii::isAlphanumeric(c) || c == '_' || c == '-';
         });
}

/// Any URL in visible ASCII: what it says is for the client that asked for it.
bool isLink(std::string_view text) {
  return text.size() <= longestLink && text.contains("://") &&
         std::ranges::all_of(text, [](char c) { return c > ' ' && c < '\x7F'; });
}

std::string message(std::string_view type, JsonObject more = {}) {
  JsonObject object{{"type", type}};
  for (const auto& [key, value] : more) object.set(key, value);
  return json::write(object);
}

}  // namespace

std::expected<Hello, std::string> readHello(std::string_view text) {
  const auto object = json::parseObject(text);
  if (!object) return std::unexpected("The relay expects a JSON object first.");
  if (json::integer(*object, "version") != 1) {
    return std::unexpected("The relay speaks version 1 of its protocol only.");
  }
  const auto role = json::textOr(*object, "role", "");
  Hello hello;
  if (role == "resolve") {
    hello.role = Hello::Role::resolve;
    hello.code = json::textOr(*object, "code", "");
    return hello;
  }
  if (role != "host" && role != "client") {
    return std::unexpected("The role must be host, client or resolve.");
  }
  hello.role = role == "host" ? Hello::Role::host : Hello::Role::client;
  hello.pairID = json::textOr(*object, "pairID", "");
  if (!isPairID(hello.pairID)) return std::unexpected("The pair ID is not valid.");
  if (hello.role == Hello::Role::host) hello.pairingLink = json::textOr(*object, "pairingLink", "");
  if (!hello.pairingLink.empty() && !isLink(hello.pairingLink)) {
    return std::unexpected("The pairing link is not valid.");
  }
  return hello;
}

std::string hostReadyText() {
  return message("ready");
}
std::string clientReadyText(bool isHostOnline) {
  return message("ready", {{"hostOnline", isHostOnline}});
}
std::string peerCountText(std::size_t count) {
  return message("peer_count", {{"count", static_cast<std::int64_t>(count)}});
}
std::string pairingCodeText(std::string_view code, std::chrono::seconds life) {
  return message("pairing_code",
                 {{"code", code}, {"expiresIn", static_cast<std::int64_t>(life.count())}});
}
std::string hostOnlineText() {
  return message("host_online");
}
std::string hostOfflineText() {
  return message("host_offline");
}
std::string pairingLinkText(std::string_view link) {
  return message("pairing_link", {{"link", link}});
}
std::string errorText(std::string_view sentence) {
  return message("error", {{"message", sentence}});
}

}  // namespace vantrell::relay
