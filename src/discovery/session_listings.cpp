#include "discovery/session_listings.h"

#include <charconv>
#include <initializer_list>

#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/url.h"

namespace vantrell::sessionListings {

namespace {

using enum AgentProvider;
using Activity = ExternalSessionActivity;
using Keys = std::initializer_list<std::string_view>;

/// The first of these members that `read` accepts.
template <typename Read>
auto firstOf(const JsonObject& object, Keys keys, Read read) {
  decltype(read(object.find(""))) found;
  for (const auto key : keys) {
    if ((found = read(object.find(key)))) break;
  }
  return found;
}

std::optional<std::string> text(const JsonObject& object, Keys keys) {
  return firstOf(object, keys, nonempty);
}
std::optional<Date> time(const JsonObject& object, Keys keys) {
  return firstOf(object, keys, date);
}

std::optional<double> numberIn(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// The next column, and the blanks behind it, are taken off.
std::string_view takeColumn(std::string_view& line) {
  const auto end = std::min(line.find_first_of(" \t"), line.size());
  const auto column = line.substr(0, end);
  line.remove_prefix(std::min(line.find_first_not_of(" \t", end), line.size()));
  return column;
}

bool isID(std::string_view text) {
  return text.size() == 36 &&
         text.find_first_not_of("0123456789abcdefABCDEF-") == std::string_view::npos;
}

bool isDay(std::string_view text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isHyphen = at == 4 || at == 7;
    if (isHyphen ? text[at] != '-' : (text[at] < '0' || text[at] > '9')) return false;
  }
  return text.size() == 10;
}

Date day(std::string_view text) {
  return dateFromIso8601(std::string(text) + "T00:00:00Z").value_or(Date::distantPast());
}

const Json::Array* listIn(const JsonObject& object) {
  const auto* list = json::array(object, "sessions");
  return list ? list : json::array(object, "data");
}

std::optional<ExternalProviderSession> openCodeSession(const JsonObject& from) {
  auto id = text(from, {"id", "sessionId"});
  auto folder = text(from, {"directory", "cwd", "path"});
  if (!folder) folder = text(json::objectOrEmpty(from, "project"), {"path"});
  if (!id || !folder) return std::nullopt;
  // One form of the program has the times in an object of their own.
  const auto& times = json::objectOrEmpty(from, "time");
  const auto timeOf = [&](std::string_view name, std::string_view longName) {
    const auto inner = time(times, {name});
    return inner ? inner : time(from, {longName, name});
  };
  const auto created = timeOf("created", "createdAt");
  auto updated = timeOf("updated", "updatedAt");
  if (!updated) updated = created;
  return ExternalProviderSession{.provider = glm,
                                 .sessionID = *std::move(id),
                                 .title = text(from, {"title"}).value_or("GLM session"),
                                 .workspacePath = *std::move(folder),
                                 .createdAt = created.value_or(Date::distantPast()),
                                 .updatedAt = updated.value_or(Date::distantPast()),
                                 .activity = Activity::recent,
                                 .sourceLabel = "OpenCode"};
}

}  // namespace

std::optional<std::string> nonempty(const Json* value) {
  const auto* given = value ? value->asText() : nullptr;
  const auto trimmed = given ? text::trimmed(*given) : std::string_view();
  if (trimmed.empty()) return std::nullopt;
  constexpr std::string_view scheme = "file://";
  if (trimmed.starts_with(scheme)) {
    auto path = trimmed.substr(scheme.size());
    path.remove_prefix(std::min(path.find('/'), path.size()));  // the host
    path = path.substr(0, path.find_first_of("?#"));
    if (!path.empty()) return percentDecoded(path);
  }
  return std::string(trimmed);
}

std::optional<Date> date(const Json* value) {
  if (!value) return std::nullopt;
  std::optional<double> number;
  if (const auto* whole = value->asInteger()) number = static_cast<double>(*whole);
  if (const auto* real = value->asDouble()) number = *real;
  const auto* given = value->asText();
  const auto words = given ? text::trimmed(*given) : std::string_view();
  if (given) number = numberIn(words);
  if (!number) return given ? dateFromIso8601(words) : std::nullopt;
  constexpr double latestInSeconds = 10'000'000'000;  // in the year 2286
  return Date::sinceUnixEpoch(*number > latestInSeconds ? *number / 1000 : *number);
}

std::optional<std::string> workspacePath(const JsonObject& from) {
  auto path = text(from, {"cwd", "workingDirectory", "workspacePath"});
  return path ? path : text(json::objectOrEmpty(from, "environment"), {"cwd"});
}

std::optional<ExternalProviderSession> grokSession(std::string_view line) {
  const auto id = takeColumn(line), created = takeColumn(line), updated = takeColumn(line),
             status = takeColumn(line);
  if (!isID(id) || !isDay(created) || !isDay(updated) || status.empty() || line.empty()) {
    return std::nullopt;
  }
  const bool isActive = text::lowercased(status).contains("active");
  return ExternalProviderSession{.provider = grok,
                                 .sessionID = std::string(id),
                                 .title = std::string(line),
                                 .createdAt = day(created),
                                 .updatedAt = day(updated),
                                 .activity = isActive ? Activity::active : Activity::recent,
                                 .sourceLabel = "Grok Build"};
}

std::optional<ExternalProviderSession> codexSession(const JsonObject& thread,
                                                    const std::set<std::string>& loaded) {
  auto id = text(thread, {"id"});
  auto folder = workspacePath(thread);
  if (!id || !folder) return std::nullopt;
  const auto status = json::textOr(json::objectOrEmpty(thread, "status"), "type", "");
  Activity activity = loaded.contains(*id) ? Activity::idle : Activity::recent;
  if (status == "active") activity = Activity::active;
  if (status == "idle") activity = Activity::idle;
  const auto created = time(thread, {"createdAt"});
  return ExternalProviderSession{
      .provider = codex,
      .sessionID = *std::move(id),
      .title = text(thread, {"name", "preview"}).value_or("Codex task"),
      .workspacePath = *std::move(folder),
      .createdAt = created.value_or(Date::distantPast()),
      .updatedAt = time(thread, {"updatedAt", "createdAt"}).value_or(Date::distantPast()),
      .activity = activity,
      .sourceLabel = "Codex"};
}

std::vector<ExternalProviderSession> parseACPSessions(const JsonObject& result,
                                                      AgentProvider provider,
                                                      std::string_view sourceLabel) {
  std::vector<ExternalProviderSession> sessions;
  const auto* list = listIn(result);
  for (const auto& each : list ? *list : Json::Array()) {
    const auto* from = each.asObject();
    auto id = from ? text(*from, {"sessionId", "id"}) : std::nullopt;
    auto folder = from ? workspacePath(*from) : std::nullopt;
    if (!id || !folder) continue;
    const bool isActive = json::boolean(*from, "active").value_or(false) ||
                          text::lowercased(json::textOr(*from, "status", "")) == "active";
    sessions.push_back(
        {.provider = provider,
         .sessionID = *std::move(id),
         .title = text(*from, {"title", "name", "summary"})
                      .value_or(std::string(sourceLabel) + " session"),
         .workspacePath = *std::move(folder),
         .createdAt = time(*from, {"createdAt", "created"}).value_or(Date::distantPast()),
         .updatedAt = time(*from, {"updatedAt", "updated", "lastUsedAt", "createdAt", "created"})
                          .value_or(Date::distantPast()),
         .activity = isActive ? Activity::active : Activity::recent,
         .sourceLabel = std::string(sourceLabel)});
  }
  return sessions;
}

std::expected<std::vector<ExternalProviderSession>, std::string> openCodeSessions(
    std::string_view output) {
  // Warnings stand in front of the list, in the same stream.
  std::size_t start = 0;
  while (start < output.size() && output[start] != '[' && output[start] != '{') {
    const auto lineEnd = output.find('\n', start);
    start = lineEnd == std::string_view::npos ? output.size() : lineEnd + 1;
  }
  std::vector<ExternalProviderSession> sessions;
  if (text::trimmed(output).empty()) return sessions;  // how it says that there are none
  const auto json = json::parse(start < output.size() ? output.substr(start) : output);
  if (!json) return std::unexpected(json.error().message);
  const auto* list = json->asObject() ? listIn(*json->asObject()) : json->asArray();
  for (const auto& each : list ? *list : Json::Array()) {
    auto session = each.asObject() ? openCodeSession(*each.asObject()) : std::nullopt;
    if (session) sessions.push_back(*std::move(session));
  }
  return sessions;
}

}  // namespace vantrell::sessionListings
