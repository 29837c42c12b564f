#include "platform/text/text.h"

#include <limits>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>

#include "platform/text/utf8.h"

namespace vantrell::text {
namespace {

bool isAsciiAt(std::string_view text, std::size_t i) {
  return static_cast<unsigned char>(text[i]) < 0x80;
}

bool isAsciiSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Whether the bytes are one valid character that has Unicode's White_Space property.
bool isWhiteSpace(std::string_view bytes) {
  const utf8::Sequence sequence = utf8::sequenceAt(bytes.data(), bytes.data() + bytes.size());
  return sequence.valid && sequence.length == bytes.size() &&
         u_isUWhiteSpace(utf8::codePoint(bytes));
}

bool isWordCharacter(UChar32 point) {
  return point >= 0 && (U_GET_GC_MASK(point) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

std::string lowercasedAscii(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

/// ICU counts text in 32 bits, and case mapping and repair can make it three times as long. Nothing
/// of that size is text that a person sees.
bool fitsIcu(std::string_view text) {
  return text.size() <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()) / 3;
}

/// ICU's case mapping copies invalid bytes; this is the text to give it. `storage` may hold it.
std::string_view validated(std::string_view text, std::string& storage) {
  if (isValidUtf8(text)) return text;
  storage = repaired(text);
  return storage;
}

icu::StringPiece pieceOf(std::string_view text) {
  return {text.data(), static_cast<std::int32_t>(text.size())};
}

/// Finds user-perceived characters with ICU. Opening one costs far more than using it: one for each
/// thread.
class CharacterBreaker {
 public:
  CharacterBreaker() {
    UErrorCode status = U_ZERO_ERROR;
    breaker_.reset(ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status));
    if (U_FAILURE(status)) breaker_.reset();
  }

  /// Walks over characters until `limit` of them are passed or the text ends; returns the bytes
  /// walked over and lowers `limit` by the characters.
  std::size_t walk(std::string_view text, std::size_t& limit) {
    UErrorCode status = U_ZERO_ERROR;
    UText source = UTEXT_INITIALIZER;
    utext_openUTF8(&source, text.data(), static_cast<std::int64_t>(text.size()), &status);
    if (!breaker_ || U_FAILURE(status)) {
      limit -= limit > 0;
      return text.size();
    }
    ubrk_setUText(breaker_.get(), &source, &status);
    std::int32_t at = 0;
    while (U_SUCCESS(status) && limit > 0 && static_cast<std::size_t>(at) < text.size()) {
      const std::int32_t next = ubrk_next(breaker_.get());
      if (next == UBRK_DONE) break;
      at = next;
      --limit;
    }
    utext_close(&source);
    return static_cast<std::size_t>(at);
  }

 private:
  struct Close {
    void operator()(UBreakIterator* breaker) const { ubrk_close(breaker); }
  };
  std::unique_ptr<UBreakIterator, Close> breaker_;
};

/// Length in bytes of the code point at `at` if that is below U+0300, where no code point joins
/// another but LF a CR; else 0.
std::size_t lengthOfPlain(std::string_view text, std::size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte < 0x80) return 1;
  const bool isPlain =
      byte >= 0xC2 && byte < 0xCC && at + 1 < text.size() && utf8::isContinuation(text[at + 1]);
  return isPlain ? 2 : 0;
}

/// Length in bytes of the first `limit` characters; `limit` goes down by the characters found.
///
/// Between two plain code points there is always a boundary, but in CR LF. So the letters of most
/// European languages need no ICU, which gets only the stretches around others, each ended between
/// two ASCII characters.
std::size_t walkCharacters(std::string_view text, std::size_t& limit) {
  std::size_t at = 0;
  while (limit > 0 && at < text.size()) {
    const std::size_t next = at + lengthOfPlain(text, at);
    if (next > at && (next == text.size() || lengthOfPlain(text, next) > 0)) {
      at = next + (text.substr(at).starts_with("\r\n") ? 1 : 0);
      --limit;
      continue;
    }
    std::size_t end = at + 1;
    while (end < text.size() && !(isAsciiAt(text, end - 1) && isAsciiAt(text, end) &&
                                  !(text[end - 1] == '\r' && text[end] == '\n'))) {
      ++end;
    }
    thread_local CharacterBreaker breaker;
    at += breaker.walk(text.substr(at, end - at), limit);
  }
  return at;
}

/// The order of the user's locale. Without one ("C"), ICU would order by code point, capitals
/// first, which no person expects: the root order serves there.
const icu::Collator* presentCollator() {
  static const std::unique_ptr<icu::Collator> collator = [] {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale locale = icu::Locale::getDefault();
    if (std::string_view(locale.getVariant()) == "POSIX") locale = icu::Locale::getRoot();
    std::unique_ptr<icu::Collator> opened(icu::Collator::createInstance(locale, status));
    if (U_FAILURE(status)) opened.reset();
    return opened;
  }();
  return collator.get();
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end) {
    if (isAsciiAt(text, begin)) {
      if (!isAsciiSpace(text[begin])) break;
      ++begin;
      continue;
    }
    const std::size_t length = utf8::sequenceAt(&text[begin], text.data() + end).length;
    if (!isWhiteSpace(text.substr(begin, length))) break;
    begin += length;
  }
  while (begin < end) {
    if (isAsciiAt(text, end - 1)) {
      if (!isAsciiSpace(text[end - 1])) break;
      --end;
      continue;
    }
    std::size_t last = end - 1;
    while (end - last < 3 && last > begin && utf8::isContinuation(text[last])) --last;
    if (!isWhiteSpace(text.substr(last, end - last))) break;
    end = last;
  }
  return text.substr(begin, end - begin);
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  return text.substr(0, walkCharacters(text, count));
}

std::string_view lastCharacters(std::string_view text, std::size_t count) {
  const std::size_t total = characterCount(text);
  if (total <= count) return text;
  return text.substr(firstCharacters(text, total - count).size());
}

std::size_t characterCount(std::string_view text) {
  constexpr std::size_t all = std::numeric_limits<std::size_t>::max();
  std::size_t left = all;
  walkCharacters(text, left);
  return all - left;
}

std::string lowercased(std::string_view text) {
  if (utf8::isAscii(text) || !fitsIcu(text)) return lowercasedAscii(text);
  std::string storage;
  text = validated(text, storage);
  UErrorCode status = U_ZERO_ERROR;
  std::string lower;
  lower.reserve(text.size());
  icu::StringByteSink<std::string> sink(&lower);
  icu::CaseMap::utf8ToLower("", 0, pieceOf(text), sink, nullptr, status);
  return U_SUCCESS(status) ? lower : lowercasedAscii(text);
}

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> lines;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view rest = text.substr(at);
    std::size_t length = 0;
    if (rest[0] >= '\n' && rest[0] <= '\r') {
      length = 1;
    } else if (rest.starts_with("\xC2\x85")) {  // NEL
      length = 2;
    } else if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
      length = 3;  // U+2028, U+2029
    }
    if (length == 0) {
      ++at;
      continue;
    }
    lines.push_back(text.substr(begin, at - begin));
    at += length;
    begin = at;
  }
  lines.push_back(text.substr(begin));
  return lines;
}

std::vector<std::string_view> words(std::string_view text, std::size_t most) {
  std::vector<std::string_view> words;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size() && words.size() < most;) {
    const std::size_t length = utf8::sequenceAt(text.data() + at, text.data() + text.size()).length;
    const std::size_t next = at + length;
    const bool isInWord = isWordCharacter(utf8::codePointAt(text.substr(at)));
    if (!isInWord && begin < at) words.push_back(text.substr(begin, at - begin));
    if (!isInWord) begin = next;
    at = next;
  }
  if (begin < text.size() && words.size() < most) words.push_back(text.substr(begin));
  return words;
}

int localizedCompare(std::string_view left, std::string_view right) {
  const icu::Collator* collator = presentCollator();
  if (!collator || !fitsIcu(left) || !fitsIcu(right)) return left.compare(right);
  UErrorCode status = U_ZERO_ERROR;
  const UCollationResult order = collator->compareUTF8(pieceOf(left), pieceOf(right), status);
  return U_SUCCESS(status) ? static_cast<int>(order) : left.compare(right);
}

bool isValidUtf8(std::string_view bytes) {
  const char* at = bytes.data();
  const char* const end = at + bytes.size();
  while ((at = utf8::endOfAscii(at, end)) != end) {
    const utf8::Sequence sequence = utf8::sequenceAt(at, end);
    if (!sequence.valid) return false;
    at += sequence.length;
  }
  return true;
}

std::string repaired(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  const char* at = bytes.data();
  const char* run = at;
  const char* const end = at + bytes.size();
  while ((at = utf8::endOfAscii(at, end)) != end) {
    const utf8::Sequence sequence = utf8::sequenceAt(at, end);
    if (!sequence.valid) {
      text.append(run, at);
      text += utf8::replacement;
      run = at + sequence.length;
    }
    at += sequence.length;
  }
  text.append(run, end);
  return text;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  std::size_t begin = 0;
  while (true) {
    const std::size_t at = text.find(separator, begin);
    parts.push_back(text.substr(begin, at == text.npos ? at : at - begin));
    if (at == text.npos) return parts;
    begin = at + 1;
  }
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::string text;
  for (const std::string& part : parts) {
    if (&part != &parts.front()) text += separator;
    text += part;
  }
  return text;
}

}  // namespace vantrell::text
