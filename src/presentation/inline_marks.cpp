#include "presentation/inline_marks.h"

#include <algorithm>
#include <optional>

namespace vantrell {

namespace {

constexpr std::size_t none = std::string_view::npos;

/// Within words (2**8) and paths (src/**/x) stars mean something else.
bool isOuter(char byte) {
  const bool isWord =
      (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
  return !isWord && !std::string_view("/\\_").contains(byte);
}

/// Characters of one kind, without others of it beside them.
struct Run {
  Run(std::string_view source, std::size_t at)
      : text(source),
        begin(at),
        end(std::min(source.find_first_not_of(source[at], at), source.size())) {}

  std::size_t size() const { return end - begin; }
  /// What stands beside it; a blank at the ends of the text.
  char before() const { return begin > 0 ? text[begin - 1] : ' '; }
  char after() const { return end < text.size() ? text[end] : ' '; }

  bool opensCode() const {
    // Two of them are there for the sake of one in the code, which may stand beside a blank.
    const bool isBeside = after() != ' ' || text.substr(end).starts_with(" `");
    return size() <= 2 && before() != '\\' && isBeside;
  }
  bool opensBold() const {
    return size() == 2 && isOuter(before()) && !std::string_view(" /)]},;:!?").contains(after());
  }
  bool closesBold() const {
    return size() == 2 && isOuter(after()) && !std::string_view(" ([{\\").contains(before());
  }

  std::string_view text;
  std::size_t begin;
  std::size_t end;
};

std::optional<Run> codeEnd(const Run& opener) {
  for (auto at = opener.text.find('`', opener.end); at != none; at = opener.text.find('`', at)) {
    const Run run(opener.text, at);
    if (run.size() == opener.size()) return run;
    at = run.end;
  }
  return std::nullopt;
}

}  // namespace

InlineText withoutMarks(std::string_view source) {
  std::string looks(source.size(), '\0');
  constexpr char isMark = 4;
  const auto pair = [&looks](const Run& opener, const Run& closer, InlineText::Look look) {
    for (std::size_t i = opener.begin; i < closer.end; ++i) looks[i] |= look;
    for (const auto& mark : {opener, closer})
      looks.replace(mark.begin, mark.size(), mark.size(), isMark);
  };
  std::optional<Run> bold;  // the opener that has no partner yet
  for (std::size_t at = 0; (at = source.find_first_of("*`", at)) != none;) {
    const Run run(source, at);
    at = run.end;
    if (source[run.begin] == '`') {
      const auto closer = run.opensCode() ? codeEnd(run) : std::nullopt;
      if (!closer) continue;
      pair(run, *closer, InlineText::code);
      at = closer->end;
    } else if (bold && run.closesBold()) {
      pair(*bold, run, InlineText::bold);
      bold.reset();
    } else if (run.opensBold()) {
      bold = run;
    }
  }
  InlineText shown;
  for (std::size_t i = 0; i < source.size(); ++i) {
    if ((looks[i] & isMark) != 0) continue;
    shown.text += source[i];
    shown.looks += looks[i];
  }
  return shown;
}

}  // namespace vantrell
