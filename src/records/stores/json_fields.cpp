#include "records/stores/json_fields.h"

#include <cmath>

namespace vantrell {

void writeJson(JsonWriter& writer, Date date, const JsonPolicy& policy) {
  switch (policy.dates) {
    case JsonPolicy::DateForm::secondsSinceReference:
      return writer.value(date.secondsSinceReference());
    case JsonPolicy::DateForm::iso8601: return writer.value(iso8601(date));
    case JsonPolicy::DateForm::secondsSinceUnixEpoch:
      return writer.value(date.secondsSinceUnixEpoch());
  }
}

void writeJson(JsonWriter& writer, const Uuid& id, const JsonPolicy&) {
  writer.value(id.text());
}

bool readJson(const Json& json, Date& date, JsonReading& reading) {
  if (reading.policy.dates == JsonPolicy::DateForm::iso8601) {
    const std::string* text = json.asText();
    const auto parsed = text ? dateFromIso8601(*text) : std::nullopt;
    if (!parsed) return reading.fail("expected an ISO 8601 date");
    date = *parsed;
    return true;
  }
  double seconds = 0;
  if (!readJson(json, seconds, reading)) return reading.fail("expected a date as a number");
  date = reading.policy.dates == JsonPolicy::DateForm::secondsSinceReference
             ? Date(seconds)
             : Date::sinceUnixEpoch(seconds);
  return true;
}

bool readJson(const Json& json, Uuid& id, JsonReading& reading) {
  const std::string* text = json.asText();
  const auto parsed = text ? Uuid::parse(*text) : std::nullopt;
  if (!parsed) return reading.fail("expected a UUID");
  id = *parsed;
  return true;
}

bool readJson(const Json& json, std::string& text, JsonReading& reading) {
  const std::string* value = json.asText();
  if (!value) return reading.fail("expected a text");
  text = *value;
  return true;
}

bool readJson(const Json& json, bool& value, JsonReading& reading) {
  const bool* read = json.asBoolean();
  if (!read) return reading.fail("expected true or false");
  value = *read;
  return true;
}

bool readJson(const Json& json, std::int64_t& value, JsonReading& reading) {
  constexpr double limit = 9007199254740992.0;  // 2^53: above it a double is no exact integer
  if (const auto* integer = json.asInteger()) {
    value = *integer;
  } else if (const auto* number = json.asDouble();
             number && std::trunc(*number) == *number && std::abs(*number) <= limit) {
    value = static_cast<std::int64_t>(*number);
  } else {
    return reading.fail("expected an integer");
  }
  return true;
}

bool readJson(const Json& json, double& value, JsonReading& reading) {
  if (const auto* number = json.asDouble()) {
    value = *number;
  } else if (const auto* integer = json.asInteger()) {
    value = static_cast<double>(*integer);
  } else {
    return reading.fail("expected a number");
  }
  return true;
}

}  // namespace vantrell
