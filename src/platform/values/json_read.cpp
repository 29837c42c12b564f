#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <map>

#include "platform/text/ascii.h"
#include "platform/text/utf8.h"
#include "platform/values/json.h"

namespace vantrell {
namespace {

using ascii::hexDigit;
using ascii::isDigit;

/// Nesting beyond this is refused: everything that handles a value recurses.
constexpr int depthLimit = 512;
/// Objects up to this size look for a doubled key by comparing all pairs.
constexpr std::size_t membersToPair = 16;
/// Any number of this many decimal digits fits in 64 bits.
constexpr std::ptrdiff_t digitsThatAlwaysFit = 18;

bool isHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendCodePoint(std::string& out, std::uint32_t point) {
  const auto tail = [&](int shift) { return static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
  if (point < 0x80) {
    out += static_cast<char>(point);
  } else if (point < 0x800) {
    out += static_cast<char>(0xC0 | (point >> 6));
    out += tail(0);
  } else if (point < 0x10000) {
    out += static_cast<char>(0xE0 | (point >> 12));
    out += tail(6);
    out += tail(0);
  } else {
    out += static_cast<char>(0xF0 | (point >> 18));
    out += tail(12);
    out += tail(6);
    out += tail(0);
  }
}

/// Small objects are looked through in pairs, which is faster than sorting and needs no memory.
bool hasDoubledKeys(const std::vector<JsonMember>& members) {
  if (members.size() > membersToPair) {
    std::vector<std::string_view> keys;
    keys.reserve(members.size());
    for (const JsonMember& member : members) keys.push_back(member.key);
    std::ranges::sort(keys);
    return std::ranges::adjacent_find(keys) != keys.end();
  }
  for (std::size_t i = 1; i < members.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (members[j].key == members[i].key) return true;
    }
  }
  return false;
}

/// Keeps of each key the first place and the last value.
void mergeDoubledKeys(std::vector<JsonMember>& members) {
  // Sorted, and not a hash table, because keys chosen to collide cannot slow it down.
  std::map<std::string, std::size_t> places;
  std::vector<JsonMember> merged;
  for (JsonMember& member : members) {
    const auto [place, isNew] = places.try_emplace(member.key, merged.size());
    if (isNew) {
      merged.push_back(std::move(member));
    } else {
      merged[place->second].value = std::move(member.value);
    }
  }
  members = std::move(merged);
}

}  // namespace

/// Recursive descent over one text. Each read function leaves at_ after what it read, or returns
/// false with message_ set and at_ where the fault is.
class JsonReader {
 public:
  explicit JsonReader(std::string_view text)
      : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

  std::expected<Json, json::ParseError> readDocument() {
    if (std::string_view(begin_, end_).starts_with("\xEF\xBB\xBF")) at_ += 3;
    Json document;
    skipSpace();
    if (readValue(document, 0)) {
      skipSpace();
      if (at_ == end_) return document;
      message_ = "text after the end of the value";
    }
    return std::unexpected(
        json::ParseError{static_cast<std::size_t>(at_ - begin_), std::string(message_)});
  }

 private:
  bool fail(const char* message) {
    message_ = message;
    return false;
  }
  bool isAt(char c) const { return at_ != end_ && *at_ == c; }

  void skipSpace() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) ++at_;
  }

  bool readValue(Json& out, int depth) {
    if (at_ == end_) return fail("unexpected end of the text");
    switch (*at_) {
      case '"': ++at_; return readText(out.value_.emplace<std::string>());
      case '{': return readObject(out.value_.emplace<JsonObject>().members_, depth + 1);
      case '[': return readArray(out.value_.emplace<Json::Array>(), depth + 1);
      case 't': out.value_ = true; return readWord("true");
      case 'f': out.value_ = false; return readWord("false");
      case 'n': return readWord("null");
      default: return readNumber(out);
    }
  }

  bool readWord(std::string_view word) {
    if (!std::string_view(at_, end_).starts_with(word)) return fail("expected a value");
    at_ += word.size();
    return true;
  }

  bool readObject(std::vector<JsonMember>& members, int depth) {
    if (depth > depthLimit) return fail("nested too deeply");
    ++at_;
    skipSpace();
    if (isAt('}')) {
      ++at_;
      return true;
    }
    members.reserve(4);  // spares the small objects, which most are, two steps of growth
    while (true) {
      if (!isAt('"')) return fail("expected a key in double quotes");
      ++at_;
      JsonMember& member = members.emplace_back();
      if (!readText(member.key)) return false;
      skipSpace();
      if (!isAt(':')) return fail("expected a colon after the key");
      ++at_;
      skipSpace();
      if (!readValue(member.value, depth)) return false;
      skipSpace();
      if (isAt('}')) break;
      if (!isAt(',')) return fail("expected a comma or the end of the object");
      ++at_;
      skipSpace();
    }
    ++at_;
    if (hasDoubledKeys(members)) mergeDoubledKeys(members);
    return true;
  }

  bool readArray(Json::Array& elements, int depth) {
    if (depth > depthLimit) return fail("nested too deeply");
    ++at_;
    skipSpace();
    if (isAt(']')) {
      ++at_;
      return true;
    }
    elements.reserve(4);
    while (true) {
      if (!readValue(elements.emplace_back(), depth)) return false;
      skipSpace();
      if (isAt(']')) break;
      if (!isAt(',')) return fail("expected a comma or the end of the array");
      ++at_;
      skipSpace();
    }
    ++at_;
    return true;
  }

  /// From after the opening quote. Whole runs are copied at once; most texts are one run.
  bool readText(std::string& out) {
    const char* run = at_;
    while (true) {
      at_ = utf8::endOfPlainText(at_, end_);
      if (at_ == end_) return fail("a string without an end");
      const auto byte = static_cast<unsigned char>(*at_);
      if (byte >= 0x80) {
        const utf8::Sequence sequence = utf8::sequenceAt(at_, end_);
        if (!sequence.valid) return fail("invalid UTF-8");
        at_ += sequence.length;
        continue;
      }
      if (byte < 0x20) return fail("a control character inside a string");
      if (byte == '\\' && out.empty()) {
        // Room for all up to the next quote at once, which mostly is the closing one.
        const void* quote = std::memchr(at_ + 1, '"', static_cast<std::size_t>(end_ - at_ - 1));
        out.reserve(
            static_cast<std::size_t>((quote ? static_cast<const char*>(quote) : at_) - run));
      }
      out.append(run, at_);
      ++at_;
      if (byte == '"') return true;
      if (!readEscape(out)) return false;
      run = at_;
    }
  }

  /// From after the backslash.
  bool readEscape(std::string& out) {
    if (at_ == end_) return fail("a string without an end");
    switch (*at_++) {
      case '"': out += '"'; return true;
      case '\\': out += '\\'; return true;
      case '/': out += '/'; return true;
      case 'b': out += '\b'; return true;
      case 'f': out += '\f'; return true;
      case 'n': out += '\n'; return true;
      case 'r': out += '\r'; return true;
      case 't': out += '\t'; return true;
      case 'u': break;
      default: --at_; return fail("an unknown escape");
    }
    std::uint32_t unit = 0;
    if (!readFourHexDigits(unit)) return false;
    if (isHighSurrogate(unit) && end_ - at_ >= 2 && at_[0] == '\\' && at_[1] == 'u') {
      const char* behindFirst = at_;
      at_ += 2;
      std::uint32_t second = 0;
      if (!readFourHexDigits(second)) return false;
      if (isLowSurrogate(second)) {
        appendCodePoint(out, 0x10000 + ((unit - 0xD800) << 10) + (second - 0xDC00));
        return true;
      }
      at_ = behindFirst;  // the second escape stands for itself
    }
    // JavaScript cuts strings between the halves of a pair. The rest of the line is worth keeping.
    appendCodePoint(out, isHighSurrogate(unit) || isLowSurrogate(unit) ? 0xFFFD : unit);
    return true;
  }

  bool readFourHexDigits(std::uint32_t& unit) {
    for (int i = 0; i < 4; ++i, ++at_) {
      const int digit = at_ == end_ ? -1 : hexDigit(*at_);
      if (digit < 0) return fail("expected four hexadecimal digits");
      unit = unit << 4 | static_cast<std::uint32_t>(digit);
    }
    return true;
  }

  bool skipDigits() {
    if (at_ == end_ || !isDigit(*at_)) return fail("expected a digit");
    while (at_ != end_ && isDigit(*at_)) ++at_;
    return true;
  }

  bool readNumber(Json& out) {
    const char* start = at_;
    const bool negative = *at_ == '-';
    if (negative) ++at_;
    const char* digits = at_;
    if (at_ == end_ || !isDigit(*at_)) {
      return fail(negative ? "expected a digit" : "expected a value");
    }
    if (*at_ == '0' && end_ - at_ > 1 && isDigit(at_[1])) return fail("a leading zero");
    std::uint64_t magnitude = 0;  // meaningless beyond 19 digits, and then unused
    for (; at_ != end_ && isDigit(*at_); ++at_) {
      magnitude = magnitude * 10 + static_cast<std::uint64_t>(*at_ - '0');
    }
    const char* integerEnd = at_;
    bool isInteger = true;
    if (isAt('.')) {
      isInteger = false;
      ++at_;
      if (!skipDigits()) return false;
    }
    if (isAt('e') || isAt('E')) {
      isInteger = false;
      ++at_;
      if (isAt('+') || isAt('-')) ++at_;
      if (!skipDigits()) return false;
    }
    if (isInteger && !(negative && magnitude == 0)) {
      if (integerEnd - digits <= digitsThatAlwaysFit) {
        const auto value = static_cast<std::int64_t>(magnitude);
        out.value_ = negative ? -value : value;
        return true;
      }
      std::int64_t value = 0;
      if (std::from_chars(start, at_, value).ec == std::errc()) {
        out.value_ = value;
        return true;
      }
    }
    return readDouble(out, start);
  }

  bool readDouble(Json& out, const char* start) {
    double value = 0;
    if (std::from_chars(start, at_, value).ec != std::errc()) {
      // Out of range, at which end of the scale from_chars does not say; what is too small is zero.
      static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
      value = ::strtod_l(std::string(start, at_).c_str(), nullptr, locale);
      if (!std::isfinite(value)) {
        at_ = start;
        return fail("a number beyond the range of a double");
      }
    }
    out.value_ = value;
    return true;
  }

  const char* begin_;
  const char* at_;
  const char* end_;
  const char* message_ = "";
};

namespace json {

std::expected<Json, ParseError> parse(std::string_view text) {
  return JsonReader(text).readDocument();
}

std::optional<JsonObject> parseObject(std::string_view text) {
  auto document = parse(text);
  JsonObject* object = document ? document->asObject() : nullptr;
  return object ? std::optional(std::move(*object)) : std::nullopt;
}

}  // namespace json
}  // namespace vantrell
