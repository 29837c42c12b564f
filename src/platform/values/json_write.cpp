#include <charconv>
#include <cmath>

#include "platform/text/utf8.h"
#include "platform/values/json.h"

namespace vantrell {
namespace {

/// Below this every integral double is exact in 64 bits and is written without an exponent.
constexpr double integralLimit = 1e15;

void appendNumber(std::string& out, std::int64_t number) {
  char buffer[24];
  out.append(buffer, std::to_chars(buffer, std::end(buffer), number).ptr);
}

void appendNumber(std::string& out, double number) {
  if (!std::isfinite(number)) {
    out += "null";
    return;
  }
  // "-0" keeps its sign by way of to_chars.
  if (std::abs(number) < integralLimit && number == std::trunc(number) && number != 0) {
    appendNumber(out, static_cast<std::int64_t>(number));
    return;
  }
  char buffer[32];
  out.append(buffer, std::to_chars(buffer, std::end(buffer), number).ptr);
}

void appendEscaped(std::string& out, char c) {
  constexpr char hex[] = "0123456789abcdef";
  switch (c) {
    case '"': out += "\\\""; break;
    case '\\': out += "\\\\"; break;
    case '\b': out += "\\b"; break;
    case '\f': out += "\\f"; break;
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
      out += "\\u00";
      out += hex[static_cast<unsigned char>(c) >> 4];
      out += hex[c & 0xF];
  }
}

/// Whatever is neither an array nor an object.
void appendScalar(std::string& out, const Json& value) {
  if (const std::string* text = value.asText()) {
    json::appendQuoted(out, *text);
  } else if (const std::int64_t* integer = value.asInteger()) {
    appendNumber(out, *integer);
  } else if (const double* number = value.asDouble()) {
    appendNumber(out, *number);
  } else if (const bool* boolean = value.asBoolean()) {
    out += *boolean ? "true" : "false";
  } else {
    out += "null";
  }
}

/// Keys sorted, on one line or on many with indents.
enum class Layout { compact, pretty };

void appendNewLine(std::string& out, std::size_t level, Layout layout) {
  if (layout == Layout::compact) return;
  out += '\n';
  out.append(2 * level, ' ');
}

void appendSorted(std::string& out, const Json& value, std::size_t level, Layout layout);

void appendSorted(std::string& out, const JsonObject& object, std::size_t level, Layout layout) {
  if (object.empty()) {
    out += "{}";
    return;
  }
  char before = '{';
  for (const JsonMember* member : json::sortedByKey(object)) {
    out += before;
    before = ',';
    appendNewLine(out, level + 1, layout);
    json::appendQuoted(out, member->key);
    out += layout == Layout::pretty ? ": " : ":";
    appendSorted(out, member->value, level + 1, layout);
  }
  appendNewLine(out, level, layout);
  out += '}';
}

void appendSorted(std::string& out, const Json::Array& elements, std::size_t level, Layout layout) {
  if (elements.empty()) {
    out += "[]";
    return;
  }
  char before = '[';
  for (const Json& element : elements) {
    out += before;
    before = ',';
    appendNewLine(out, level + 1, layout);
    appendSorted(out, element, level + 1, layout);
  }
  appendNewLine(out, level, layout);
  out += ']';
}

void appendSorted(std::string& out, const Json& value, std::size_t level, Layout layout) {
  if (const JsonObject* object = value.asObject()) {
    appendSorted(out, *object, level, layout);
  } else if (const Json::Array* elements = value.asArray()) {
    appendSorted(out, *elements, level, layout);
  } else {
    appendScalar(out, value);
  }
}

}  // namespace

namespace json {

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  const char* at = text.data();
  const char* const end = at + text.size();
  const char* run = at;
  while (true) {
    at = utf8::endOfPlainText(at, end);
    if (at == end) break;
    if (static_cast<unsigned char>(*at) < 0x80) {
      out.append(run, at);
      appendEscaped(out, *at);
      run = ++at;
      continue;
    }
    const utf8::Sequence sequence = utf8::sequenceAt(at, end);
    if (!sequence.valid) {
      out.append(run, at);
      out += utf8::replacement;
      run = at + sequence.length;
    }
    at += sequence.length;
  }
  out.append(run, end);
  out += '"';
}

void appendTo(std::string& out, const JsonObject& object) {
  out += '{';
  bool isFirst = true;
  for (const JsonMember& member : object) {
    if (!isFirst) out += ',';
    isFirst = false;
    appendQuoted(out, member.key);
    out += ':';
    appendTo(out, member.value);
  }
  out += '}';
}

void appendTo(std::string& out, const Json& value) {
  if (const JsonObject* object = value.asObject()) {
    appendTo(out, *object);
  } else if (const Json::Array* elements = value.asArray()) {
    out += '[';
    bool isFirst = true;
    for (const Json& element : *elements) {
      if (!isFirst) out += ',';
      isFirst = false;
      appendTo(out, element);
    }
    out += ']';
  } else {
    appendScalar(out, value);
  }
}

std::string write(const Json& value) {
  std::string out;
  appendTo(out, value);
  return out;
}

std::string write(const JsonObject& value) {
  std::string out;
  appendTo(out, value);
  return out;
}

std::string writeSorted(const Json& value) {
  std::string out;
  appendSorted(out, value, 0, Layout::compact);
  return out;
}

std::string writePrettySorted(const Json& value) {
  std::string out;
  appendSorted(out, value, 0, Layout::pretty);
  return out;
}

}  // namespace json

void JsonWriter::separate() {
  if (needsComma_) out_ += ',';
  needsComma_ = true;
}

void JsonWriter::beginObject() {
  separate();
  out_ += '{';
  needsComma_ = false;
}

void JsonWriter::endObject() {
  out_ += '}';
  needsComma_ = true;
}

void JsonWriter::beginArray() {
  separate();
  out_ += '[';
  needsComma_ = false;
}

void JsonWriter::endArray() {
  out_ += ']';
  needsComma_ = true;
}

void JsonWriter::key(std::string_view name) {
  separate();
  json::appendQuoted(out_, name);
  out_ += ':';
  needsComma_ = false;
}

void JsonWriter::value(std::string_view text) {
  separate();
  json::appendQuoted(out_, text);
}

void JsonWriter::word(std::string_view literal) {
  separate();
  out_ += literal;
}

void JsonWriter::value(std::int64_t number) {
  separate();
  appendNumber(out_, number);
}

void JsonWriter::value(double number) {
  separate();
  appendNumber(out_, number);
}

void JsonWriter::value(const Json& json) {
  separate();
  json::appendTo(out_, json);
}

}  // namespace vantrell
