#include "presentation/spoken_text.h"

#include "platform/text/text.h"
#include "presentation/white_space.h"

namespace vantrell::SpokenText {

namespace {

/// Matches become what the first group holds, or a fixed text.
class Replacement {
 public:
  explicit Replacement(std::string_view expression, std::optional<std::string_view> with = {})
      : pattern_(text::Pattern::compile(expression)), with_(with) {}

  void apply(std::string& text) const {
    if (!pattern_) return;
    const auto matches = pattern_->findAll(text);
    if (matches.empty()) return;
    std::string out;
    std::size_t copied = 0;
    for (const auto& match : matches) {
      out.append(text, copied, match.offset - copied);
      out += with_ ? *with_ : *match.groups[1];
      copied = match.offset + match.length;
    }
    text = out.append(text, copied);
  }

 private:
  std::optional<text::Pattern> pattern_;
  std::optional<std::string_view> with_;
};

/// "|" becomes ", ", and then each stretch of white space one blank.
std::string onOneLine(std::string_view text) {
  std::string out;
  bool isInBlank = false;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t blank = white::at(text, at);
    const bool isPipe = text[at] == '|';
    if (isPipe) out += ',';
    if (blank == 0 && !isPipe) out += text[at];
    const bool wasInBlank = std::exchange(isInBlank, blank != 0 || isPipe);
    if (isInBlank && (!wasInBlank || isPipe)) out += ' ';
    at += std::max<std::size_t>(blank, 1);
  }
  return out;
}

}  // namespace

std::string render(std::string_view text) {
  static const Replacement structure[] = {
      Replacement(R"((?s)```.*?```)", " Code block omitted. "),
      Replacement(R"(!\[([^\]]*)\]\([^)]*\))"),
      Replacement(R"(\[([^\]]+)\]\([^)]*\))"),
      Replacement(R"(`([^`]+)`)"),
      Replacement(R"((?m)^\s{0,3}(#{1,6}|>|[-+*]|\d+[.)])\s+)", ""),
  };
  static const Replacement tags(R"(<[^>]+>)", " ");
  std::string spoken = text::repaired(text);
  for (const auto& each : structure) each.apply(spoken);
  std::erase_if(spoken, [](char c) { return c == '*' || c == '_' || c == '~'; });
  tags.apply(spoken);
  return std::string(text::trimmed(onOneLine(spoken)));
}

}  // namespace vantrell::SpokenText
