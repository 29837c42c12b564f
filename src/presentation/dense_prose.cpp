#include "presentation/dense_prose.h"

#include <utility>
#include <vector>

#include "platform/text/text.h"
#include "presentation/white_space.h"

namespace vantrell::dense {

namespace {

/// A first sentence below this length stands alone, as the lead.
constexpr std::size_t leadLimit = 181;
/// Sentences are gathered up to this length.
constexpr std::size_t paragraphLimit = 320;
constexpr std::string_view sentenceEnds = ".!?";
constexpr std::size_t fewestLowerLetters = 2;

constexpr bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}
constexpr bool isLower(char c) {
  return c >= 'a' && c <= 'z';
}
constexpr bool beginsSentence(char c) {
  return isUpper(c) || (c >= '0' && c <= '9');
}

/// "([.!?])([A-Z][a-z]{2,}\b)", replaced by "$1 $2".
std::string withSentenceBreaks(std::string_view text) {
  std::string broken;
  broken.reserve(text.size() + text.size() / 64);
  std::size_t copied = 0;
  std::size_t at = 0;
  while ((at = text.find_first_of(sentenceEnds, at)) != text.npos) {
    const std::size_t word = ++at;
    if (word >= text.size() || !isUpper(text[word])) continue;
    std::size_t end = word + 1;
    while (end < text.size() && isLower(text[end])) ++end;
    if (end - word <= fewestLowerLetters || text::continuesWord(text.substr(end))) continue;
    broken.append(text, copied, word - copied);
    broken += ' ';
    copied = word;
    at = end;
  }
  broken.append(text, copied);
  return broken;
}

/// Cut at "(?<=[.!?])\s+(?=[A-Z0-9])".
std::vector<std::string_view> sentencesOf(std::string_view text) {
  std::vector<std::string_view> sentences;
  std::size_t begin = 0;
  std::size_t at = 0;
  while ((at = text.find_first_of(sentenceEnds, at)) != text.npos) {
    const std::size_t end = ++at;
    at = white::skip(text, end, white::at);
    if (at == end || at >= text.size() || !beginsSentence(text[at])) continue;
    sentences.push_back(text::trimmed(text.substr(begin, end - begin)));
    begin = at;
  }
  sentences.push_back(text::trimmed(text.substr(begin)));
  std::erase(sentences, std::string_view());
  return sentences;
}

}  // namespace

std::string brokenUp(std::string_view text) {
  const std::string broken = withSentenceBreaks(text);
  const auto sentences = sentencesOf(broken);
  if (sentences.size() < 2) return broken;
  std::string out(sentences.front());
  std::size_t length = text::characterCount(sentences.front());  // of the last paragraph
  for (std::size_t i = 1; i < sentences.size(); ++i) {
    const std::size_t more = text::characterCount(sentences[i]);
    const bool isLead = i == 1 && length < leadLimit;
    const bool begins = isLead || length + more > paragraphLimit;
    out.append(begins ? "\n\n" : " ").append(sentences[i]);
    length = begins ? more : length + 1 + more;
  }
  return out;
}

}  // namespace vantrell::dense
