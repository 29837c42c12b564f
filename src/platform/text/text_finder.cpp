#include "platform/text/text_finder.h"

#include <cstring>
#include <limits>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/edits.h>
#include <unicode/normalizer2.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell::text {
namespace {

/// ICU counts in 32 bits, and folding can make a text three times as long.
bool fitsIcu(std::string_view text) {
  return text.size() <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()) / 3;
}

icu::StringPiece pieceOf(std::string_view text) {
  return {text.data(), static_cast<std::int32_t>(text.size())};
}

/// Branchless, so that the compiler makes vector code of it.
void lower(std::string_view text, std::string& lowered) {
  lowered.resize(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    lowered[i] = static_cast<char>(c | (c >= 'A' && c <= 'Z' ? 0x20 : 0));
  }
}

/// How a folded text came from its source, for finding the way back.
struct Folding {
  icu::Edits folded;
  icu::Edits composed;
};

/// Case folded and composed, so that what a person takes for the same text has the same bytes.
/// nullopt when ICU cannot do it. The text must be valid.
std::optional<std::string> folded(std::string_view text, Folding* how) {
  if (!fitsIcu(text)) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  std::string fold;
  fold.reserve(text.size() + text.size() / 16);
  icu::StringByteSink<std::string> foldSink(&fold);
  icu::CaseMap::utf8Fold(0, pieceOf(text), foldSink, how ? &how->folded : nullptr, status);
  const icu::Normalizer2* composer = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) return std::nullopt;
  if (!how && composer->isNormalizedUTF8(pieceOf(fold), status) && U_SUCCESS(status)) return fold;
  std::string composed;
  composed.reserve(fold.size());
  icu::StringByteSink<std::string> sink(&composed);
  composer->normalizeUTF8(0, pieceOf(fold), sink, how ? &how->composed : nullptr, status);
  if (U_FAILURE(status)) return std::nullopt;
  return composed;
}

std::size_t sourceIndex(const Folding& how, std::size_t index) {
  UErrorCode status = U_ZERO_ERROR;
  auto composed = how.composed.getFineIterator();
  const auto inFold =
      composed.sourceIndexFromDestinationIndex(static_cast<std::int32_t>(index), status);
  auto fold = how.folded.getFineIterator();
  return static_cast<std::size_t>(fold.sourceIndexFromDestinationIndex(inFold, status));
}

}  // namespace

Finder::Finder(std::string_view sought, Case letterCase) : case_(letterCase) {
  if (case_ == Case::matters) {
    sought_ = sought;
  } else if (auto fold = folded(repaired(sought), nullptr)) {
    sought_ = *std::move(fold);
  } else {
    lower(sought, sought_);
  }
}

std::optional<std::size_t> Finder::findSought(std::string_view where) const {
  // Not std::string::find, which is quadratic in the worst case.
  const void* at = memmem(where.data(), where.size(), sought_.data(), sought_.size());
  if (!at) return std::nullopt;
  return static_cast<std::size_t>(static_cast<const char*>(at) - where.data());
}

std::optional<Finder::Hit> Finder::find(std::string_view text) {
  if (sought_.empty()) return std::nullopt;
  if (case_ == Case::ignored && !utf8::isAscii(text) && isValidUtf8(text)) return findFolded(text);
  if (case_ == Case::ignored) lower(text, lowered_);
  const auto at = findSought(case_ == Case::ignored ? lowered_ : text);
  return at ? std::optional(Hit{*at, sought_.size()}) : std::nullopt;
}

std::optional<Finder::Hit> Finder::findFolded(std::string_view text) {
  const auto quick = folded(text, nullptr);
  if (!quick || !findSought(*quick)) return std::nullopt;
  // Noting the way back takes longer, and most texts hold nothing.
  Folding how;
  const auto fold = folded(text, &how);
  const auto at = fold ? findSought(*fold) : std::nullopt;
  if (!at) return std::nullopt;
  std::size_t begin = sourceIndex(how, *at);
  const std::size_t end = std::max(begin, sourceIndex(how, *at + sought_.size()));
  // A hit within what one character became, as an s in a sharp s, is that character.
  while (begin > 0 && (begin == end || utf8::isContinuation(text[begin]))) {
    --begin;
    if (begin < end && !utf8::isContinuation(text[begin])) break;
  }
  return Hit{begin, end - begin};
}

bool containsIgnoringCase(std::string_view haystack, std::string_view needle) {
  return needle.empty() || Finder(needle).find(repaired(haystack)).has_value();
}

}  // namespace vantrell::text
