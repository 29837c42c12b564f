#include "runtimes/codex/codex_usage.h"

#include "platform/values/json_objects.h"

namespace vantrell::codex {

namespace {

constexpr double wholeWindow = 100;  // percent

struct Window {
  std::optional<double> usedPercent;
  std::optional<Date> resetsAt;

  bool isUsedUp() const { return usedPercent && *usedPercent >= wholeWindow; }
};

Window windowOf(const JsonObject& limits, std::string_view key) {
  const JsonObject& given = json::objectOrEmpty(limits, key);
  Window window{json::number(given, "usedPercent"), std::nullopt};
  if (const auto seconds = json::number(given, "resetsAt")) {
    window.resetsAt = Date::sinceUnixEpoch(*seconds);
  }
  return window;
}

const JsonObject& limitsOf(const JsonObject& reading) {
  const JsonObject* inner = json::object(reading, "rateLimits");
  return inner ? *inner : reading;
}

/// When the provider can be used again: the last of the windows that stand in the way.
std::optional<Date> resetOf(const Window& primary, const Window& secondary, bool isExhausted) {
  // An absent date is earlier than any other.
  const auto ofUsedUp = std::max(primary.isUsedUp() ? primary.resetsAt : std::nullopt,
                                 secondary.isUsedUp() ? secondary.resetsAt : std::nullopt);
  if (ofUsedUp) return ofUsedUp;
  if (isExhausted) return std::max(primary.resetsAt, secondary.resetsAt);
  return primary.resetsAt ? primary.resetsAt : secondary.resetsAt;
}

void readCredits(const JsonObject& credits, ProviderUsage& usage) {
  usage.manualResetCredits = json::integer(credits, "availableCount");
  for (const JsonObject* credit : json::objects(credits, "credits")) {
    if (json::textOr(*credit, "status", "") != "available") continue;
    if (const std::string* id = json::text(*credit, "id")) usage.manualResetCreditID = *id;
    return;
  }
}

/// The members of `changes` over those of `base`; null changes nothing.
JsonObject overlaid(const JsonObject& base, const JsonObject& changes) {
  JsonObject result = base;
  for (const auto& [key, value] : changes) {
    if (value.isNull()) continue;
    const JsonObject* before = json::object(base, key);
    result.set(key,
               before && value.asObject() ? Json(overlaid(*before, *value.asObject())) : value);
  }
  return result;
}

}  // namespace

ProviderUsage parseRateLimits(const JsonObject& reading) {
  const JsonObject& limits = limitsOf(reading);
  const Window primary = windowOf(limits, "primary");
  const Window secondary = windowOf(limits, "secondary");

  ProviderUsage usage;
  usage.provider = AgentProvider::codex;
  usage.primaryUsedPercent = primary.usedPercent;
  usage.secondaryUsedPercent = secondary.usedPercent;
  usage.exhausted = json::text(limits, "rateLimitReachedType") ||
                    json::boolean(limits, "spendControlReached").value_or(false) ||
                    primary.isUsedUp() || secondary.isUsedUp();
  usage.resetsAt = resetOf(primary, secondary, usage.exhausted);
  if (const std::string* plan = json::text(limits, "planType")) usage.planType = *plan;
  readCredits(json::objectOrEmpty(reading, "rateLimitResetCredits"), usage);
  return usage;
}

ProviderUsage CodexAllowance::read(JsonObject reading) {
  last_ = std::move(reading);
  return parseRateLimits(last_);
}

ProviderUsage CodexAllowance::update(const JsonObject& update) {
  JsonObject reading = update;
  const JsonObject* credits = json::object(last_, "rateLimitResetCredits");
  if (credits && !json::object(update, "rateLimitResetCredits")) {
    reading.set("rateLimitResetCredits", *credits);
  }
  // An account may have several limits, each with windows of its own.
  const JsonObject& before = limitsOf(last_);
  const JsonObject& changes = limitsOf(update);
  const std::string* known = json::text(before, "limitId");
  const std::string* named = json::text(changes, "limitId");
  if (known && named && *known != *named) return parseRateLimits(reading);

  // That a limit was reached is no lasting fact: an update that does not repeat it lifts it.
  JsonObject kept = before;
  kept.remove("rateLimitReachedType");
  kept.remove("spendControlReached");
  reading.set("rateLimits", overlaid(kept, changes));
  return read(std::move(reading));
}

}  // namespace vantrell::codex
