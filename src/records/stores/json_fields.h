// One description of a record's fields serves every store and every wire. The description is data:
//
//     constexpr auto fieldsOf(const QueuedPrompt*) {
//       return fields(field("id", &QueuedPrompt::id),
//                     field("attachments", &QueuedPrompt::attachments, orDefault));
//     }
//
// A field of type std::optional may be missing (or null) and is not written when absent; a field
// with `orDefault` may be missing, takes the value of a default-made member, and is always written;
// any other field is required. What differs between the stores (the form of dates) is the policy.
//
// Heavy with templates: include it in the .cpp files that encode and decode, nowhere else.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/values/date.h"
#include "platform/values/json.h"
#include "platform/values/uuid.h"
#include "records/stores/json_policy.h"
#include "records/values/raw_text.h"

namespace vantrell {

struct OrDefault {};
inline constexpr OrDefault orDefault{};

template <typename Record, typename Value>
struct JsonField {
  std::string_view key;
  Value Record::* member;
  bool mayBeMissing = false;
};

template <typename Record, typename Value>
constexpr auto field(std::string_view key, Value Record::* member) {
  return JsonField<Record, Value>{key, member, false};
}
template <typename Record, typename Value>
constexpr auto field(std::string_view key, Value Record::* member, OrDefault) {
  return JsonField<Record, Value>{key, member, true};
}
template <typename... Fields>
constexpr auto fields(Fields... all) {
  return std::tuple(all...);
}

template <typename T>
concept DescribedRecord = requires(const T* record) { fieldsOf(record); };

// ---- writing ------------------------------------------------------------------------------------

void writeJson(JsonWriter& writer, Date date, const JsonPolicy& policy);
void writeJson(JsonWriter& writer, const Uuid& id, const JsonPolicy& policy);
inline void writeJson(JsonWriter& writer, const std::string& text, const JsonPolicy&) {
  writer.value(std::string_view(text));
}
inline void writeJson(JsonWriter& writer, bool value, const JsonPolicy&) {
  writer.value(value);
}
inline void writeJson(JsonWriter& writer, std::int64_t value, const JsonPolicy&) {
  writer.value(value);
}
inline void writeJson(JsonWriter& writer, double value, const JsonPolicy&) {
  writer.value(value);
}
template <HasRawTexts E>
void writeJson(JsonWriter& writer, E value, const JsonPolicy&) {
  writer.value(rawText(value));
}
template <typename T, typename Compare>
void writeJson(JsonWriter& writer, const std::map<std::string, T, Compare>& values,
               const JsonPolicy& policy) {
  writer.beginObject();
  for (const auto& [key, value] : values) {
    writer.key(key);
    writeJson(writer, value, policy);
  }
  writer.endObject();
}

// Declared before the list so that a list of records finds it.
template <DescribedRecord Record>
void writeJson(JsonWriter& writer, const Record& record, const JsonPolicy& policy);

template <typename List>
  requires requires(const List& list) {
    list.begin();
    list.size();
    list[0];
  } && (!std::same_as<List, std::string>)
void writeJson(JsonWriter& writer, const List& list, const JsonPolicy& policy) {
  writer.beginArray();
  for (const auto& element : list) writeJson(writer, element, policy);
  writer.endArray();
}

namespace detail {
template <typename T>
inline constexpr bool isOptional = false;
template <typename T>
inline constexpr bool isOptional<std::optional<T>> = true;
}  // namespace detail

/// The fields of `described`, which may be fewer than the record has.
template <typename Record, typename Fields>
void writeFields(JsonWriter& writer, const Record& record, const Fields& described,
                 const JsonPolicy& policy) {
  writer.beginObject();
  std::apply(
      [&](const auto&... each) {
        const auto write = [&](const auto& one) {
          const auto& value = record.*(one.member);
          using Value = std::remove_cvref_t<decltype(value)>;
          if constexpr (detail::isOptional<Value>) {
            if (!value) return;
            writer.key(one.key);
            writeJson(writer, *value, policy);
          } else {
            writer.key(one.key);
            writeJson(writer, value, policy);
          }
        };
        (write(each), ...);
      },
      described);
  writer.endObject();
}

template <DescribedRecord Record>
void writeJson(JsonWriter& writer, const Record& record, const JsonPolicy& policy) {
  writeFields(writer, record, fieldsOf(static_cast<const Record*>(nullptr)), policy);
}

// ---- reading ------------------------------------------------------------------------------------
// Each answers true, or false with the error in the reading.

/// The policy of a reading, and the first error with the way to it.
struct JsonReading {
  const JsonPolicy& policy;
  DecodeError error{};

  bool fail(std::string message) {
    error.message = std::move(message);
    return false;
  }
  /// Puts a step of the way in front while the error travels outwards.
  bool failedAt(std::string_view step) {
    error.path = error.path.empty() ? std::string(step) : std::string(step) + "." + error.path;
    return false;
  }
};

bool readJson(const Json& json, Date& date, JsonReading& reading);
bool readJson(const Json& json, Uuid& id, JsonReading& reading);
bool readJson(const Json& json, std::string& text, JsonReading& reading);
bool readJson(const Json& json, bool& value, JsonReading& reading);
bool readJson(const Json& json, std::int64_t& value, JsonReading& reading);
bool readJson(const Json& json, double& value, JsonReading& reading);

template <HasRawTexts E>
bool readJson(const Json& json, E& value, JsonReading& reading) {
  const std::string* text = json.asText();
  if (!text) return reading.fail("expected a text");
  const auto known = fromRawText<E>(*text);
  if (!known) return reading.fail("unknown value \"" + *text + "\"");
  value = *known;
  return true;
}

template <typename T, typename Compare>
bool readJson(const Json& json, std::map<std::string, T, Compare>& values, JsonReading& reading) {
  const JsonObject* object = json.asObject();
  if (!object) return reading.fail("expected an object");
  for (const auto& [key, element] : *object) {
    if (!readJson(element, values[key], reading)) return reading.failedAt(key);
  }
  return true;
}

template <DescribedRecord Record>
bool readJson(const Json& json, Record& record, JsonReading& reading);

template <typename T>
bool readJson(const Json& json, std::vector<T>& list, JsonReading& reading) {
  const Json::Array* array = json.asArray();
  if (!array) return reading.fail("expected a list");
  list.reserve(array->size());
  for (std::size_t i = 0; i < array->size(); ++i) {
    if (!readJson((*array)[i], list.emplace_back(), reading)) {
      return reading.failedAt(std::to_string(i));
    }
  }
  return true;
}

namespace detail {
template <typename Record, typename Value>
bool readField(const JsonObject& object, const JsonField<Record, Value>& described, Record& record,
               JsonReading& reading) {
  const Json* json = object.find(described.key);
  const bool missing = !json || json->isNull();
  auto& value = record.*(described.member);
  if constexpr (isOptional<Value>) {
    if (missing) return true;
    if (readJson(*json, value.emplace(), reading)) return true;
  } else {
    if (missing && described.mayBeMissing) return true;
    if (!missing && readJson(*json, value, reading)) return true;
    if (missing) reading.fail("missing");
  }
  return reading.failedAt(described.key);
}
}  // namespace detail

template <typename Record, typename Fields>
bool readFields(const Json& json, Record& record, const Fields& described, JsonReading& reading) {
  const JsonObject* object = json.asObject();
  if (!object) return reading.fail("expected an object");
  return std::apply(
      [&](const auto&... each) {
        return (detail::readField(*object, each, record, reading) && ...);
      },
      described);
}

template <DescribedRecord Record>
bool readJson(const Json& json, Record& record, JsonReading& reading) {
  return readFields(json, record, fieldsOf(static_cast<const Record*>(nullptr)), reading);
}

}  // namespace vantrell
