#include "platform/values/json.h"

#include <algorithm>

namespace vantrell {
namespace {

/// Above this number of members two objects are compared by sorting, so that the work is not
/// quadratic.
constexpr std::size_t membersToScan = 16;

/// Converting the integer instead would round it: 2^53 + 1 would equal 2^53.
bool equalExactly(std::int64_t integer, double number) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (!(number >= -limit && number < limit)) return false;
  const auto truncated = static_cast<std::int64_t>(number);
  return truncated == integer && static_cast<double>(truncated) == number;
}

}  // namespace

JsonObject::JsonObject() = default;
JsonObject::JsonObject(const JsonObject&) = default;
JsonObject::JsonObject(JsonObject&&) noexcept = default;
JsonObject& JsonObject::operator=(const JsonObject&) = default;
JsonObject& JsonObject::operator=(JsonObject&&) noexcept = default;
JsonObject::~JsonObject() = default;

JsonObject::JsonObject(std::initializer_list<JsonGiven> members) {
  members_.reserve(members.size());
  for (const JsonGiven& member : members) {
    if (Json* present = find(member.key)) {
      *present = std::move(member.value);
    } else {
      members_.emplace_back(std::move(member.key), std::move(member.value));
    }
  }
}

const Json* JsonObject::find(std::string_view key) const {
  for (const JsonMember& member : members_) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

Json* JsonObject::find(std::string_view key) {
  return const_cast<Json*>(std::as_const(*this).find(key));
}

void JsonObject::set(std::string key, Json value) {
  if (Json* present = find(key)) {
    *present = std::move(value);
  } else {
    members_.push_back({std::move(key), std::move(value)});
  }
}

bool JsonObject::remove(std::string_view key) {
  return std::erase_if(members_, [key](const JsonMember& member) { return member.key == key; }) > 0;
}

bool JsonObject::empty() const {
  return members_.empty();
}
std::size_t JsonObject::size() const {
  return members_.size();
}
const JsonMember* JsonObject::begin() const {
  return members_.data();
}
const JsonMember* JsonObject::end() const {
  return members_.data() + members_.size();
}

bool JsonObject::operator==(const JsonObject& other) const {
  if (size() != other.size()) return false;
  if (size() > membersToScan) {
    const auto left = json::sortedByKey(*this);
    const auto right = json::sortedByKey(other);
    return std::ranges::equal(left, right, [](const JsonMember* a, const JsonMember* b) {
      return a->key == b->key && a->value == b->value;
    });
  }
  // Keys are unique, so equal sizes and every key found mean equal sets of keys.
  return std::ranges::all_of(members_, [&other](const JsonMember& member) {
    const Json* counterpart = other.find(member.key);
    return counterpart && *counterpart == member.value;
  });
}

bool Json::operator==(const Json& other) const {
  if (value_.index() == other.value_.index()) return value_ == other.value_;
  if (asInteger() && other.asDouble()) return equalExactly(*asInteger(), *other.asDouble());
  if (asDouble() && other.asInteger()) return equalExactly(*other.asInteger(), *asDouble());
  return false;
}

namespace json {

std::vector<const JsonMember*> sortedByKey(const JsonObject& object) {
  std::vector<const JsonMember*> members;
  members.reserve(object.size());
  for (const JsonMember& member : object) members.push_back(&member);
  std::ranges::sort(members, {}, [](const JsonMember* member) -> auto& { return member->key; });
  return members;
}

const std::string* text(const JsonObject& object, std::string_view key) {
  const Json* value = object.find(key);
  return value ? value->asText() : nullptr;
}

std::string textOr(const JsonObject& object, std::string_view key, std::string_view fallback) {
  const std::string* value = text(object, key);
  return value ? *value : std::string(fallback);
}

std::optional<bool> boolean(const JsonObject& object, std::string_view key) {
  const Json* value = object.find(key);
  const bool* boolean = value ? value->asBoolean() : nullptr;
  return boolean ? std::optional(*boolean) : std::nullopt;
}

std::optional<std::int64_t> integer(const JsonObject& object, std::string_view key) {
  const Json* value = object.find(key);
  if (!value) return std::nullopt;
  if (const std::int64_t* integer = value->asInteger()) return *integer;
  const double* number = value->asDouble();
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (!number || !(*number >= -limit && *number < limit)) return std::nullopt;
  return static_cast<std::int64_t>(*number);
}

std::optional<double> number(const JsonObject& object, std::string_view key) {
  const Json* value = object.find(key);
  if (!value) return std::nullopt;
  if (const std::int64_t* integer = value->asInteger()) return static_cast<double>(*integer);
  const double* number = value->asDouble();
  return number ? std::optional(*number) : std::nullopt;
}

const Json::Array* array(const JsonObject& object, std::string_view key) {
  const Json* value = object.find(key);
  return value ? value->asArray() : nullptr;
}

const JsonObject* object(const JsonObject& object, std::string_view key) {
  const Json* value = object.find(key);
  return value ? value->asObject() : nullptr;
}

}  // namespace json
}  // namespace vantrell
