#include "presentation/character_counter.h"

#include <algorithm>

#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell {

namespace {

/// A character can be endless (marks upon marks). Whether one goes on is decided by its first code
/// point and a few of its last ones (Unicode's rules look back over marks only to find what they
/// stand upon), so no more of it is kept.
constexpr std::size_t longestKept = 64;  // bytes

bool isPlain(std::string_view text) {
  return std::ranges::all_of(
      text, [](char c) { return c != '\r' && static_cast<unsigned char>(c) < 0x80; });
}

std::string shortened(std::string_view character) {
  if (character.size() <= longestKept) return std::string(character);
  std::size_t first = 1;
  while (utf8::isContinuation(character[first])) ++first;
  std::size_t rest = character.size() - longestKept + first;
  while (rest < character.size() && utf8::isContinuation(character[rest])) ++rest;
  return std::string(character.substr(0, first)) + std::string(character.substr(rest));
}

}  // namespace

void CharacterCounter::add(std::string_view text) {
  if (text.empty()) return;
  if (isPlain(text) && isPlain(last_)) {
    closed_ += text.size() - 1 + !last_.empty();
    last_ = text.back();
    return;
  }
  const std::string all = last_ + std::string(text);
  closed_ += text::characterCount(all) - 1;
  last_ = shortened(text::lastCharacters(all, 1));
}

}  // namespace vantrell
