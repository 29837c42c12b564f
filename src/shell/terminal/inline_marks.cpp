#include "shell/terminal/inline_marks.h"

#include <algorithm>
#include <optional>

namespace vantrell::shell {

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
  const std::string_view near = opener.text.substr(0, opener.end + longestSpan);
  for (auto at = near.find('`', opener.end); at != none; at = near.find('`', at)) {
    const Run run(opener.text, at);
    if (run.size() == opener.size()) return run;
    at = run.end;
  }
  return std::nullopt;
}

struct Mark {
  std::size_t begin, end;
  bool isCode;
};

/// The marks that have partners, in their order.
std::vector<Mark> marksOf(std::string_view source, std::size_t& settled) {
  std::vector<Mark> marks;
  std::optional<Run> bold;  // the opener that has no partner yet
  const auto addPair = [&](const Run& opener, const Run& closer, bool isCode) {
    marks.push_back({opener.begin, opener.end, isCode});
    marks.push_back({closer.begin, closer.end, isCode});
  };
  settled = source.size();
  for (std::size_t at = 0; (at = source.find_first_of("*`", at)) != none;) {
    const Run run(source, at);
    at = run.end;
    if (bold && run.begin - bold->begin > longestSpan) bold.reset();
    const auto isUndecided = [&] { settled = std::min(settled, bold ? bold->begin : run.begin); };
    // What comes next may make it something else.
    if (run.end + 1 >= source.size()) isUndecided();
    if (source[run.begin] == '`') {
      if (!run.opensCode()) continue;
      if (const auto closer = codeEnd(run)) {
        if (closer->end == source.size()) isUndecided();
        addPair(run, *closer, true);
        at = closer->end;
      } else if (source.size() - run.begin <= longestSpan + 4) {
        isUndecided();
      }
    } else if (bold && run.closesBold()) {
      addPair(*bold, run, false);
      bold.reset();
    } else if (run.opensBold()) {
      bold.emplace(run);
    }
  }
  if (bold && source.size() - bold->begin <= longestSpan + 4) {
    settled = std::min(settled, bold->begin);
  }
  std::ranges::sort(marks, {}, &Mark::begin);
  return marks;
}

}  // namespace

InlineText withoutMarks(std::string_view source) {
  InlineText shown;
  std::size_t at = 0;
  InlineText::Change now{};
  for (const Mark& mark : marksOf(source, shown.settled)) {
    shown.text += source.substr(at, mark.begin - at);
    at = mark.end;
    bool& flag = mark.isCode ? now.isCode : now.isBold;
    flag = !flag;
    now.at = shown.text.size();
    now.removed = at - now.at;
    shown.changes.push_back(now);
  }
  shown.text += source.substr(at);
  return shown;
}

InlineText asWritten(std::string_view source) {
  return {.text = std::string(source), .changes = {}, .settled = source.size()};
}

InlineText::Change InlineText::at(std::size_t place) const {
  const auto after = std::ranges::upper_bound(changes, place, {}, &Change::at);
  return after == changes.begin() ? Change{} : *std::prev(after);
}

std::string InlineText::styled(Around around, std::size_t begin, std::size_t end) const {
  std::string out;
  end = std::min(end, text.size());
  auto next = std::ranges::upper_bound(changes, begin, {}, &Change::at);
  for (Change now = at(begin); begin < end;) {
    const std::size_t partEnd = next == changes.end() ? end : std::min(next->at, end);
    const bool isBold = now.isBold && around != Around::bold;
    const bool isDim = around == Around::dim;
    if (partEnd > begin) {
      // 22 ends bold and dim alike, 39 the colour.
      if (isBold) out += isDim ? "\x1b[22;1m" : "\x1b[1m";
      if (now.isCode) out += "\x1b[36m";
      out.append(text, begin, partEnd - begin);
      if (now.isCode) out += "\x1b[39m";
      if (isBold) out += isDim ? "\x1b[22;2m" : "\x1b[22m";
    }
    begin = partEnd;
    if (next != changes.end()) now = *next++;
  }
  return out;
}

}  // namespace vantrell::shell
