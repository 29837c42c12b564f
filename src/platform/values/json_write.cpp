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

enum class Layout { compact, sorted, prettySorted };

template <Layout layout>
class ValueWriter {
 public:
  explicit ValueWriter(std::string& out) : out_(out) {}

  void append(const Json& value) {
    if (const std::string* text = value.asText()) {
      json::appendQuoted(out_, *text);
    } else if (const JsonObject* object = value.asObject()) {
      append(*object);
    } else if (const Json::Array* elements = value.asArray()) {
      appendList('[', *elements, ']', [this](const Json& element) { append(element); });
    } else if (const std::int64_t* integer = value.asInteger()) {
      appendNumber(out_, *integer);
    } else if (const double* number = value.asDouble()) {
      appendNumber(out_, *number);
    } else if (const bool* boolean = value.asBoolean()) {
      out_ += *boolean ? "true" : "false";
    } else {
      out_ += "null";
    }
  }

  void append(const JsonObject& object) {
    const auto appendMember = [this](const JsonMember& member) {
      json::appendQuoted(out_, member.key);
      out_ += layout == Layout::prettySorted ? ": " : ":";
      append(member.value);
    };
    if constexpr (layout == Layout::compact) {
      appendList('{', object, '}', appendMember);
    } else {
      appendList('{', json::sortedByKey(object), '}',
                 [&](const JsonMember* member) { appendMember(*member); });
    }
  }

 private:
  template <typename List, typename Append>
  void appendList(char begin, const List& list, char end, Append appendElement) {
    out_ += begin;
    ++level_;
    bool isFirst = true;
    for (const auto& element : list) {
      if (!std::exchange(isFirst, false)) out_ += ',';
      beginLine();
      appendElement(element);
    }
    --level_;
    if (!isFirst) beginLine();
    out_ += end;
  }

  void beginLine() {
    if constexpr (layout == Layout::prettySorted) out_.append(1, '\n').append(2 * level_, ' ');
  }

  std::string& out_;
  std::size_t level_ = 0;
};

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
  ValueWriter<Layout::compact>(out).append(object);
}

void appendTo(std::string& out, const Json& value) {
  ValueWriter<Layout::compact>(out).append(value);
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
  ValueWriter<Layout::sorted>(out).append(value);
  return out;
}

std::string writePrettySorted(const Json& value) {
  std::string out;
  ValueWriter<Layout::prettySorted>(out).append(value);
  return out;
}

}  // namespace json

void JsonWriter::separate() {
  if (needsComma_) out_ += ',';
  needsComma_ = true;
}

void JsonWriter::open(char bracket) {
  separate();
  out_ += bracket;
  needsComma_ = false;
}

void JsonWriter::close(char bracket) {
  out_ += bracket;
  needsComma_ = true;
}

void JsonWriter::word(std::string_view literal) {
  separate();
  out_ += literal;
}

void JsonWriter::key(std::string_view name) {
  value(name);
  out_ += ':';
  needsComma_ = false;
}

void JsonWriter::value(std::string_view text) {
  separate();
  json::appendQuoted(out_, text);
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
