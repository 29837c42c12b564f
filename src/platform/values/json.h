// JSON: a small value type that keeps the order of keys, a reader, and writers.
//
// The reader takes what agents really send: a lone surrogate escape becomes U+FFFD, a number too
// large for 64 bits becomes a double. It refuses invalid UTF-8, trailing text and nesting deeper
// than 512, and is linear in its input. Any thread.
#pragma once

#include <concepts>
#include <cstdint>
#include <expected>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vantrell {

class Json;
struct JsonMember;
struct JsonGiven;

/// A dictionary that keeps insertion order. Keys are unique: setting or reading one twice keeps the
/// last value at the first place. Look-ups scan, which is fastest for the sizes that occur.
class JsonObject {
 public:
  JsonObject();
  JsonObject(std::initializer_list<JsonGiven> members);
  JsonObject(const JsonObject&);
  JsonObject(JsonObject&&) noexcept;
  JsonObject& operator=(const JsonObject&);
  JsonObject& operator=(JsonObject&&) noexcept;
  ~JsonObject();

  const Json* find(std::string_view key) const;
  Json* find(std::string_view key);
  void set(std::string key, Json value);
  bool remove(std::string_view key);
  bool empty() const;
  std::size_t size() const;
  const JsonMember* begin() const;
  const JsonMember* end() const;

  /// Equal as JSON: in any order of the keys.
  bool operator==(const JsonObject& other) const;

 private:
  friend class JsonReader;
  std::vector<JsonMember> members_;
};

class Json {
 public:
  using Array = std::vector<Json>;

  Json() = default;  // null
  Json(std::nullptr_t) {}
  /// Exactly bool: a pointer forgotten to be dereferenced must not become true.
  Json(std::same_as<bool> auto value) : value_(value) {}
  Json(int value) : value_(static_cast<std::int64_t>(value)) {}
  Json(std::int64_t value) : value_(value) {}
  Json(double value) : value_(value) {}
  Json(std::string value) : value_(std::move(value)) {}
  Json(std::string_view value) : value_(std::string(value)) {}
  Json(const char* value) : value_(std::string(value)) {}
  Json(Array value) : value_(std::move(value)) {}
  Json(JsonObject value) : value_(std::move(value)) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(value_); }
  bool isNumber() const { return asInteger() || asDouble(); }

  // Each gives a pointer to the value when it is of that kind, else null.
  const bool* asBoolean() const { return std::get_if<bool>(&value_); }
  const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&value_); }
  const double* asDouble() const { return std::get_if<double>(&value_); }
  const std::string* asText() const { return std::get_if<std::string>(&value_); }
  std::string* asText() { return std::get_if<std::string>(&value_); }
  const Array* asArray() const { return std::get_if<Array>(&value_); }
  Array* asArray() { return std::get_if<Array>(&value_); }
  const JsonObject* asObject() const { return std::get_if<JsonObject>(&value_); }
  JsonObject* asObject() { return std::get_if<JsonObject>(&value_); }

  /// Equal as JSON: 1 equals 1.0.
  bool operator==(const Json& other) const;

 private:
  friend class JsonReader;
  std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, JsonObject> value_;
};

struct JsonMember {
  std::string key;
  Json value;
};
/// A member in the braces of an object that is being made. It is moved out of there: what such a
/// list holds is constant otherwise, and every level of a message would be copied once more.
struct JsonGiven {
  mutable std::string key;
  mutable Json value;
};

namespace json {

struct ParseError {
  std::size_t offset = 0;  // bytes from the start
  std::string message;     // one line, for people
};

std::expected<Json, ParseError> parse(std::string_view text);
/// nullopt when the text is not JSON or not an object.
std::optional<JsonObject> parseObject(std::string_view text);

/// Compact, keys in their order. A double that is not finite is written as null. Doubles are
/// written in the shortest form that reads back the same.
std::string write(const Json& value);
std::string write(const JsonObject& value);
void appendTo(std::string& out, const Json& value);
void appendTo(std::string& out, const JsonObject& value);
/// Compact, keys sorted by their bytes at every level.
std::string writeSorted(const Json& value);
/// Two-space indent, keys sorted by their bytes.
std::string writePrettySorted(const Json& value);
/// Appends a JSON string literal. Invalid UTF-8 is repaired.
void appendQuoted(std::string& out, std::string_view text);

/// The members in the order of their keys' bytes; valid until the object changes.
std::vector<const JsonMember*> sortedByKey(const JsonObject& object);

// Typed look-ups in loosely typed answers: nullopt when the key is missing or of another kind.
const std::string* text(const JsonObject& object, std::string_view key);
std::string textOr(const JsonObject& object, std::string_view key, std::string_view fallback);
std::optional<bool> boolean(const JsonObject& object, std::string_view key);
/// A number, also one written as a double; its fraction is dropped. nullopt when out of range.
std::optional<std::int64_t> integer(const JsonObject& object, std::string_view key);
std::optional<double> number(const JsonObject& object, std::string_view key);
const Json::Array* array(const JsonObject& object, std::string_view key);
const JsonObject* object(const JsonObject& object, std::string_view key);

}  // namespace json

/// Writes JSON straight into a string, without a value in between. Calls must pair up; the caller
/// sees to that.
class JsonWriter {
 public:
  explicit JsonWriter(std::string& out) : out_(out) {}
  void beginObject() { open('{'); }
  void endObject() { close('}'); }
  void beginArray() { open('['); }
  void endArray() { close(']'); }
  void key(std::string_view name);
  void value(std::string_view text);
  void value(const char* text) { value(std::string_view(text)); }
  void value(const std::string& text) { value(std::string_view(text)); }
  void value(std::same_as<bool> auto truth) { word(truth ? "true" : "false"); }
  void value(std::int64_t number);
  void value(int number) { value(static_cast<std::int64_t>(number)); }
  void value(double number);
  void value(const Json& json);
  void null() { word("null"); }

 private:
  void separate();
  void open(char bracket);
  void close(char bracket);
  void word(std::string_view literal);
  std::string& out_;
  bool needsComma_ = false;
};

}  // namespace vantrell
